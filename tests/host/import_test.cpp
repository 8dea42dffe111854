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
#include "host/math/wstr.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"

namespace {

using nlohmann::json;
using host::ImportOptions;
using host::ImportResult;

std::span<const std::byte> Bytes(const std::string& text) {
  return std::as_bytes(std::span(text.data(), text.size()));
}

template <class T>
std::string Raw(const std::vector<T>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(T)};
}

std::string Base64(const std::string& bytes) {
  static const char* digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    unsigned held = 0;
    for (size_t k = 0; k < 3; ++k)
      held = held << 8 | (i + k < bytes.size() ? (unsigned char)bytes[i + k] : 0u);
    for (size_t k = 0; k < 4; ++k)
      out += i + k > bytes.size() ? '=' : digits[held >> (18 - 6 * k) & 63];
  }
  return out;
}

/// A glTF under construction; each list of numbers becomes a view and an accessor of its own.
struct Gltf {
  json root = {{"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", {0}}}}}};
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
  int Shorts(const std::vector<std::uint16_t>& v) { return Add(Raw(v), 5123, "SCALAR", v.size()); }

  std::string Json() {
    root["buffers"] = {{{"byteLength", data.size()},
                        {"uri", "data:application/octet-stream;base64," + Base64(data)}}};
    return root.dump();
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

/// A unit square in the file's XY plane as two triangles, each with corners of its own.
Gltf Square() {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0}, "VEC3", 3);
  const int uv = g.Floats({0, 1, 1, 1, 1, 0, 0, 1, 1, 0, 0, 0}, "VEC2", 2);
  const int order = g.Shorts({0, 1, 2, 3, 4, 5});
  g.root["meshes"] = {
      {{"primitives",
        {{{"attributes", {{"POSITION", at}, {"TEXCOORD_0", uv}}}, {"indices", order}}}}}};
  g.root["nodes"] = {{{"name", "square"}, {"mesh", 0}}};
  return g;
}

Mesh& MeshOfNode(INode* node) { return static_cast<TriObject*>(node->GetObjectRef())->mesh; }

void ExpectNear(const Point3& p, float x, float y, float z, float tolerance = 1e-6f) {
  EXPECT_NEAR(p.x, x, tolerance);
  EXPECT_NEAR(p.y, y, tolerance);
  EXPECT_NEAR(p.z, z, tolerance);
}

class Import : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = std::filesystem::temp_directory_path() / "import_test_XXXXXX";
    ASSERT_TRUE(mkdtemp(pattern.data()));
    folder_ = pattern;
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  Interface& Ip() { return host_.Services(); }
  std::optional<ImportResult> FromGltf(const std::string& bytes, const ImportOptions& o = {}) {
    return host::ImportGltfBytes(Ip(), Bytes(bytes), o, error_);
  }
  std::optional<ImportResult> FromObj(const std::string& text, const ImportOptions& o = {}) {
    return host::ImportObjBytes(Ip(), Bytes(text), o, error_);
  }
  std::string Write(const std::string& name, const std::string& bytes) {
    std::ofstream(folder_ + "/" + name, std::ios::binary) << bytes;
    return folder_ + "/" + name;
  }
  /// The import fails, says all of `parts` in one line, and leaves the scene as it was.
  void ExpectRefused(const std::string& bytes, const std::vector<std::string>& parts) {
    const size_t before = host_.GetScene().AllNodes().size();
    error_.clear();
    EXPECT_FALSE(FromGltf(bytes));
    for (const std::string& part : parts)
      EXPECT_NE(error_.find(part), std::string::npos) << error_ << "\nlacks " << part;
    EXPECT_EQ(error_.find('\n'), std::string::npos);
    EXPECT_EQ(host_.GetScene().AllNodes().size(), before);
  }

  host::Host host_;
  std::string folder_, error_;
};

