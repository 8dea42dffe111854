#include "host/io/import.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/host.h"
#include "host/io/file.h"
#include "host/io/png.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"
#include "tests/host/apart.h"
#include "tests/host/gltfbuilder.h"

namespace {

using host::ImportOptions;
using host::ImportResult;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kModels = "/usr/share/assimp/models";
constexpr TimeValue kSecond = 4800;

/// A unit square in the file's XY plane as two triangles, each with corners of its own.
Gltf Square() {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0}, "VEC3", 3);
  const int uv = g.Floats({0, 1, 1, 1, 1, 0, 0, 1, 1, 0, 0, 0}, "VEC2", 2);
  const int order = g.Add(Raw(std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5}), 5123, "SCALAR", 6);
  g.root["meshes"][0]["primitives"][0] = {{"attributes", {{"POSITION", at}, {"TEXCOORD_0", uv}}},
                                          {"indices", order}};
  g.root["nodes"] = {{{"name", "square"}, {"mesh", 0}}};
  return g;
}

class Import : public testing::Test {
 protected:
  ~Import() override { fs::remove_all(folder_); }
  std::optional<ImportResult> FromBytes(const std::string& text, bool obj, ImportOptions o = {}) {
    const auto bytes = std::as_bytes(std::span(text));
    return obj ? host::ImportObjBytes(ip_, bytes, o, error_)
               : host::ImportGltfBytes(ip_, bytes, o, error_);
  }
  ImportResult Taken(const std::optional<ImportResult>& result) {
    EXPECT_TRUE(result) << error_;
    return result.value_or(ImportResult{});
  }
  ImportResult Take(Gltf& g, const ImportOptions& o = {}) {
    return Taken(FromBytes(g.Glb(), false, o));
  }
  ImportResult Open(const fs::path& path) {
    return Taken(host::ImportModel(ip_, path.string(), {}, error_));
  }
  static Mesh& MeshOf(INode* node) { return static_cast<TriObject*>(node->GetObjectRef())->mesh; }
  /// The import fails, says `part` in one line, and leaves the scene as it was.
  void ExpectRefused(const std::string& bytes, const std::string& part, bool obj = false) {
    error_.clear();
    EXPECT_FALSE(FromBytes(bytes, obj)) << part;
    EXPECT_NE(error_.find(part), std::string::npos) << error_ << "\nlacks " << part;
    EXPECT_EQ(error_.find('\n'), std::string::npos);
    EXPECT_TRUE(host_.GetScene().AllNodes().empty());
  }

  std::string Write(const std::string& name, const std::string& text) {
    fs::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name) << text;
    return (folder_ / name).string();
  }
  static std::vector<Point3> World(const std::vector<INode*>& nodes, TimeValue t) {
    std::vector<Point3> all;
    for (INode* node : nodes)
      if (const EvaluatedMesh shown = EvalMesh(node, t))
        for (const Point3& v : shown.mesh->verts) all.push_back(v * node->GetObjectTM(t));
    return all;
  }
  static Box3 BoxOf(const std::vector<Point3>& points) {
    Box3 box;
    for (const Point3& p : points) box += p;
    return box;
  }
  Box3 BoxOfFile(const fs::path& path) { return BoxOf(World(Open(path).nodes, 0)); }
  static double BoxesApart(const Box3& a, const Box3& b) {
    return std::max(Apart(a.pmin, b.pmin), Apart(a.pmax, b.pmax));
  }
  /// The diffuse picture of a node's material; null without one.
  static BitmapTex* PictureOf(INode* node, int id = 0) {
    return dynamic_cast<BitmapTex*>(
        MtlOfFace(node->GetMtl(), id)->GetSubTexmap(StdMtl::kDiffuseMap));
  }

  host::Host host_;
  Interface& ip_ = host_.Services();
  const fs::path folder_ =
      fs::path(testing::TempDir()) / ("import_test_" + std::to_string(getpid()));
  std::string error_;
};

