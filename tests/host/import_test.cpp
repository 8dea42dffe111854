#include "host/import/import.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>

#include "host/exchange/planstream.h"
#include "host/files/modelfiles.h"
#include "host/files/png.h"
#include "host/host.h"
#include "host/import/modelreader.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/sealed.h"
#include "tests/host/tempfolder.h"

namespace {

using host::ImportOptions;
using host::ImportResult;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kModels = "/usr/share/assimp/models";
constexpr TimeValue kSecond = 4800;

/// A glTF under construction; each list of numbers becomes a view and an accessor of its own.
struct Gltf {
  nlohmann::json root = {
      {"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", {0}}}}}};
  std::string data;

  int Add(const std::string& bytes, int componentType, const char* type, size_t count) {
    const size_t at = (data.size() + 3) / 4 * 4;
    data.resize(at);
    data += bytes;
    root["bufferViews"].push_back(
        {{"buffer", 0}, {"byteOffset", at}, {"byteLength", bytes.size()}});
    root["accessors"].push_back({{"bufferView", root["bufferViews"].size() - 1},
                                 {"componentType", componentType},
                                 {"type", type},
                                 {"count", count}});
    return int(root["accessors"].size()) - 1;
  }
  int Floats(const std::vector<float>& v, const char* type, size_t components) {
    return Add(Raw(v), 5126, type, v.size() / components);
  }
  std::string Glb() {
    root["buffers"] = {{{"byteLength", data.size()}}};
    std::string binary = data;
    binary.resize((binary.size() + 3) / 4 * 4);
    const std::vector<std::uint32_t> size = {std::uint32_t(binary.size())};
    return GlbOf(root.dump(), Raw(size) + std::string("BIN\0", 4) + binary);
  }
};

/// A unit square in the file's XY plane as two triangles with corners of their own: corners 0 and
/// 3, and 2 and 4, are of one position.
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

/// Adds a channel; keys a second apart, the first at 0.
void Animate(Gltf& g, int node, const char* path, const std::vector<float>& values,
             const char* type, const char* shape = "LINEAR") {
  const size_t components = *type == 'S' ? 1 : size_t(type[3] - '0');
  const bool cubic = std::string(shape) == "CUBICSPLINE";
  const bool weights = std::string(path) == "weights";
  const size_t keys = weights ? 2 : values.size() / components / (cubic ? 3 : 1);
  std::vector<float> times;
  for (size_t i = 0; i < keys; ++i) times.push_back(float(i));
  json& animation = g.root["animations"][0];
  animation["samplers"].push_back({{"input", g.Floats(times, "SCALAR", 1)},
                                   {"output", g.Floats(values, type, components)},
                                   {"interpolation", shape}});
  animation["channels"].push_back({{"sampler", animation["samplers"].size() - 1},
                                   {"target", {{"node", node}, {"path", path}}}});
}

class Import : public TempFolder {
 protected:
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

  /// A vertex of the node's mesh, in the world.
  static Point3 World(INode* node, size_t vertex, TimeValue t) {
    return WorldVertices({node}, t).at(vertex);
  }
  static Box3 BoxOf(const std::vector<Point3>& points) {
    Box3 box;
    for (const Point3& p : points) box += p;
    return box;
  }
  Box3 BoxOfFile(const fs::path& path) { return BoxOf(WorldVertices(Open(path).nodes, 0)); }
  /// A picture of one pixel.
  std::vector<std::byte> Png() {
    std::vector<std::byte> png;
    EXPECT_TRUE(host::EncodePng(1, 1, std::vector<std::uint8_t>{1, 2, 3}, png, error_)) << error_;
    return png;
  }
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
  const auto nodes = Take(g, {.up = ImportOptions::Up::Z, .scale = 3}).nodes;
  EXPECT_EQ(nodes.at(2)->GetParentNode(), nodes[1]);
  EXPECT_LT(Apart(Point3(1, 1, 0) * nodes[2]->GetObjectTM(0), Point3(9, -2, 5) * (3 / 0.6096f)),
            1e-4);
}

TEST_F(Import, PrimitivesBecomeMaterialIdsWithColoursAndPictures) {
  const std::vector<std::byte> png = Png();
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
  const EvaluatedMesh mesh = EvalMesh(Open(Put("p.off", off)).nodes.at(0), 0);
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
  const auto nodes = Open(Put("h.x", "xof 0303txt 0032\n" + tree)).nodes;
  ASSERT_EQ(nodes.size(), 2u);  // not the empty lamp
  EXPECT_EQ(nodes[1]->GetParentNode(), nodes[0]);
  EXPECT_LT(BoxesApart(BoxOf(WorldVertices(nodes, 0)), {{5, 0, 0}, {11, 0, 1}}), 1e-5);
}

