#include "host/io/import.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/host.h"
#include "host/io/png.h"
#include "host/math/wstr.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"
#include "tests/host/apart.h"
#include "tests/host/gltfbuilder.h"

namespace {

using host::ImportOptions;
using host::ImportResult;
using nlohmann::json;

/// A unit square in the file's XY plane as two triangles, each with corners of its own.
Gltf Square() {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0}, "VEC3", 3);
  const int uv = g.Floats({0, 1, 1, 1, 1, 0, 0, 1, 1, 0, 0, 0}, "VEC2", 2);
  const int order = g.Add(Raw(std::vector<std::uint16_t>{0, 1, 2, 3, 4, 5}), 5123, "SCALAR", 6);
  g.root["meshes"] = {
      {{"primitives",
        {{{"attributes", {{"POSITION", at}, {"TEXCOORD_0", uv}}}, {"indices", order}}}}}};
  g.root["nodes"] = {{{"name", "square"}, {"mesh", 0}}};
  return g;
}

Mesh& MeshOfNode(INode* node) { return static_cast<TriObject*>(node->GetObjectRef())->mesh; }

class Import : public testing::Test {
 protected:
  Interface& Ip() { return host_.Services(); }
  std::optional<ImportResult> FromGltf(const std::string& bytes, const ImportOptions& o = {}) {
    return host::ImportGltfBytes(Ip(), std::as_bytes(std::span(bytes)), o, error_);
  }
  /// The import fails, says `part` in one line, and leaves the scene as it was.
  void ExpectRefused(const std::string& bytes, const std::string& part, bool obj = false) {
    const size_t before = host_.GetScene().AllNodes().size();
    error_.clear();
    EXPECT_FALSE(obj ? host::ImportObjBytes(Ip(), std::as_bytes(std::span(bytes)), {}, error_)
                     : FromGltf(bytes))
        << part;
    EXPECT_NE(error_.find(part), std::string::npos) << error_ << "\nlacks " << part;
    EXPECT_EQ(error_.find('\n'), std::string::npos);
    EXPECT_EQ(host_.GetScene().AllNodes().size(), before);
  }

  host::Host host_;
  std::string error_;
};

TEST_F(Import, ASplitSquareIsWeldedAndStandsUpright) {
  const auto result = FromGltf(Square().Glb());
  ASSERT_TRUE(result) << error_;
  ASSERT_EQ(result->nodes.size(), 1u);
  INode* node = result->nodes[0];
  EXPECT_EQ(node->GetName(), L"square");
  const Mesh& mesh = MeshOfNode(node);
  EXPECT_EQ(mesh.FirstFault(), "");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  ASSERT_EQ(mesh.getNumFaces(), 2);
  // v counts from the bottom up here, from the top down in the file.
  ASSERT_EQ(mesh.getNumTVerts(), 4);
  for (int f = 0; f < 2; ++f)
    for (int k = 0; k < 3; ++k)
      EXPECT_EQ(mesh.maps[1].verts[mesh.maps[1].faces[size_t(f)].t[k]],
                mesh.verts[mesh.faces[size_t(f)].v[k]]);
  // The file's +Y is the scene's +Z, its +Z the scene's -Y.
  EXPECT_EQ(Point3(1, 2, 3) * node->GetObjectTM(0), Point3(1, -3, 2));

  Ip().SetMasterUnit(UNITS_FEET, 2);  // a scene unit is two feet
  ImportOptions options;
  options.scale = 3;
  options.up = ImportOptions::Up::Z;
  const auto scaled = FromGltf(Square().Glb(), options);
  ASSERT_TRUE(scaled) << error_;
  EXPECT_LT(Apart(Point3(0, 1, 2) * scaled->nodes[0]->GetObjectTM(0),
                  Point3(0, 3 / 0.6096f, 6 / 0.6096f)),
            1e-5);
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
  const auto result = FromGltf(g.Glb(), upright);
  ASSERT_TRUE(result) << error_;
  INode* leaf = result->nodes.at(2);
  EXPECT_EQ(leaf->GetParentNode(), result->nodes[1]);
  // (1, 1, 0) is mirrored to (-1, 1, 5), scaled to (-2, 1, 5), a quarter turn about Z gives
  // (-1, -2, 5), and the base adds 10.
  EXPECT_LT(Apart(Point3(1, 1, 0) * leaf->GetObjectTM(0), Point3(9, -2, 5)), 1e-5);
}