TEST_F(Import, ASplitSquareIsWeldedAndStandsInItsHierarchy) {
  Gltf g = Square();
  INode* node = Take(g).nodes.at(0);
  const Mesh& mesh = MeshOf(node);
  ASSERT_EQ(mesh.getNumVerts(), 4);
  ASSERT_EQ(mesh.getNumFaces(), 2);
  // v counts from the bottom up here, from the top down in the file.
  for (size_t f = 0; f < 2; ++f)
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(mesh.maps[1].verts[mesh.maps[1].faces[f].t[k]], mesh.verts[mesh.faces[f].v[k]]);
  // The file's +Y is the scene's +Z, its +Z the scene's -Y.
  EXPECT_EQ(Point3(1, 2, 3) * node->GetObjectTM(0), Point3(1, -3, 2));

  // (1, 1, 0) is mirrored to (-1, 1, 5), scaled to (-2, 1, 5), a quarter turn about Z gives
  // (-1, -2, 5), and the base adds 10.
  const float h = std::sqrt(0.5f);
  g.root["nodes"] = {{{"translation", {10, 0, 0}}, {"children", {1}}},
                     {{"rotation", {0, 0, h, h}}, {"scale", {2, 1, 1}}, {"children", {2}}},
                     {{"mesh", 0}, {"matrix", {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 5, 1}}}};
  ip_.SetMasterUnit(UNITS_FEET, 2);  // a scene unit is two feet
  ImportOptions options;
  options.scale = 3;
  options.up = ImportOptions::Up::Z;
  const auto nodes = Take(g, options).nodes;
  EXPECT_EQ(nodes.at(2)->GetParentNode(), nodes[1]);
  EXPECT_LT(Apart(Point3(1, 1, 0) * nodes[2]->GetObjectTM(0), Point3(9, -2, 5) * (3 / 0.6096f)),
            1e-4);
}

TEST_F(Import, PrimitivesBecomeMaterialIdsWithColoursAndPictures) {
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(1, 1, std::vector<std::uint8_t>{1, 2, 3}, png, error_)) << error_;
  Gltf g = Square();
  g.root["images"] = {{{"bufferView", g.Add(Raw(png), 5121, "SCALAR", png.size())}},
                      {{"uri", "gone%20away.png"}}};
  g.root["textures"] = {{{"source", 0}}, {{"source", 1}}};
  json& primitives = g.root["meshes"][0]["primitives"];
  const json square = primitives[0];
  const int textures[] = {1, 0, 9, 0, 0}, materials[] = {1, 0, 1, 2, 3, 4};
  for (const int t : textures)
    g.root["materials"].push_back(
        {{"pbrMetallicRoughness", {{"baseColorTexture", {{"index", t}}}}}});
  g.root["materials"][0]["pbrMetallicRoughness"]["baseColorFactor"] = {0.1, 0.5, 0.2, 1};
  for (size_t i = 0; i < 6; ++i) {
    primitives[i] = square;
    primitives[i]["material"] = materials[i];
  }
  primitives.push_back(square);
  primitives[6]["attributes"].erase("TEXCOORD_0");
  const auto result = Take(g);
  INode* node = result.nodes[0];
  const Mesh& mesh = MeshOf(node);
  const MtlID expected[] = {0, 1, 0, 2, 3, 4, 5};
  ASSERT_EQ(mesh.getNumFaces(), 14);
  for (int i = 0; i < 14; ++i) EXPECT_EQ(mesh.getFaceMtlIndex(i), expected[i / 2]) << i;
  EXPECT_EQ(MtlOfFace(node->GetMtl(), 5), nullptr);
  // Linear 0.1, 0.5, 0.2 as a screen shows them.
  const Color leaf = MtlOfFace(node->GetMtl(), 1)->GetDiffuse();
  EXPECT_LT(Apart({leaf.r, leaf.g, leaf.b}, {0.349190f, 0.735357f, 0.484529f}), 1e-5);
  ASSERT_TRUE(PictureOf(node) && PictureOf(node)->GetBytes());
  EXPECT_EQ(*PictureOf(node)->GetBytes(), png);
  EXPECT_EQ(PictureOf(node, 3), PictureOf(node));
  EXPECT_FALSE(PictureOf(node, 1) || PictureOf(node, 2));
  ASSERT_EQ(result.warnings.size(), 2u);
  EXPECT_NE(result.warnings[0].find("\"gone away.png\""), std::string::npos);
}