TEST_F(Import, ObjObjectsBecomeNodesAndPicturesAreFoundByTheirBaseName) {
  const std::string png = Raw(Png());
  const std::string leaf = Put("textures/Leaf.PNG", png), bark = Put("sub/Bark.png", png);
  Put("Bark.png", png), Put("other/Stone.png", png);
  Put("text.png", "this is no picture");
  Put("m.mtl",
      "newmtl a\nKd 0.9 0.1 0.2\nmap_Kd C:\\art\\LEAF.png\nnewmtl b\nmap_Kd sub\\Bark.png\n"
      "newmtl c\nmap_Kd stone.png\nnewmtl d\nmap_Kd text.png\n");
  const auto model = Open(Put("m.obj",
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
      Open(Put("s.smd",
               "version 1\nnodes\n0 \"root\" -1\n1 \"tip\" 0\nend\nskeleton\n"
               "time 0\n0 0 0 0 0 0 0\n1 10 0 0 0 0 0\n"
               "time 25\n0 0 0 0 0 0 1.5707963\n1 14 0 0 0 0 0\nend\ntriangles\nm.bmp\n"
               "0 1 0 0 0 0 1 0 0\n1 11 0 0 0 0 1 1 0\n0 0 0 3 0 0 1 0 1\nend\n"));
  for (const double s : {0.0, 0.5, 1.0}) {
    const std::vector<Point3> at = WorldVertices(model.nodes, TimeValue(s * kSecond));
    ASSERT_EQ(at.size(), 3u);
    const double a = s * std::acos(-1.0) / 2;
    const Point3 x(float(std::cos(a)), float(std::sin(a)), 0);
    EXPECT_LT(Apart(at[0], x), 1e-3) << s;
    EXPECT_LT(Apart(at[1], x * float(11 + 4 * s)), 1e-3) << s;
    EXPECT_LT(Apart(at[2], {0, 0, 3}), 1e-3) << s;
  }
}

TEST_F(Import, ShapesOfFramesFollowTheFile) {
  const std::string bytes = Content(kModels / "MD2/sydney.md2");
  const auto read = [&]<class T>(size_t at, T value) {
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  };
  const int size = read(16, 0), vertices = read(24, 0), frames = read(40, 0), first = read(56, 0);
  ASSERT_GT(frames, 50);
  const auto model = Open(kModels / "MD2/sydney.md2");
  for (const int k : {0, 1, 47, frames - 1}) {
    // A frame is scale, offset, a name of 16 letters, then 4 bytes a vertex: its place in steps of
    // the scale, and a normal.
    const auto at = size_t(first + k * size);
    const Point3 scale = read(at, Point3()), offset = read(at + 12, Point3());
    Box3 wanted;
    for (int v = 0; v < vertices; ++v) {
      const auto steps = read(at + 40 + 4 * size_t(v), std::array<std::uint8_t, 3>());
      wanted += offset + scale * Point3(steps[0], steps[1], steps[2]);
    }
    const Box3 box = BoxOf(WorldVertices(model.nodes, TimeValue(k) * kSecond / 10));
    EXPECT_LT(Apart(box.pmax - box.pmin, wanted.pmax - wanted.pmin), 1e-2) << k;
    EXPECT_NEAR(box.pmax.z, wanted.pmax.z, 1e-2) << k;
  }
}

TEST_F(Import, TracksOfATopNodeAreBroughtUpright) {
  Gltf g = Square();
  g.root["nodes"][0]["scale"] = {1, -2, 1};  // stands still; its sign is no other axis's
  g.root["nodes"][0]["children"] = {1};
  g.root["nodes"].push_back({{"mesh", 0}, {"translation", {0, 0, 1}}});
  Animate(g, 0, "rotation", {0, 0, 0, 1, 0.5, 0.5, 0.5, 0.5}, "VEC4");
  Animate(g, 0, "translation", {0, 0, 0, 0, 0, 0, 0, 9, 0, 0, -3, 0, 4, 8, 0, 0, 0, 0}, "VEC3",
          "CUBICSPLINE");
  Animate(g, 1, "scale", {1, 1, 1, 3, 1, 1, 5, 5, 5}, "VEC3", "STEP");
  g.root["animations"].push_back({{"name", "wave"}});
  ip_.SetMasterUnit(UNITS_CENTIMETERS, 1);
  ip_.SetAnimRange({0, 5000});
  const auto [nodes, warnings] = Take(g);
  ASSERT_EQ(nodes.size(), 2u);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("wave"), std::string::npos);
  EXPECT_EQ(ip_.GetAnimRange(), Interval(0, 9600));

  // By hand, in the file: (x, y, z) is scaled to (x, -2y, z), turned about (1, 1, 1) and moved by
  // the spline. A turn by 60 degrees makes (2x - y + 2z, 2x + 2y - z, -x + 2y + 2z) / 3 of it, one
  // by 120 (z, x, y). (x, y, z) stands at (x, -z, y) here, in centimetres.
  const struct {
    TimeValue t;
    Point3 parent, child;
  } cases[] = {{0, {1, -2, 0.5f}, {1, -2, 1}},
               {2400, {2 + 5 / 3.0f, 5.5f - 2.5f / 3, -4 / 3.0f}, {4, 4.5f, -1}},
               {4800, {4.5f, 9, -2}, {5, 11, -2}}};
  for (const auto& [t, parent, child] : cases) {
    const auto upright = [](Point3 p) { return Point3(p.x, -p.z, p.y) * 100; };
    EXPECT_LT(Apart(Point3(1, 1, 0.5f) * nodes[0]->GetObjectTM(t), upright(parent)), 2e-4) << t;
    EXPECT_LT(Apart(Point3(1, 1, 0) * nodes[1]->GetObjectTM(t), upright(child)), 2e-4) << t;
  }
}

TEST_F(Import, CornersThatMorphApartStayApart) {
  Gltf g = Square();
  // Corner 3 leaves corner 0; corner 4 goes along with corner 2. By sparse elements over nothing.
  const int places = g.Add(Raw(std::vector<std::uint8_t>{2, 3, 4}), 5121, "SCALAR", 3);
  const int moved = g.Floats({0, 0, 1, 0, 0, 2, 0, 0, 1}, "VEC3", 3);
  const auto view = [&](int a) { return g.root["accessors"][size_t(a)]["bufferView"]; };
  json sparse = {{"componentType", 5126}, {"type", "VEC3"}, {"count", 6}};
  sparse["sparse"] = {{"count", 3},
                      {"indices", {{"bufferView", view(places)}, {"componentType", 5121}}},
                      {"values", {{"bufferView", view(moved)}}}};
  g.root["accessors"].push_back(sparse);
  json& primitive = g.root["meshes"][0]["primitives"][0];
  primitive["targets"] = {json::object(), {{"POSITION", g.root["accessors"].size() - 1}}};
  g.root["meshes"][0]["weights"] = {0, 0.5};
  g.root["scenes"][0]["nodes"] = {0, 1, 2};
  g.root["nodes"].push_back({{"mesh", 0}});
  g.root["nodes"].push_back({{"mesh", 0}, {"weights", {9, 3}}});
  Animate(g, 0, "weights", {0, 0, 0, 4}, "SCALAR");
  const auto [nodes, warnings] = Take(g);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(warnings.size(), 0u);
  const EvaluatedMesh mesh = EvalMesh(nodes[0], 2400);
  EXPECT_EQ(mesh.mesh->getNumVerts(), 5);  // 6 corners, one pair goes together
  EXPECT_EQ(mesh.mesh->FirstFault(), "");
  // Weight 2 at half a second; the file's +Z is -Y.
  EXPECT_LT(Apart(World(nodes[0], 2, 2400), {1, -2, 1}), 1e-6);
  EXPECT_LT(Apart(World(nodes[0], 3, 2400), {0, -4, 0}), 1e-6);
  EXPECT_LT(Apart(World(nodes[1], 3, 2400), {0, -1, 0}), 1e-6);
  EXPECT_LT(Apart(World(nodes[2], 3, 2400), {0, -6, 0}), 1e-6);
}

/// The square on two joints: the lower edge on joint 0, the upper one on both. Joint 1 sits at
/// (0, 1, 0) and turns a quarter about Z in a second; both lie under a node that is moved.
Gltf Skinned() {
  Gltf g = Square();
  json& attributes = g.root["meshes"][0]["primitives"][0]["attributes"];
  const std::vector<std::uint8_t> joints = {0, 7, 7, 7, 0, 7, 7, 7, 0, 1, 7, 7,
                                            0, 7, 7, 7, 0, 1, 7, 7, 0, 1, 7, 7};
  attributes["JOINTS_0"] = g.Add(Raw(joints), 5121, "VEC4", 6);
  const std::vector<std::uint16_t> weights = {65535, 0, 0, 0, 65535, 0,   0, 0, 100, 300, 0, 0,
                                              65535, 0, 0, 0, 100,   300, 0, 0, 100, 300, 0, 0};
  attributes["WEIGHTS_0"] = g.Add(Raw(weights), 5123, "VEC4", 6);
  g.root["accessors"].back()["normalized"] = true;
  std::vector<float> bind = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  bind.insert(bind.end(), bind.begin(), bind.end());
  bind[29] = -1;
  g.root["skins"] = {{{"joints", {3, 2}}, {"inverseBindMatrices", g.Floats(bind, "MAT4", 16)}}};
  g.root["scenes"][0]["nodes"] = {0, 1};
  g.root["nodes"] = {{{"name", "square"}, {"mesh", 0}, {"skin", 0}, {"translation", {50, 60, 70}}},
                     {{"translation", {10, 0, 0}}, {"children", {3}}},
                     {{"translation", {0, 1, 0}}},
                     {{"name", "root"}, {"children", {2}}}};
  const float h = std::sqrt(0.5f);
  Animate(g, 2, "rotation", {0, 0, 0, 1, 0, 0, h, h}, "VEC4");
  return g;
}

TEST_F(Import, ASkinStandsWhereItsJointsAre) {
  Gltf g = Skinned();
  ip_.SetMasterUnit(UNITS_CENTIMETERS, 1);
  const std::vector<INode*> nodes = Take(g).nodes;
  ASSERT_EQ(nodes.size(), 4u);
  EXPECT_EQ(EvalMesh(nodes[0], 0).mesh->getNumVerts(), 4);
  EXPECT_LT(Apart(World(nodes[0], 1, 4800), {1100, 0, 0}), 1e-3);
  // (1, 1, 0): joint 0 keeps it, joint 1 turns (1, 0, 0) about its place, up to (0, 1, 0).
  for (const double s : {0.0, 0.5, 1.0}) {
    const double a = s * std::acos(-1.0) / 2;
    const Point3 wanted(float(1025 + 75 * std::cos(a)), 0, float(100 + 75 * std::sin(a)));
    EXPECT_LT(Apart(World(nodes[0], 2, TimeValue(s * kSecond)), wanted), 1e-3) << s;
  }
}

TEST_F(Import, BrokenFilesAreRefusedByName) {
  std::string chain = "[";
  for (int i = 1; i <= 300; ++i) chain += "{\"children\": [" + std::to_string(i) + "]},";
  chain += R"({"mesh": 0}])";
  const std::string nested = std::string(300, '[') + std::string(300, ']');
  const struct {
    const char* pointer;
    std::string value;
    const char* says;
  } cases[] = {
      {"/nodes/0/scale", "[1, 0, 1]", "no inverse"},
      {"/nodes/0/translation", "[1, 1e39, 1]", "\"square\": its matrix"},
      {"/nodes/0/mesh", "3", "meshes[3] does not exist"},
      {"/nodes/0/children", "[0]", "twice"},
      {"/nodes", chain, "nodes deep"},
      {"/accessors/0/count", "2147483647", "beyond its buffer"},
      {"/accessors/2/componentType", "5122", "unsigned whole numbers"},
      {"/extensionsRequired", R"(["KHR_draco_mesh_compression"])", "KHR_draco_mesh_compression"},
      {"/extras", nested, "nested too deep"},
      {"/animations/0/channels/0/target/node", "9", "channels[0]: nodes[9] does not exist"},
      {"/animations/0/channels/0/sampler", "3", "samplers[3] does not exist"},
      {"/animations/0/channels/0", R"({"sampler": 0})", "channels[0].target is missing"},
      {"/animations/0/samplers/0/interpolation", R"("WAVE")", "\"WAVE\" is unknown"},
      {"/animations/0/samplers/0/output", "0", "not a list of 4 numbers"},
      {"/animations/0/samplers/0/interpolation", R"("CUBICSPLINE")", "8 numbers, not 24"},
      {"/nodes/0/skin", "1", "skins[1] does not exist"},
      {"/nodes/0/weights", "[1]", "1 numbers, not 0"},
      {"/skins/0/joints", "[3]", "hangs on joint 1, but its skin has only 1"},
      {"/skins/0/joints", "[3, 8]", "joint nodes[8] is not in the scene"},
      {"/skins/0/joints", "[3, 2, 1]", "3 joints, but 2 matrices"},
      {"/meshes/0/primitives/0/targets", R"([{"POSITION": 1}])", "morph target 0"},
      {"/accessors/0/sparse", R"({"count": 1})", "accessors[0].sparse.indices is missing"},
      {"/accessors/0/sparse",
       R"({"count": 1, "indices": {"bufferView": 3, "componentType": 5121, "byteOffset": 1},
           "values": {"bufferView": 0}})",
       "sparse writes element 7, but there are only 6"}};
  for (const auto& [pointer, value, says] : cases) {
    Gltf g = Skinned();
    g.root[json::json_pointer(pointer)] = json::parse(value);
    ExpectRefused(g.Glb(), says);
  }
  const auto refuse = [&](size_t accessor, size_t byte, const auto& value, const char* says) {
    Gltf g = Skinned();
    const json& view = g.root["bufferViews"][size_t(g.root["accessors"][accessor]["bufferView"])];
    std::memcpy(&g.data[size_t(view["byteOffset"]) + byte], &value, sizeof value);
    ExpectRefused(g.Glb(), says);
  };
  const size_t times = Skinned().root["animations"][0]["samplers"][0]["input"];
  for (const float second : {-1.0f, std::nanf("")})  // times that fall, and one that isn't finite
    refuse(times, 4, second, "rotation: the time of key 1");
  refuse(0, 16, std::nanf(""), "vertex 1 is not a finite number");
  refuse(2, 10, std::uint16_t(7), "face 1 uses vertex 7, but there are only 6");
  const std::string whole = Square().Glb();
  for (size_t size = 0; size < whole.size(); ++size) ExpectRefused(whole.substr(0, size), "");
  ExpectRefused("{\"asset\"\n:", "is not JSON");

  const std::string three = "o leaf\nv 0 0 0\nv 1 0 0\nv 0 1 0\n";
  ExpectRefused(three, "OBJ: ", true);
  ExpectRefused(three + "f 1 \\\n2 9\n", "vertex 9, but there are only 3", true);
  ExpectRefused(three + "f -4 -2 -1\n", "line 5: a face uses vertex -4", true);
}