TEST_F(Import, PrimitivesBecomeMaterialIds) {
  Gltf g = Square();
  json& primitives = g.root["meshes"][0]["primitives"];
  const json first = primitives[0];
  primitives = json::array({first, first, first, first});
  primitives[0]["material"] = 1;
  primitives[1]["material"] = 0;
  primitives[2]["material"] = 1;  // none for the last one
  primitives[3]["attributes"].erase("TEXCOORD_0");
  g.root["materials"] = {
      {{"name", "leaf"}, {"pbrMetallicRoughness", {{"baseColorFactor", {0.1, 0.5, 0.2, 1}}}}},
      {{"name", "bark"}, {"pbrMetallicRoughness", {{"baseColorFactor", {0.4, 0.3, 0.2, 1}}}}}};
  const auto result = FromGltf(g.Glb());
  ASSERT_TRUE(result) << error_;
  const Mesh& mesh = MeshOfNode(result->nodes[0]);
  EXPECT_EQ(mesh.FirstFault(), "");
  ASSERT_EQ(mesh.getNumFaces(), 8);
  const MtlID expected[] = {0, 0, 1, 1, 0, 0, 2, 2};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(mesh.getFaceMtlIndex(i), expected[i]) << i;
  Mtl* material = result->nodes[0]->GetMtl();
  EXPECT_EQ(MtlOfFace(material, 1)->GetName(), L"leaf");
  // Linear 0.1, 0.5, 0.2 as a screen shows them.
  const Color leaf = MtlOfFace(material, 1)->GetDiffuse();
  EXPECT_LT(Apart({leaf.r, leaf.g, leaf.b}, {0.349190f, 0.735357f, 0.484529f}), 1e-5);
  EXPECT_EQ(MtlOfFace(material, 2), nullptr);
}

TEST_F(Import, BaseColourTexturesOfAGltfAreItsMaterialsMaps) {
  std::vector<std::byte> png;
  ASSERT_TRUE(host::EncodePng(1, 1, std::vector<std::uint8_t>{1, 2, 3}, png, error_)) << error_;
  const std::string picture(reinterpret_cast<const char*>(png.data()), png.size());
  Gltf g = Square();
  const int view = g.Add(picture, 5121, "SCALAR", picture.size());
  json& mesh = g.root["meshes"][0]["primitives"];
  const json square = mesh[0];
  g.root["images"] = {{{"bufferView", view}, {"mimeType", "image/png"}},
                      {{"uri", "data:image/png;base64,bm8gcGljdHVyZQ=="}},
                      {{"uri", "gone%20away.png"}}};
  g.root["textures"] = {{{"source", 1}}, {{"source", 0}}, {{"source", 2}}, json::object()};
  mesh = json::array();
  for (int i = 0; i < 6; ++i) {
    mesh.push_back(square);
    mesh[size_t(i)]["material"] = i;
    // The second texture twice; the fifth material names a texture that isn't there.
    g.root["materials"].push_back(
        {{"pbrMetallicRoughness", {{"baseColorTexture", {{"index", i == 5 ? 1 : i}}}}}});
  }
  const auto result = FromGltf(g.Glb());
  ASSERT_TRUE(result) << error_;
  const auto mapOf = [&](int i) {
    return MtlOfFace(result->nodes[0]->GetMtl(), i)->GetSubTexmap(StdMtl::kDiffuseMap);
  };
  const auto* map = dynamic_cast<BitmapTex*>(mapOf(1));
  ASSERT_TRUE(map && map->GetBytes());
  EXPECT_EQ(*map->GetBytes(), png);
  EXPECT_EQ(mapOf(5), map);
  for (const int i : {0, 2, 3, 4}) EXPECT_EQ(mapOf(i), nullptr) << i;
  ASSERT_EQ(result->warnings.size(), 4u);
  EXPECT_NE(result->warnings[1].find("\"gone away.png\""), std::string::npos);
}

TEST_F(Import, ObjObjectsBecomeNodesWithTheirMaterials) {
  const std::string folder = testing::TempDir();
  std::ofstream(folder + "import_test.mtl") << "newmtl red\nKd 0.9 0.1 0.2\nnewmtl blue\n";
  std::ofstream(folder + "import_test.obj")
      << "mtllib sub/../import_test.mtl\n"
         "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\n"
         "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n"
         "o first\nusemtl red\nf 1/1 2/2 3/3 4/4\nusemtl blue\nf 1/1 4/4 5/2\n"
         "o second\nusemtl blue\nf 5 6 7\n";
  const auto result = host::ImportModel(Ip(), folder + "import_test.obj", {}, error_);
  ASSERT_TRUE(result) << error_;
  ASSERT_EQ(result->nodes.size(), 2u);
  INode *first = result->nodes[0], *second = result->nodes[1];
  EXPECT_EQ(second->GetName(), L"second");
  const Mesh& mesh = MeshOfNode(first);
  EXPECT_EQ(mesh.getNumVerts(), 5);
  ASSERT_EQ(first->GetMtl()->NumSubMtls(), 2);
  EXPECT_EQ(MtlOfFace(first->GetMtl(), mesh.getFaceMtlIndex(0))->GetDiffuse(),
            (Color{0.9f, 0.1f, 0.2f}));
  EXPECT_EQ(second->GetMtl()->GetName(), L"blue");
  for (const char* made : {"import_test.mtl", "import_test.obj"})
    std::remove((folder + made).c_str());
}