TEST_F(Import, ASplitSquareIsWeldedAndStandsUpright) {
  const auto result = FromGltf(Square().Json());
  ASSERT_TRUE(result) << error_;
  EXPECT_TRUE(result->warnings.empty());
  ASSERT_EQ(result->nodes.size(), 1u);
  INode* node = result->nodes[0];
  EXPECT_EQ(node->GetName(), L"square");
  EXPECT_TRUE(node->InScene());
  EXPECT_EQ(node->GetMtl(), nullptr);

  const Mesh& mesh = MeshOfNode(node);
  EXPECT_EQ(mesh.FirstFault(), "");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  ASSERT_EQ(mesh.getNumFaces(), 2);
  EXPECT_EQ(mesh.faces[0].v[0], mesh.faces[1].v[0]);
  EXPECT_EQ(mesh.faces[0].v[2], mesh.faces[1].v[1]);
  EXPECT_EQ(mesh.getVert(2), Point3(1, 1, 0));
  EXPECT_EQ(mesh.faces[0].smGroup, 0u);
  // v counts from the bottom up here, from the top down in the file.
  ASSERT_EQ(mesh.getNumTVerts(), 4);
  for (int f = 0; f < 2; ++f)
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(mesh.maps[1].verts[mesh.maps[1].faces[size_t(f)].t[k]],
                mesh.verts[mesh.faces[size_t(f)].v[k]]);
  // The file's +Y is the scene's +Z, its +Z the scene's -Y.
  EXPECT_EQ(Point3(1, 2, 3) * node->GetObjectTM(0), Point3(1, -3, 2));
}

TEST_F(Import, UnitUpAxisAndScaleGoIntoTheTopMatrix) {
  Ip().SetMasterUnit(UNITS_CENTIMETERS, 1);
  ImportOptions options;
  options.scale = 3;
  options.up = ImportOptions::Up::Z;
  const auto scaled = FromGltf(Square().Glb(), options);
  ASSERT_TRUE(scaled) << error_;
  ExpectNear(Point3(1, 2, 3) * scaled->nodes[0]->GetObjectTM(0), 300, 600, 900, 1e-3f);
  EXPECT_EQ(MeshOfNode(scaled->nodes[0]).getVert(2), Point3(1, 1, 0));

  Ip().SetMasterUnit(UNITS_FEET, 2);  // a scene unit is two feet
  const auto feet = FromGltf(Square().Glb());
  ASSERT_TRUE(feet) << error_;
  ExpectNear(Point3(1, 0, 0) * feet->nodes[0]->GetObjectTM(0), 1 / 0.6096f, 0, 0);

  // An OBJ has no unit.
  const auto obj = FromObj("o thing\nv 0 0 0\nv 1 0 0\nv 0 2 0\nf 1 2 3\n");
  ASSERT_TRUE(obj) << error_;
  EXPECT_EQ(Point3(0, 2, 0) * obj->nodes[0]->GetObjectTM(0), Point3(0, 0, 2));

  for (const double bad : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity()}) {
    options.scale = bad;
    EXPECT_FALSE(FromGltf(Square().Json(), options));
    EXPECT_NE(error_.find("scale"), std::string::npos);
  }
}

TEST_F(Import, HierarchyAndLocalMatricesAreKept) {
  Gltf g = Square();
  const float h = std::sqrt(0.5f);
  g.root["nodes"] = {
      {{"name", "base"}, {"translation", {10, 0, 0}}, {"children", {1}}},
      {{"name", "arm"}, {"rotation", {0, 0, h, h}}, {"scale", {2, 1, 1}}, {"children", {2}}},
      {{"mesh", 0}, {"matrix", {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 5, 1}}}};
  ImportOptions upright;
  upright.up = ImportOptions::Up::Z;
  const auto result = FromGltf(g.Json(), upright);
  ASSERT_TRUE(result) << error_;
  ASSERT_EQ(result->nodes.size(), 3u);
  INode *base = result->nodes[0], *arm = result->nodes[1], *leaf = result->nodes[2];
  EXPECT_EQ(base->GetParentNode(), Ip().GetRootNode());
  EXPECT_EQ(arm->GetParentNode(), base);
  EXPECT_EQ(leaf->GetParentNode(), arm);
  EXPECT_EQ(base->GetObjectRef(), nullptr);
  // (1, 1, 0) is mirrored to (-1, 1, 5), scaled to (-2, 1, 5), a quarter turn about Z gives
  // (-1, -2, 5), and the base adds 10.
  ExpectNear(Point3(1, 1, 0) * leaf->GetObjectTM(0), 9, -2, 5, 1e-5f);
  EXPECT_LT(leaf->GetObjectTM(0).Determinant(), 0);
}

TEST_F(Import, NodesOfOneMeshShareTheObject) {
  Gltf g = Square();
  g.root["scenes"] = {{{"nodes", {0, 1}}}};
  g.root["nodes"].push_back({{"mesh", 0}, {"translation", {0, 0, 1}}});
  const auto result = FromGltf(g.Json());
  ASSERT_TRUE(result) << error_;
  EXPECT_EQ(result->nodes[0]->GetObjectRef(), result->nodes[1]->GetObjectRef());
}