using host::ImportPlan;

const fs::path kOpen = "/proc/self/fd";

/// The error, in one line, with nothing imported; or nothing, and a sound scene with faces.
std::string ReadAlone(const fs::path& path, const ImportOptions& options = {}) {
  host::Host host;
  std::string error;
  const auto result = host::ImportModel(host.Services(), path.string(), options, error);
  EXPECT_EQ(result.has_value(), error.empty()) << path << error;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  EXPECT_EQ(host.GetScene().AllNodes().empty(), !result) << path;
  size_t faces = 0;
  for (INode* node : host.GetScene().AllNodes())
    if (const EvaluatedMesh shown = EvalMesh(node, 0)) {
      EXPECT_EQ(shown.mesh->FirstFault(), "") << path;
      faces += shown.mesh->faces.size();
    }
  EXPECT_EQ(faces > 0, result.has_value()) << path;
  return error;
}

TEST(ModelReader, AllTestModelsAreReadOrRefusedWithTheKnownReason) {
  // Files that can't be read, checked by hand, with the library's own reason or ours.
  std::map<std::string, std::string> refused;
  std::ifstream list(SOWFIELD_REFUSED_MODELS);
  for (std::string line; std::getline(list, line);)
    if (const size_t tab = line.find('\t'); tab != line.npos)
      refused[line.substr(0, tab)] = line.substr(tab + 1);
  size_t models = 0;
  for (const auto& entry : fs::recursive_directory_iterator(kModels)) {
    const std::string path = entry.path().string();
    if (!entry.is_regular_file() || !host::IsModelExtension(host::ExtensionOf(path))) continue;
    ++models;
    const std::string error = ReadAlone(path);
    const auto known = refused.extract(entry.path().lexically_relative(kModels).string());
    EXPECT_EQ(error.substr(0, known ? path.size() + 2 + known.mapped().size() : error.npos),
              known ? path + ": " + known.mapped() : "");
  }
  EXPECT_GT(models, 350u);
  EXPECT_TRUE(refused.empty());
}