TEST_F(Import, CamerasAndStripsComeAlongAndWhatIsLeftOutIsWarnedOf) {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 0, -1, 0, 1, 0, 0, 1, -1, 0, 2, 0, 0}, "VEC3", 3);
  for (const int mode : {5, 1})  // a strip, and lines
    g.root["meshes"][0]["primitives"].push_back(
        {{"attributes", {{"POSITION", at}}}, {"mode", mode}});
  g.root["scenes"] = {{{"nodes", {0, 1}}}};
  g.root["nodes"] = {{{"mesh", 0}},
                     {{"camera", 0}, {"translation", {0, 2, 7}}, {"scale", {3, 3, 3}}}};
  g.root["cameras"] = {
      {{"type", "perspective"},
       {"perspective", {{"yfov", std::acos(-1.0) / 2}, {"aspectRatio", 2}, {"znear", 0.1}}}}};
  const auto result = Take(g);
  const Mesh& mesh = MeshOf(result.nodes.at(0));
  ASSERT_EQ(mesh.getNumFaces(), 3);
  for (const auto& [v, id, flags] : mesh.faces)  // all face +Z
    EXPECT_EQ(CrossProd(mesh.verts[v[1]] - mesh.verts[v[0]], mesh.verts[v[2]] - mesh.verts[v[0]]),
              Point3(0, 0, 1));
  // tan 45 degrees is 1, so half the width is 2. It looks along +Y.
  INode* eye = result.nodes.at(1);
  EXPECT_NEAR(dynamic_cast<CameraObject&>(*eye->GetObjectRef()).GetFOV(0), 2 * std::atan(2.0),
              1e-6);
  EXPECT_LT(Apart(ViewExp::FromCamera(eye, 200, 100).ViewToWorld(),
                  Matrix3({1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {0, -7, 2})),
            1e-6);
  EXPECT_NE(result.warnings.at(0).find("lines"), std::string::npos);
}

TEST_F(Import, BrokenFilesAreRefusedByName) {
  json nested = json::array(), chain = json::array();
  for (int i = 1; i <= 300; ++i) {
    nested = json::array({nested});
    chain.push_back({{"children", {i}}});
  }
  chain.push_back({{"mesh", 0}});
  const std::tuple<const char*, json, const char*> cases[] = {
      {"/nodes/0/scale", {1, 0, 1}, "no inverse"},
      {"/nodes/0/translation", {1, 1e39, 1}, "\"square\": its matrix"},
      {"/nodes/0/mesh", 3, "meshes[3] does not exist"},
      {"/nodes/0/children", {0}, "twice"},
      {"/nodes", chain, "nodes deep"},
      {"/accessors/0/count", 2147483647, "beyond its buffer"},
      {"/accessors/2/componentType", 5122, "unsigned whole numbers"},
      {"/extensionsRequired", {"KHR_draco_mesh_compression"}, "KHR_draco_mesh_compression"},
      {"/extras", nested, "nested too deep"}};
  for (const auto& [pointer, value, says] : cases) {
    Gltf g = Square();
    g.root[json::json_pointer(pointer)] = value;
    ExpectRefused(g.Glb(), says);
  }
  Gltf g = Square(), lost = Square();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::memcpy(lost.data.data() + 16, &nan, 4);
  ExpectRefused(lost.Glb(), "vertex 1 is not a finite number");
  const std::string whole = g.Glb();
  for (size_t size = 0; size < whole.size(); ++size) ExpectRefused(whole.substr(0, size), "");
  g.data[g.data.size() - 2] = 7;  // the last index
  ExpectRefused(g.Glb(), "face 1 uses vertex 7, but there are only 6");
  ExpectRefused("{\"asset\"\n:", "is not JSON");

  const std::string three = "o leaf\nv 0 0 0\nv 1 0 0\nv 0 1 0\n";
  ExpectRefused(three, "OBJ: ", true);
  ExpectRefused(three + "f 1 \\\n2 9\n", "vertex 9, but there are only 3", true);
  ExpectRefused(three + "f -4 -2 -1\n", "line 5: a face uses vertex -4", true);
}

TEST_F(Import, OneModelStandsTheSameWayFromAllFormats) {
  // Two models that others wrote in many formats, each with that format's own axes. The spider is
  // widest across, lowest upwards; the walker stands on the ground.
  const std::pair<Box3, std::vector<const char*>> models[] = {
      {Box3({-3.1149f, -4, -1.64933f}, {3.1149f, 4, 1.64933f}),
       {"3DS/testFormatDetection", "STL/Spider_ascii.stl", "STL/Spider_binary.stl",
        "COB/spider_4_3.cob", "XGL/Spider_ascii.zgl"}},
      {Box3({-0.459976f, -1.62224f, -0.000566f}, {0.459976f, 1.62224f, 1.51525f}),
       {"OBJ/WusonOBJ.obj", "PLY/Wuson.ply", "OFF/Wuson.off", "RAW/Wuson.raw", "MS3D/Wuson.ms3d",
        "B3D/WusonBlitz.b3d", "SMD/WusonSMD.smd"}}};
  for (const auto& [expected, files] : models)
    for (const char* file : files)
      EXPECT_LT(BoxesApart(BoxOfFile(kModels / file), expected), 2e-4) << file;
}