TEST_F(Import, PrimitivesBecomeMaterialIds) {
  Gltf g = Square();
  json& primitives = g.root["meshes"][0]["primitives"];
  const json first = primitives[0];
  primitives.push_back(first);
  primitives.push_back(first);
  primitives.push_back(first);
  primitives[0]["material"] = 1;
  primitives[1]["material"] = 0;
  primitives[2]["material"] = 1;  // none for the last one
  g.root["materials"] = {
      {{"name", "leaf"}, {"pbrMetallicRoughness", {{"baseColorFactor", {0.1, 0.5, 0.2, 1}}}}},
      {{"name", "bark"},
       {"pbrMetallicRoughness",
        {{"baseColorFactor", {0.4, 0.3, 0.2, 1}}, {"baseColorTexture", {{"index", 0}}}}}}};
  const auto result = FromGltf(g.Json());
  ASSERT_TRUE(result) << error_;
  ASSERT_EQ(result->warnings.size(), 1u);
  EXPECT_NE(result->warnings[0].find("texture"), std::string::npos);
  INode* node = result->nodes[0];
  const Mesh& mesh = MeshOfNode(node);
  EXPECT_EQ(mesh.getNumVerts(), 4);
  ASSERT_EQ(mesh.getNumFaces(), 8);
  const MtlID expected[] = {0, 0, 1, 1, 0, 0, 2, 2};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(mesh.getFaceMtlIndex(i), expected[i]) << i;
  ASSERT_TRUE(node->GetMtl());
  ASSERT_EQ(node->GetMtl()->NumSubMtls(), 3);
  EXPECT_EQ(MtlOfFace(node->GetMtl(), 0)->GetName(), L"bark");
  EXPECT_EQ(MtlOfFace(node->GetMtl(), 1)->GetName(), L"leaf");
  EXPECT_EQ(MtlOfFace(node->GetMtl(), 1)->GetDiffuse(), (Color{0.1f, 0.5f, 0.2f}));
  EXPECT_EQ(MtlOfFace(node->GetMtl(), 2), nullptr);
}

TEST_F(Import, NormalsThatLeaveTheFaceMakeItSmooth) {
  for (const bool tilted : {false, true}) {
    Gltf g;
    const int at = g.Floats({0, 0, 0, 1, 0, 0, 0, 1, 0}, "VEC3", 3);
    const float x = tilted ? 0.6f : 0.0f, z = tilted ? 0.8f : 1.0f;
    const int normal = g.Floats({0, 0, 1, 0, 0, 1, x, 0, z}, "VEC3", 3);
    g.root["meshes"] = {
        {{"primitives", {{{"attributes", {{"POSITION", at}, {"NORMAL", normal}}}}}}}};
    g.root["nodes"] = {{{"mesh", 0}}};
    const auto result = FromGltf(g.Json());
    ASSERT_TRUE(result) << error_;
    EXPECT_EQ(MeshOfNode(result->nodes[0]).faces[0].smGroup, tilted ? 1u : 0u);
  }
}

TEST_F(Import, StripsAndFansKeepTheirTurn) {
  // Five points round a flat area, as a strip and as a fan: all triangles face +Z.
  for (const int mode : {5, 6}) {
    Gltf g;
    const std::vector<float> strip = {0, 0, 0, 0, -1, 0, 1, 0, 0, 1, -1, 0, 2, 0, 0};
    const std::vector<float> fan = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, -1, 1, 0};
    const int at = g.Floats(mode == 5 ? strip : fan, "VEC3", 3);
    g.root["meshes"] = {{{"primitives", {{{"attributes", {{"POSITION", at}}}, {"mode", mode}}}}}};
    g.root["nodes"] = {{{"mesh", 0}}};
    const auto result = FromGltf(g.Json());
    ASSERT_TRUE(result) << error_;
    const Mesh& mesh = MeshOfNode(result->nodes[0]);
    ASSERT_EQ(mesh.getNumFaces(), 3);
    for (const Face& f : mesh.faces) {
      const Point3 n = CrossProd(mesh.verts[f.v[1]] - mesh.verts[f.v[0]],
                                 mesh.verts[f.v[2]] - mesh.verts[f.v[0]]);
      EXPECT_EQ(n, Point3(0, 0, 1)) << "mode " << mode;
    }
  }
}