TEST(ModelReader, WhatEndsTheChildIsToldAndLeavesNothingBehind) {
  // The library goes down this hierarchy by calls, until its stack is used up.
  const fs::path deep =
      fs::path(testing::TempDir()) / ("modelreader_test_" + std::to_string(getpid()) + ".dae");
  std::string nodes;
  for (int i = 0; i < 600000; ++i) nodes += i < 300000 ? "<node>" : "</node>";
  std::ofstream(deep) << "<COLLADA version='1.4.1'><library_visual_scenes><visual_scene id='s'>"
                      << nodes << "</visual_scene></library_visual_scenes></COLLADA>";
  const fs::path suzanne = kModels / "BLEND/SuzanneSubdiv_252.blend";
  constexpr size_t kLeast = ImportOptions::kLeastBytes;
  const std::tuple<fs::path, ImportOptions, const char*> cases[] = {
    {deep, {}, ".dae: cannot be read: the reader "},
    {suzanne, {.mostSeconds = 0.001}, "in 0.001 s"},
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    {suzanne, {.mostBytes = kLeast}, "more memory than 64 MiB"},
#endif
    {suzanne, {.mostBytes = kLeast - 1}, "at least 67108864"},
    {suzanne, {.mostSeconds = 0}, "above 0"}
  };
  const auto descriptors = [] { return std::distance(fs::directory_iterator(kOpen), {}); };
  const auto before = descriptors();
  for (const auto& [path, options, says] : cases) {
    const std::string error = ReadAlone(path, options);
    EXPECT_NE(error.find(says), std::string::npos) << error << "\nlacks " << says;
  }
  EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) == -1 && errno == ECHILD) << "a child is left";
  EXPECT_EQ(descriptors(), before);
  fs::remove(deep);
}

