#include "host/io/import.h"

#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/io/file.h"
#include "host/io/png.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/tempfolder.h"

namespace {

using host::ImportOptions;
using host::ImportResult;
using nlohmann::json;
namespace fs = std::filesystem;

const fs::path kModels = "/usr/share/assimp/models";
constexpr TimeValue kSecond = 4800;

std::string Raw(const auto& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(values[0])};
}

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
    std::string text = root.dump(), binary = data;
    text.resize((text.size() + 3) / 4 * 4, ' ');
    binary.resize((binary.size() + 3) / 4 * 4);
    const auto word = [](size_t n) { return Raw(std::vector<std::uint32_t>{std::uint32_t(n)}); };
    return "glTF" + word(2) + word(28 + text.size() + binary.size()) + word(text.size()) + "JSON" +
           text + word(binary.size()) + std::string("BIN\0", 4) + binary;
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

  std::string Write(const std::string& name, const std::string& text) {
    fs::create_directories(fs::path(Path(name)).parent_path());
    return Put(name, text);
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
  EXPECT_LT(BoxesApart(BoxOf(WorldVertices(nodes, 0)), {{5, 0, 0}, {11, 0, 1}}), 1e-5);
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
    const Box3 box = BoxOf(WorldVertices(model.nodes, TimeValue(k) * kSecond / 10));
    const Point3 found = box.pmax - box.pmin, wanted = expected.pmax - expected.pmin;
    EXPECT_LT(Apart(found, wanted), 1e-2) << k;
    EXPECT_NEAR(box.pmax.z, expected.pmax.z, 1e-2) << k;
  }
}

TEST_F(Import, TracksOfATopNodeAreBroughtUpright) {
  Gltf g = Square();
  g.root["nodes"][0]["scale"] = {1, -2, 1};  // stands still; its sign is no other axis's
  g.root["nodes"][0]["children"] = {1};
  g.root["nodes"].push_back({{"mesh", 0}, {"translation", {0, 0, 1}}});
  const float h = std::sqrt(0.5f);
  // A quarter about (2, 3, 6) / 7.
  Animate(g, 0, "rotation", {0, 0, 0, 1, h * 2 / 7, h * 3 / 7, h * 6 / 7, h}, "VEC4");
  Animate(g, 0, "translation", {0, 0, 0, 0, 0, 0, 0, 9, 0, 0, 9, 0, 4, 8, 0, 0, 0, 0}, "VEC3",
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

  // By hand, in the file: (x, y, z) is scaled to (x, -2y, z), turned by `a` (Rodrigues' formula),
  // and moved by the spline. Then (x, y, z) stands at (x, -z, y) here, in centimetres.
  for (const double s : {0.0, 0.5, 0.75, 1.0}) {
    const auto t = TimeValue(4800 * s);
    const double a = s * std::acos(-1.0) / 2, s2 = s * s, s3 = s2 * s;
    const double px = 4 * (3 * s2 - 2 * s3);
    const double py = 9 * (s3 - 2 * s2 + s) + 8 * (3 * s2 - 2 * s3) + 9 * (s3 - s2);
    const auto place = [&](double x, double y, double z) {
      const double v[3] = {x, -2 * y, z}, k[3] = {2 / 7.0, 3 / 7.0, 6 / 7.0};
      const double along = (k[0] * v[0] + k[1] * v[1] + k[2] * v[2]) * (1 - std::cos(a));
      double f[3];
      for (int i = 0; i < 3; ++i) {
        const int j = (i + 1) % 3, l = (i + 2) % 3;
        f[i] = v[i] * std::cos(a) + (k[j] * v[l] - k[l] * v[j]) * std::sin(a) + k[i] * along;
      }
      return Point3(float(100 * (f[0] + px)), float(-100 * f[2]), float(100 * (f[1] + py)));
    };
    EXPECT_LT(Apart(Point3(1, 1, 0.5f) * nodes[0]->GetObjectTM(t), place(1, 1, 0.5)), 2e-4) << s;
    const double wide = s < 1 ? 1 : 3;
    EXPECT_LT(Apart(Point3(1, 1, 0) * nodes[1]->GetObjectTM(t), place(wide, 1, 1)), 2e-4) << s;
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
  // (1, 1, 0): joint 0 keeps it, joint 1 turns (1, 0, 0) to (0, 1, 0) about its place.
  EXPECT_LT(Apart(World(nodes[0], 2, 0), {1100, 0, 100}), 1e-3);
  EXPECT_LT(Apart(World(nodes[0], 2, 4800), {1000 + 100 * 0.25f, 0, 100 * (0.25f + 0.75f * 2)}),
            1e-3);
  const double a = std::acos(-1.0) / 4;
  EXPECT_LT(Apart(World(nodes[0], 2, 2400), {float(1000 + 100 * (0.25 + 0.75 * std::cos(a))), 0,
                                             float(100 * (1 + 0.75 * std::sin(a)))}),
            1e-3);
}

TEST_F(Import, BrokenMotionIsRefusedByName) {
  const struct {
    const char *pointer, *value, *says;
  } cases[] = {
      {"/animations/0/channels/0/target/node", "9", "channels[0]: nodes[9] does not exist"},
      {"/animations/0/channels/0/sampler", "3", "samplers[3] does not exist"},
      {"/animations/0/channels/0", R"({"sampler": 0})", "channels[0].target is missing"},
      {"/animations/0/samplers/0/interpolation", R"("WAVE")", "\"WAVE\" is unknown"},
      {"/animations/0/samplers/0/output", "0", "not a list of 4 numbers"},
      {"/animations/0/samplers/0/input", "99", "accessors[99] does not exist"},
      {"/animations/0/samplers/0/interpolation", R"("CUBICSPLINE")", "8 numbers, not 24"},
      {"/nodes/0/skin", "1", "skins[1] does not exist"},
      {"/nodes/0/weights", "[1]", "1 numbers, not 0"},
      {"/skins/0/joints", "[3]", "hangs on joint 1, but its skin has only 1"},
      {"/skins/0/joints", "[3, 8]", "joint nodes[8] is not in the scene"},
      {"/skins/0/joints", "[3, 2, 1]", "3 joints, but 2 matrices"},
      {"/meshes/0/primitives/0/targets", R"([{"POSITION": 1}])", "morph target 0"},
      {"/meshes/0/weights", "[1, 2]", "2 numbers, not 0"},
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
  // Times that fall, and one that isn't finite.
  for (const float second : {-1.0f, std::nanf("")}) {
    Gltf g = Skinned();
    const size_t input = g.root["animations"][0]["samplers"][0]["input"];
    const json& accessor = g.root["accessors"][input];
    const size_t at = g.root["bufferViews"][size_t(accessor["bufferView"])]["byteOffset"];
    std::memcpy(g.data.data() + at + 4, &second, 4);
    ExpectRefused(g.Glb(), "rotation: the time of key 1");
  }
}

}  // namespace