TEST_F(Import, PerspectiveCamerasComeAlong) {
  Gltf g = Square();
  g.root["scenes"] = {{{"nodes", {0, 1}}}};
  g.root["nodes"].push_back({{"name", "eye"}, {"camera", 0}, {"translation", {0, 2, 7}}});
  g.root["cameras"] = {
      {{"type", "perspective"},
       {"perspective", {{"yfov", std::acos(-1.0) / 2}, {"aspectRatio", 2}, {"znear", 0.1}}}}};
  const auto result = FromGltf(g.Json());
  ASSERT_TRUE(result) << error_;
  INode* eye = result->nodes[1];
  ASSERT_EQ(eye->GetObjectRef()->SuperClassID(), CAMERA_CLASS_ID);
  // tan 45 degrees is 1, so half the width is 2.
  EXPECT_NEAR(static_cast<CameraObject*>(eye->GetObjectRef())->GetFOV(0), 2 * std::atan(2.0),
              1e-6);
  const ViewExp view = ViewExp::FromCamera(eye, 200, 100);
  ExpectNear(view.ViewToWorld().GetTrans(), 0, -7, 2);
  ExpectNear(view.ViewToWorld().GetRow(2), 0, -1, 0);  // it looks along +Y
}

TEST_F(Import, BrokenFilesAreRefusedByName) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto triangle = [](std::vector<float> at, std::vector<std::uint16_t> order) {
    Gltf g;
    const int position = g.Floats(at, "VEC3", 3);
    const int indices = g.Shorts(order);
    g.root["meshes"] = {
        {{"primitives", {{{"attributes", {{"POSITION", position}}}, {"indices", indices}}}}}};
    g.root["nodes"] = {{{"name", "wheel"}, {"mesh", 0}}};
    return g;
  };
  const std::vector<float> sound = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  ExpectRefused(triangle({0, 0, 0, 1, nan, 0, 0, 1, 0}, {0, 1, 2}).Json(),
                {"\"wheel\"", "vertex 1 is not a finite number"});
  ExpectRefused(triangle(sound, {0, 1, 2, 0, 7, 1}).Json(),
                {"\"wheel\"", "face 1 uses vertex 7, but there are only 3"});
  ExpectRefused(triangle(sound, {0, 1, 2, 0}).Json(), {"\"wheel\"", "4 corners"});

  Gltf g = triangle(sound, {0, 1, 2});
  const json good = g.root;
  const auto changed = [&](const char* pointer, const json& value) {
    g.root = good;
    g.root[json::json_pointer(pointer)] = value;
    return g.Json();
  };
  ASSERT_TRUE(FromGltf(g.Json())) << error_;
  ExpectRefused(changed("/nodes/0/scale", {1, 0, 1}), {"\"wheel\"", "no inverse"});
  ExpectRefused(changed("/nodes/0/translation", {1, 1e39, 1}), {"\"wheel\"", "not finite"});
  ExpectRefused(changed("/nodes/0/translation", {1, 2}), {"\"wheel\"", "2 numbers, not 3"});
  ExpectRefused(changed("/nodes/0/mesh", 3), {"\"wheel\"", "meshes[3] does not exist"});
  ExpectRefused(changed("/nodes/0/mesh", "x"), {"nodes[0].mesh is not a whole number"});
  ExpectRefused(changed("/nodes/0/children", {0}), {"\"wheel\"", "twice"});
  ExpectRefused(changed("/accessors/0/count", 2147483647), {"accessors[0]", "beyond its buffer"});
  ExpectRefused(changed("/bufferViews/0/byteOffset", 2147483647), {"beyond its buffer"});
  ExpectRefused(changed("/accessors/1/componentType", 5122), {"unsigned whole numbers"});
  ExpectRefused(changed("/meshes", json::array()), {"meshes[0] does not exist"});
  ExpectRefused(changed("/nodes/0", {{"name", "empty"}}), {"holds no mesh"});
  ExpectRefused(changed("/asset/version", "1.0"), {"version 1.0"});
  ExpectRefused(changed("/extensionsRequired", {"KHR_draco_mesh_compression"}),
                {"KHR_draco_mesh_compression", "not supported"});

  json nested = json::array();
  for (int i = 0; i < 300; ++i) nested = json::array({nested});
  ExpectRefused(changed("/extras", nested), {"nested too deep"});
  json chain = json::array();
  for (int i = 0; i < 300; ++i) chain.push_back({{"children", {i + 1}}});
  chain.push_back({{"mesh", 0}});
  ExpectRefused(changed("/nodes", chain), {"nodes deep"});
  ExpectRefused("{\"asset\"\n:", {"is not JSON"});

  g.root = good;
  g.Json();
  g.root["buffers"][0]["byteLength"] = 4000;
  ExpectRefused(g.root.dump(), {"buffers[0] states 4000 bytes"});
  g.root["buffers"][0] = {{"byteLength", 4}, {"uri", "../x.bin"}};
  ExpectRefused(g.root.dump(), {"x.bin"});
}