ImportPlan SmallPlan() {
  ImportPlan plan;
  plan.images = {{"a.png", "", {std::byte{1}}}};
  plan.materials = {{"red", {1, 0.5f, 0}, 0}};
  host::PlannedMesh mesh;
  mesh.mesh.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  mesh.mesh.faces = {Face{{0, 1, 2}, 1, EDGE_ALL}};
  mesh.mesh.maps[1] = {{{0, 0, 0}}, {TVFace{{0, 0, 0}}}, true};
  mesh.slots = {0};
  mesh.targets = {{{0, 0, 1}, {0, 0, 2}, {0, 0, 3}}};
  mesh.skin = host::PlannedSkin{{0}, {Matrix3()}, std::vector<host::VertexBones>(3)};
  plan.meshes.push_back(mesh);
  plan.nodes.resize(2);
  plan.nodes[1].parent = 0;
  plan.nodes[1].mesh = 0;
  plan.nodes[1].position = {host::KeyShape::Step, {0, 1}, {0, 0, 0, 1, 2, 3}};
  plan.warnings = {"one"};
  return plan;
}

bool IsRefused(std::span<const std::byte> bytes) try {
  host::DecodePlan(bytes);
  return false;
} catch (const host::ImportFault&) {
  return true;
}

TEST(PlanStream, APlanComesBackWholeOrNotAtAll) {
  std::vector<std::byte> bytes = host::EncodePlan(SmallPlan());
  EXPECT_EQ(host::EncodePlan(host::DecodePlan(bytes)), bytes);
  for (size_t size = 0; size < bytes.size(); ++size)
    EXPECT_TRUE(IsRefused(std::span(bytes).first(size))) << size;
  // Any byte may be wrong: no count asks for more than there is, and what is taken is sound.
  for (size_t i = 0; i < bytes.size(); ++i)
    for (const int flip : {0x01, 0x80, 0xFF}) {
      std::vector<std::byte> wrong = bytes;
      wrong[i] ^= std::byte(flip);
      EXPECT_TRUE(IsRefused(wrong) || host::EncodePlan(host::DecodePlan(wrong)) == wrong) << i;
    }
  bytes.push_back({});
  EXPECT_TRUE(IsRefused(bytes));
  // Indices must name what is there.
  void (*const faults[])(host::PlannedMesh&, ImportPlan&) = {
      [](auto&, auto& plan) { plan.materials[0].image = 1; },
      [](auto& mesh, auto&) { mesh.slots[0] = 1; },
      [](auto&, auto& plan) { plan.nodes[0].parent = 0; },
      [](auto&, auto& plan) { plan.nodes[1].mesh = -2; },
      [](auto& mesh, auto&) { mesh.mesh.faces[0].v[1] = 3; }};
  for (const auto& fault : faults) {
    ImportPlan plan = SmallPlan();
    fault(plan.meshes[0], plan);
    EXPECT_TRUE(IsRefused(host::EncodePlan(plan))) << &fault - faults;
  }
}

}  // namespace