TEST_F(Import, CamerasAndStripsComeAlongAndWhatIsLeftOutIsWarnedOf) {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 0, -1, 0, 1, 0, 0, 1, -1, 0, 2, 0, 0}, "VEC3", 3);
  const json strip = {{"attributes", {{"POSITION", at}}}, {"mode", 5}};
  const json lines = {{"attributes", {{"POSITION", at}}}, {"mode", 1}};
  g.root["meshes"] = {{{"primitives", {strip, lines}}}};
  g.root["scenes"] = {{{"nodes", {0, 1}}}};
  g.root["nodes"] = {{{"mesh", 0}}, {{"camera", 0}, {"translation", {0, 2, 7}}}};
  g.root["cameras"] = {
      {{"type", "perspective"},
       {"perspective", {{"yfov", std::acos(-1.0) / 2}, {"aspectRatio", 2}, {"znear", 0.1}}}}};
  const auto result = FromGltf(g.Glb());
  ASSERT_TRUE(result) << error_;
  const Mesh& mesh = MeshOfNode(result->nodes[0]);
  ASSERT_EQ(mesh.getNumFaces(), 3);
  for (const Face& f : mesh.faces)  // all face +Z
    EXPECT_EQ(
        CrossProd(mesh.verts[f.v[1]] - mesh.verts[f.v[0]], mesh.verts[f.v[2]] - mesh.verts[f.v[0]]),
        Point3(0, 0, 1));
  INode* eye = result->nodes[1];
  ASSERT_EQ(eye->GetObjectRef()->SuperClassID(), CAMERA_CLASS_ID);
  // tan 45 degrees is 1, so half the width is 2.
  EXPECT_NEAR(static_cast<CameraObject*>(eye->GetObjectRef())->GetFOV(0), 2 * std::atan(2.0), 1e-6);
  EXPECT_LT(Apart(ViewExp::FromCamera(eye, 200, 100).ViewToWorld(),
                  Matrix3({1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {0, -7, 2})),
            1e-6);  // it looks along +Y
  EXPECT_NE(result->warnings.at(0).find("lines"), std::string::npos);
}

TEST_F(Import, BrokenGltfFilesAreRefusedByName) {
  json nested = json::array(), chain = json::array();
  for (int i = 0; i < 300; ++i) {
    nested = json::array({nested});
    chain.push_back({{"children", {i + 1}}});
  }
  chain.push_back({{"mesh", 0}});
  const std::tuple<const char*, json, const char*> cases[] = {
      {"/nodes/0/scale", {1, 0, 1}, "no inverse"},
      {"/nodes/0/translation", {1, 1e39, 1}, "\"square\": its matrix"},
      {"/nodes/0/translation", {1, 2}, "2 numbers, not 3"},
      {"/nodes/0/mesh", 3, "meshes[3] does not exist"},
      {"/nodes/0/mesh", "x", "nodes[0].mesh is not a whole number"},
      {"/nodes/0/children", {0}, "twice"},
      {"/nodes/0", {{"name", "empty"}}, "holds no mesh"},
      {"/nodes", chain, "nodes deep"},
      {"/accessors/0/count", 4, "4 and 6 elements"},
      {"/accessors/0/count", 2147483647, "beyond its buffer"},
      {"/accessors/2/count", 4, "4 corners"},
      {"/bufferViews/0/byteOffset", 2147483647, "beyond its buffer"},
      {"/accessors/2/componentType", 5122, "unsigned whole numbers"},
      {"/asset/version", "1.0", "version 1.0"},
      {"/extensionsRequired", {"KHR_draco_mesh_compression"}, "KHR_draco_mesh_compression"},
      {"/extras", nested, "nested too deep"}};
  for (const auto& [pointer, value, says] : cases) {
    Gltf g = Square();
    g.root[json::json_pointer(pointer)] = value;
    ExpectRefused(g.Glb(), says);
  }
  Gltf g = Square();
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::memcpy(g.data.data() + 16, &nan, 4);
  ExpectRefused(g.Glb(), "vertex 1 is not a finite number");
  g = Square();
  g.data[g.data.size() - 2] = 7;  // the last index
  ExpectRefused(g.Glb(), "face 1 uses vertex 7, but there are only 6");
  ExpectRefused("{\"asset\"\n:", "is not JSON");
  const std::string whole = Square().Glb();
  for (size_t size = 0; size < whole.size(); ++size) ExpectRefused(whole.substr(0, size), "");
}

TEST_F(Import, BrokenObjFilesAreRefused) {
  const std::string three = "o leaf\nv 0 0 0\nv 1 0 0\nv 0 1 0\n";
  const std::pair<std::string, const char*> cases[] = {
      {"", "OBJ: "},
      {three, "OBJ: "},
      {"v 0 0 nan\nv 1 0 0\nv 0 1 0\nf 1 2 3\n", "OBJ: "},
      {three + "f 1 \\\n2 9\n", "vertex 9, but there are only 3"},
      {three + "f -4 -2 -1\n", "line 5: a face uses vertex -4"},
      {three + "vt 0 0\nf 1/1 2/1 3/2\n", "texture vertex 2, but there are only 1"}};
  for (const auto& [text, says] : cases) ExpectRefused(text, says, true);
  EXPECT_FALSE(host::ImportModel(Ip(), "/none.glb", {}, error_));
  EXPECT_NE(error_.find("/none.glb: No such file"), std::string::npos) << error_;
}

}  // namespace