TEST_F(Import, ACutGlbIsRefusedAtEveryLength) {
  const std::string whole = Square().Glb();
  ASSERT_TRUE(FromGltf(whole)) << error_;
  for (size_t size = 0; size < whole.size(); ++size) {
    error_.clear();
    EXPECT_FALSE(FromGltf(whole.substr(0, size))) << size;
    EXPECT_FALSE(error_.empty()) << size;
  }
}

TEST_F(Import, WhatIsLeftOutIsWarnedOf) {
  Gltf g = Square();
  g.root["animations"] = {{{"channels", json::array()}}};
  g.root["skins"] = {{{"joints", {0}}}};
  g.root["meshes"][0]["primitives"][0]["targets"] = {{{"POSITION", 0}}};
  json line = g.root["meshes"][0]["primitives"][0];
  line["mode"] = 1;
  g.root["meshes"][0]["primitives"].push_back(line);
  const auto result = FromGltf(g.Json());
  ASSERT_TRUE(result) << error_;
  std::string all;
  for (const std::string& w : result->warnings) all += w + "\n";
  for (const char* part : {"animations", "skins", "morph", "lines"})
    EXPECT_NE(all.find(part), std::string::npos) << part;
  EXPECT_EQ(MeshOfNode(result->nodes[0]).getNumFaces(), 2);
}

TEST_F(Import, ObjObjectsBecomeNodesWithTheirMaterials) {
  Write("colours.mtl", "newmtl red\nKd 0.9 0.1 0.2\nnewmtl blue\nKd 0.1 0.2 0.8\n");
  const std::string path = Write(
      "two.obj",
      "mtllib sub/../colours.mtl\n"
      "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\n"
      "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
      "o first\nusemtl red\nf 1/1 2/2 3/3 4/4\nusemtl blue\nf 1/1 4/4 5/2\n"
      "o second\nusemtl blue\nf 5 6 7\n");
  const auto result = host::ImportModel(Ip(), path, {}, error_);
  ASSERT_TRUE(result) << error_;
  EXPECT_TRUE(result->warnings.empty());
  ASSERT_EQ(result->nodes.size(), 2u);
  INode *first = result->nodes[0], *second = result->nodes[1];
  EXPECT_EQ(first->GetName(), L"first");
  EXPECT_EQ(second->GetName(), L"second");
  const Mesh& mesh = MeshOfNode(first);
  EXPECT_EQ(mesh.getNumVerts(), 5);
  EXPECT_EQ(mesh.getNumFaces(), 3);
  EXPECT_EQ(mesh.getNumTVerts(), 4);
  ASSERT_EQ(first->GetMtl()->NumSubMtls(), 2);
  EXPECT_EQ(MtlOfFace(first->GetMtl(), mesh.getFaceMtlIndex(0))->GetDiffuse(),
            (Color{0.9f, 0.1f, 0.2f}));
  EXPECT_EQ(MtlOfFace(first->GetMtl(), mesh.getFaceMtlIndex(2))->GetName(), L"blue");
  EXPECT_EQ(second->GetMtl()->NumSubMtls(), 0);
  EXPECT_EQ(second->GetMtl()->GetName(), L"blue");

  // In memory there are no material files, not even by a whole path.
  const auto bare = FromObj("mtllib " + folder_ + "/colours.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\n" +
                            "usemtl red\nf 1 2 3\n");
  ASSERT_TRUE(bare) << error_;
  ASSERT_EQ(bare->warnings.size(), 1u);
  EXPECT_NE(bare->warnings[0].find("\"colours.mtl\" was not read"), std::string::npos);
  EXPECT_NE(bare->nodes[0]->GetMtl()->GetDiffuse(), (Color{0.9f, 0.1f, 0.2f}));
}