TEST_F(Import, UnitsOfTheFileAreBroughtToTheMasterUnit) {
  // The text of the FBX says Z up, 100 cm a unit, and 0.6 to each side, 1.2 upwards; the duck's
  // says one centimetre, the STL nothing.
  const fs::path duck = kModels / "Collada/duck.dae", stl = kModels / "STL/Spider_ascii.stl";
  const Box3 inMetres = BoxOfFile(duck), asIs = BoxOfFile(stl);
  ip_.SetMasterUnit(UNITS_CENTIMETERS, 1);
  const Box3 box = BoxOfFile(kModels / "FBX/embedded_ascii/box.FBX");
  EXPECT_LT(BoxesApart(box, {{-60, -60, 0}, {60, 60, 120}}), 1e-3);
  EXPECT_NEAR(BoxOfFile(duck).pmax.z, inMetres.pmax.z * 100, 1e-3);
  EXPECT_EQ(BoxOfFile(stl), asIs);
}

TEST_F(Import, QuadsHideTheirDiagonals) {
  const std::string off = "OFF\n5 2 0\n0 0 0\n2 0 0\n2 1 0\n0 1 0\n0 0 1\n4 0 1 2 3\n3 0 1 4\n";
  const EvaluatedMesh mesh = EvalMesh(Open(Write("p.off", off)).nodes.at(0), 0);
  int hidden = 0;  // once in each triangle of the quad
  for (const Face& face : mesh.mesh->faces)
    for (int k = 0; k < 3; ++k) {
      const Point3 ends = mesh.mesh->verts[face.v[k]] + mesh.mesh->verts[face.v[(k + 1) % 3]];
      if (!(face.flags >> k & 1)) hidden += ends == Point3(2, 1, 0) ? 1 : 100;
    }
  EXPECT_EQ(hidden, 2);
}

TEST_F(Import, InstancesShareTheirObjectAndHierarchiesTheirMatrices) {
  const auto row = Open(kModels / "AMF/test9.amf").nodes;
  ASSERT_GE(row.size(), 12u);
  for (INode* node : row)
    EXPECT_TRUE(!node->GetObjectRef() || node->GetObjectRef() == row.back()->GetObjectRef());

  // Y is up; each frame is 5 further along X.
  const std::string frame =
      " { FrameTransformMatrix { 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1;; }"
      "Mesh { 3; 0;0;0;,1;0;0;,0;1;0;; 1; 3;0,1,2;; }";
  const std::string tree = "Frame base" + frame + "Frame arm" + frame + "} Frame lamp {} }";
  const auto nodes = Open(Write("h.x", "xof 0303txt 0032\n" + tree)).nodes;
  ASSERT_EQ(nodes.size(), 2u);  // not the empty lamp
  EXPECT_EQ(nodes[1]->GetParentNode(), nodes[0]);
  EXPECT_LT(BoxesApart(BoxOf(World(nodes, 0)), {{5, 0, 0}, {11, 0, 1}}), 1e-5);
}

TEST_F(Import, ObjObjectsBecomeNodesAndPicturesAreFoundByTheirBaseName) {
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(1, 1, std::vector<std::uint8_t>{1, 2, 3}, png, error_)) << error_;
  const std::string leaf = Write("textures/Leaf.PNG", Raw(png));
  const std::string bark = Write("sub/Bark.png", Raw(png));
  Write("Bark.png", Raw(png));
  Write("other/Stone.png", Raw(png));
  Write("text.png", "this is no picture");
  Write("m.mtl",
        "newmtl a\nKd 0.9 0.1 0.2\nmap_Kd C:\\art\\LEAF.png\nnewmtl b\nmap_Kd sub\\Bark.png\n"
        "newmtl c\nmap_Kd stone.png\nnewmtl d\nmap_Kd text.png\n");
  const auto model = Open(Write("m.obj",
                                "mtllib sub/../m.mtl\nv 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\n"
                                "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
                                "o first\nusemtl a\nf 1/1 2/2 3/3 4/4\nusemtl b\nf 1/1 4/4 3/2\n"
                                "o second\nusemtl c\nf 1 2 3\nusemtl d\nf 1 2 4\n"));
  ASSERT_EQ(model.nodes.size(), 2u);
  INode *first = model.nodes[0], *second = model.nodes[1];
  EXPECT_EQ(MeshOf(first).getNumVerts(), 4);
  EXPECT_EQ(MeshOf(first).getFaceMtlIndex(2), 1);
  EXPECT_EQ(MtlOfFace(first->GetMtl(), 0)->GetDiffuse(), (Color{0.9f, 0.1f, 0.2f}));
  ASSERT_TRUE(PictureOf(first, 0) && PictureOf(first, 1));
  EXPECT_EQ(ToUtf8(PictureOf(first, 0)->GetMapName()), leaf);
  EXPECT_EQ(ToUtf8(PictureOf(first, 1)->GetMapName()), bark);
  EXPECT_EQ(second->GetName() + MtlOfFace(second->GetMtl(), 1)->GetName(), L"secondd");
  EXPECT_FALSE(PictureOf(second, 0) || PictureOf(second, 1));
  ASSERT_EQ(model.warnings.size(), 2u);
  const std::string says = "\"stone.png\" is not shown: there is no such file";
  EXPECT_NE(model.warnings[0].find(says), std::string::npos) << model.warnings[0];

  const auto box = Open(kModels / "FBX/embedded_ascii/box_embedded_texture_fragmented.fbx");
  const BitmapTex* held = PictureOf(box.nodes.at(0));
  EXPECT_TRUE(EvalMesh(box.nodes[0], 0).mesh->mapSupport(1));
  ASSERT_TRUE(held && held->GetBytes());
  EXPECT_EQ(std::memcmp(held->GetBytes()->data(), "\x89PNG", 4), 0);
}

TEST_F(Import, BonesMoveTheirVerticesOverTime) {
  // At one second (25 ticks) the root bone has turned a quarter about Z, the tip has moved by 4.
  const auto model =
      Open(Write("s.smd",
                 "version 1\nnodes\n0 \"root\" -1\n1 \"tip\" 0\nend\nskeleton\n"
                 "time 0\n0 0 0 0 0 0 0\n1 10 0 0 0 0 0\n"
                 "time 25\n0 0 0 0 0 0 1.5707963\n1 14 0 0 0 0 0\nend\ntriangles\nm.bmp\n"
                 "0 1 0 0 0 0 1 0 0\n1 11 0 0 0 0 1 1 0\n0 0 0 3 0 0 1 0 1\nend\n"));
  for (const double s : {0.0, 0.5, 1.0}) {
    const std::vector<Point3> at = World(model.nodes, TimeValue(s * kSecond));
    ASSERT_EQ(at.size(), 3u);
    const double a = s * std::acos(-1.0) / 2;
    const Point3 x(float(std::cos(a)), float(std::sin(a)), 0);
    EXPECT_LT(Apart(at[0], x), 1e-3) << s;
    EXPECT_LT(Apart(at[1], x * float(11 + 4 * s)), 1e-3) << s;
    EXPECT_LT(Apart(at[2], {0, 0, 3}), 1e-3) << s;
  }
}

TEST_F(Import, ShapesOfFramesFollowTheFile) {
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile((kModels / "MD2/sydney.md2").string(), bytes, error_)) << error_;
  const auto read = [&](size_t at, auto value) {
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
  };
  const int size = read(16, 0), vertices = read(24, 0), frames = read(40, 0), first = read(56, 0);
  ASSERT_GT(frames, 50);
  const auto model = Open(kModels / "MD2/sydney.md2");
  for (const int k : {0, 1, 47, frames - 1}) {
    // A frame is scale, offset, a name of 16 letters, then 4 bytes a vertex: its place in steps of
    // the scale, and a normal.
    const auto at = size_t(first + k * size);
    Box3 expected;
    for (int v = 0; v < vertices; ++v) {
      Point3 p;
      for (size_t i = 0; i < 3; ++i)
        p[int(i)] = read(at + 12 + 4 * i, 0.0f) +
                    read(at + 4 * i, 0.0f) * float(bytes[at + 40 + 4 * size_t(v) + i]);
      expected += p;
    }
    const Box3 box = BoxOf(World(model.nodes, TimeValue(k) * kSecond / 10));
    const Point3 found = box.pmax - box.pmin, wanted = expected.pmax - expected.pmin;
    EXPECT_LT(Apart(found, wanted), 1e-2) << k;
    EXPECT_NEAR(box.pmax.z, expected.pmax.z, 1e-2) << k;
  }
}

}  // namespace