TEST_F(Import, BrokenObjFilesAreRefused) {
  const char* const broken[] = {"", "v 0 0 0\nv 1 0 0\nv 0 1 0\n", "v 0 0 0\nv 1 0 0\np 1\nl 1 2\n",
                                "v 0 0 nan\nv 1 0 0\nv 0 1 0\nf 1 2 3\n",
                                "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n"};
  for (const char* text : broken) {
    error_.clear();
    EXPECT_FALSE(FromObj(text)) << text;
    EXPECT_EQ(error_.rfind("OBJ: ", 0), 0u) << error_;
  }
  EXPECT_TRUE(host_.GetScene().AllNodes().empty());
}

TEST_F(Import, FilesThatAreNoModelsAreRefused) {
  EXPECT_FALSE(host::ImportModel(Ip(), folder_ + "/none.glb", {}, error_));
  EXPECT_NE(error_.find("none.glb\": No such file"), std::string::npos) << error_;
  EXPECT_FALSE(host::ImportModel(Ip(), Write("a.dae", "<x/>"), {}, error_));
  EXPECT_NE(error_.find("\".dae\""), std::string::npos) << error_;

  Gltf g = Square();
  g.Json();
  g.root["buffers"][0]["uri"] = "my%20data.bin";
  const std::string path = Write("Model.GLTF", g.root.dump());
  EXPECT_FALSE(host::ImportModel(Ip(), path, {}, error_));
  EXPECT_NE(error_.find("my data.bin"), std::string::npos) << error_;
  Write("my data.bin", g.data);
  EXPECT_TRUE(host::ImportModel(Ip(), path, {}, error_)) << error_;
}

// Public sample models: the counts and boxes are those of the files' own text and accessors.
TEST_F(Import, SampleModelsHaveTheirSize) {
  const std::string models = "/usr/share/assimp/models/";
  if (!std::filesystem::exists(models)) GTEST_SKIP() << "the sample models are not installed";
  const auto load = [&](const char* file, int& vertices, int& faces) {
    const auto result = host::ImportModel(Ip(), models + file, {}, error_);
    EXPECT_TRUE(result) << error_;
    Box3 box;
    vertices = faces = 0;
    for (INode* n : result ? result->nodes : std::vector<INode*>{}) {
      if (!n->GetObjectRef() || n->GetObjectRef()->ClassID() != triObjectClassID) continue;
      const Mesh& mesh = MeshOfNode(n);
      EXPECT_EQ(mesh.FirstFault(), "");
      vertices += mesh.getNumVerts();
      faces += mesh.getNumFaces();
      const Matrix3 tm = n->GetObjectTM(0);
      box += mesh.getBoundingBox(&tm);
    }
    return box;
  };
  int vertices, faces;
  const Box3 box = load("glTF2/BoxTextured-glTF/BoxTextured.gltf", vertices, faces);
  EXPECT_EQ(vertices, 8);  // 24 in the file
  EXPECT_EQ(faces, 12);
  ExpectNear(box.pmin, -0.5f, -0.5f, -0.5f);
  ExpectNear(box.pmax, 0.5f, 0.5f, 0.5f);
  load("glTF2/BoxTextured-glTF-Binary/BoxTextured.glb", vertices, faces);
  EXPECT_EQ(vertices, 8);

  const Box3 engine =
      load("glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb", vertices, faces);
  EXPECT_GT(faces, 50000);
  EXPECT_GT(engine.Width().z, 0);

  const Box3 spider = load("OBJ/spider.obj", vertices, faces);
  EXPECT_EQ(faces, 1368);  // lines that begin with "f ", all triangles
  EXPECT_GT(spider.Width().x, spider.Width().z);

  for (const char* bad :
       {"glTF2/BoxWithInfinites-glTF-Binary/BoxWithInfinites.glb",
        "glTF2/IndexOutOfRange/IndexOutOfRange.gltf", "glTF2/MissingBin/BoxTextured.gltf",
        "glTF2/RecursiveNodes/RecursiveNodes.gltf", "glTF2/draco/2CylinderEngine.gltf"}) {
    if (!std::filesystem::exists(models + bad)) ADD_FAILURE() << bad << " is gone";
    const size_t before = host_.GetScene().AllNodes().size();
    EXPECT_FALSE(host::ImportModel(Ip(), models + bad, {}, error_)) << bad;
    EXPECT_EQ(host_.GetScene().AllNodes().size(), before);
  }
}

}  // namespace
