#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/host.h"
#include "host/io/file.h"
#include "host/io/import.h"
#include "host/io/png.h"
#include "host/scene/mtl.h"
#include "host/scene/triobject.h"
#include "tests/host/apart.h"

namespace {

using host::ImportResult;
namespace fs = std::filesystem;

const fs::path kModels = "/usr/share/assimp/models";
constexpr TimeValue kSecond = 4800;

Box3 BoxAt(const std::vector<INode*>& nodes, TimeValue t) {
  Box3 box;
  for (INode* node : nodes) {
    const EvaluatedMesh shown = EvalMesh(node, t);
    for (size_t i = 0; shown && i < shown.mesh->verts.size(); ++i)
      box += shown.mesh->verts[i] * node->GetObjectTM(t);
  }
  return box;
}

class AssimpImport : public testing::Test {
 protected:
  AssimpImport() : folder_(fs::path(testing::TempDir()) / "assimpimport_test") {
    fs::remove_all(folder_);
    fs::create_directories(folder_);
  }
  ~AssimpImport() override { fs::remove_all(folder_); }

  std::string Write(const std::string& name, const std::string& text) {
    fs::create_directories((folder_ / name).parent_path());
    std::ofstream(folder_ / name) << text;
    return (folder_ / name).string();
  }
  std::string WritePicture(const std::string& name) {
    const std::vector<std::uint8_t> rgb(2 * 3 * 3, 128);
    std::vector<std::byte> png;
    EXPECT_TRUE(host::EncodePng(2, 3, rgb, png, error_)) << error_;
    return Write(name, std::string(reinterpret_cast<const char*>(png.data()), png.size()));
  }
  ImportResult Open(const fs::path& path) {
    auto result = host::ImportModel(host_.Services(), path.string(), {}, error_);
    EXPECT_TRUE(result) << error_;
    return result ? *result : ImportResult{};
  }
  /// The diffuse picture of a node's material; null without one.
  static BitmapTex* PictureOf(INode* node) {
    Mtl* material = node->GetMtl();
    if (material && material->NumSubMtls() > 0) material = material->GetSubMtl(0);
    return material ? dynamic_cast<BitmapTex*>(material->GetSubTexmap(StdMtl::kDiffuseMap))
                    : nullptr;
  }

  host::Host host_;
  fs::path folder_;
  std::string error_;
};

TEST_F(AssimpImport, OneModelStandsTheSameWayFromAllFormats) {
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
    for (const char* file : files) {
      const Box3 box = BoxAt(Open(kModels / file).nodes, 0);
      EXPECT_LT(Apart(box.pmin, expected.pmin), 2e-4) << file;
      EXPECT_LT(Apart(box.pmax, expected.pmax), 2e-4) << file;
    }
  const Box3 human = BoxAt(Open(kModels / "BLEND/HUMAN.blend").nodes, 0);
  EXPECT_GT(human.pmax.z - human.pmin.z, 2 * (human.pmax.x - human.pmin.x));
}

TEST_F(AssimpImport, UnitsOfTheFileAreBroughtToTheMasterUnit) {
  // The text of the FBX says Z up, 100 cm a unit, and 0.6 to each side, 1.2 upwards; the duck's
  // says one centimetre, the STL nothing.
  host_.Services().SetMasterUnit(UNITS_CENTIMETERS, 1);
  Box3 box = BoxAt(Open(kModels / "FBX/embedded_ascii/box.FBX").nodes, 0);
  EXPECT_LT(Apart(box.pmin, {-60, -60, 0}), 1e-3);
  EXPECT_LT(Apart(box.pmax, {60, 60, 120}), 1e-3);
  const float inCentimetres = BoxAt(Open(kModels / "Collada/duck.dae").nodes, 0).pmax.z;
  const std::string stl =
      Write("t.stl",
            "solid t\nfacet normal 0 0 1\nouter loop\nvertex 0 0 7\nvertex 1 0 7\nvertex 0 1 7\n"
            "endloop\nendfacet\nendsolid t\n");
  EXPECT_EQ(BoxAt(Open(stl).nodes, 0).pmax.z, 7);
  host_.Services().SetMasterUnit(UNITS_METERS, 1);
  EXPECT_EQ(BoxAt(Open(stl).nodes, 0).pmax.z, 7);
  EXPECT_NEAR(BoxAt(Open(kModels / "Collada/duck.dae").nodes, 0).pmax.z, inCentimetres / 100, 1e-5);
}

TEST_F(AssimpImport, QuadsHideTheirDiagonalsAndChannelsAreKept) {
  const auto off =
      Open(Write("p.off", "OFF\n5 2 0\n0 0 0\n2 0 0\n2 1 0\n0 1 0\n0 0 1\n4 0 1 2 3\n3 0 1 4\n"));
  ASSERT_EQ(off.nodes.size(), 1u);
  EXPECT_EQ(off.nodes[0]->GetName(), L"p");  // the format has no names
  const EvaluatedMesh mesh = EvalMesh(off.nodes[0], 0);
  ASSERT_EQ(mesh.mesh->getNumFaces(), 3);
  int hidden = 0;
  for (const Face& face : mesh.mesh->faces)
    for (int k = 0; k < 3; ++k) {
      if (face.flags >> k & 1) continue;
      const Point3 middle =
          (mesh.mesh->verts[face.v[k]] + mesh.mesh->verts[face.v[(k + 1) % 3]]) * 0.5f;
      EXPECT_EQ(middle, Point3(1, 0.5f, 0));
      ++hidden;
    }
  EXPECT_EQ(hidden, 2);  // once in each triangle of the quad

  int mapped = 0;
  for (INode* node : Open(kModels / "Collada/cube_with_2UVs.DAE").nodes)
    if (const EvaluatedMesh cube = EvalMesh(node, 0))
      mapped += cube.mesh->mapSupport(1) && cube.mesh->mapSupport(2);
  EXPECT_EQ(mapped, 1);
}

TEST_F(AssimpImport, InstancesShareTheirObjectAndHierarchiesTheirMatrices) {
  std::set<Object*> objects;
  const auto row = Open(kModels / "AMF/test9.amf");
  for (INode* node : row.nodes)
    if (Object* object = node->GetObjectRef()) objects.insert(object);
  EXPECT_EQ(objects.size(), 1u);
  EXPECT_GE(row.nodes.size(), 12u);

  const std::string node =
      "<node id='%'><matrix>1 0 0 5 0 1 0 0 0 0 1 0 0 0 0 1</matrix>"
      "<instance_geometry url='#g'/>";
  const auto named = [&](const char* name) {
    std::string text = node;
    return text.replace(text.find('%'), 1, name);
  };
  const auto dae = Open(Write(
      "h.dae",
      "<COLLADA version='1.4.1'><asset><unit meter='2'/><up_axis>Z_UP</up_axis></asset>"
      "<library_geometries><geometry id='g'><mesh><source id='p'><float_array id='a' count='9'>"
      "0 0 0 1 0 0 0 1 0</float_array><technique_common><accessor source='#a' count='3' stride='3'>"
      "<param type='float'/><param type='float'/><param type='float'/></accessor>"
      "</technique_common></source><vertices id='v'><input semantic='POSITION' source='#p'/>"
      "</vertices><triangles count='1'><input semantic='VERTEX' source='#v' offset='0'/><p>0 1 2"
      "</p></triangles></mesh></geometry></library_geometries><library_visual_scenes>"
      "<visual_scene id='s'>" +
          named("base") + named("arm") +
          "</node></node><node id='lamp'/></visual_scene></library_visual_scenes><scene>"
          "<instance_visual_scene url='#s'/></scene></COLLADA>"));
  ASSERT_EQ(dae.nodes.size(), 2u);  // neither the root nor the empty lamp
  EXPECT_EQ(dae.nodes[0]->GetName(), L"base");
  EXPECT_EQ(dae.nodes[1]->GetParentNode(), dae.nodes[0]);
  // Two units of five along X, two metres each.
  EXPECT_LT(Apart(Point3(0, 0, 3) * dae.nodes[1]->GetObjectTM(0), {20, 0, 6}), 1e-5);
}

TEST_F(AssimpImport, PicturesAreFoundByTheirBaseName) {
  const std::string inFolder = WritePicture("textures/Leaf.PNG");
  const std::string asWritten = WritePicture("sub/Bark.png");
  WritePicture("Bark.png");
  WritePicture("other/Stone.png");
  Write("text.png", "this is no picture");
  Write("m.mtl",
        "newmtl a\nmap_Kd C:\\art\\leaf.png\nnewmtl b\nmap_Kd sub\\Bark.png\n"
        "newmtl c\nmap_Kd stone.png\nnewmtl d\nmap_Kd text.png\n");
  const auto model = Open(Write("m.obj",
                                "mtllib m.mtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\n"
                                "o a\nusemtl a\nf 1 2 3\no b\nusemtl b\nf 1 2 3\n"
                                "o c\nusemtl c\nf 1 2 3\no d\nusemtl d\nf 1 2 3\n"));
  ASSERT_EQ(model.nodes.size(), 4u);
  ASSERT_TRUE(PictureOf(model.nodes[0]) && PictureOf(model.nodes[1]));
  EXPECT_EQ(ToUtf8(PictureOf(model.nodes[0])->GetMapName()), inFolder);
  EXPECT_EQ(ToUtf8(PictureOf(model.nodes[1])->GetMapName()), asWritten);
  EXPECT_FALSE(PictureOf(model.nodes[2]) || PictureOf(model.nodes[3]));
  ASSERT_EQ(model.warnings.size(), 2u);
  EXPECT_NE(model.warnings[0].find("\"stone.png\" is not shown: there is no such file"),
            std::string::npos)
      << model.warnings[0];
  EXPECT_NE(model.warnings[1].find("\"text.png\" is not shown"), std::string::npos);

  const auto box = Open(kModels / "FBX/embedded_ascii/box_embedded_texture_fragmented.fbx");
  const BitmapTex* held = PictureOf(box.nodes.at(0));
  ASSERT_TRUE(held && held->GetBytes());
  EXPECT_EQ(std::memcmp(held->GetBytes()->data(), "\x89PNG", 4), 0);
}

TEST_F(AssimpImport, BonesMoveTheirVerticesOverTime) {
  // At one second (25 ticks) the root bone has turned a quarter about Z, the tip has moved by 4.
  const auto model =
      Open(Write("s.smd",
                 "version 1\nnodes\n0 \"root\" -1\n1 \"tip\" 0\nend\nskeleton\n"
                 "time 0\n0 0 0 0 0 0 0\n1 10 0 0 0 0 0\n"
                 "time 25\n0 0 0 0 0 0 1.5707963\n1 14 0 0 0 0 0\nend\ntriangles\nm.bmp\n"
                 "0 1 0 0 0 0 1 0 0\n1 11 0 0 0 0 1 1 0\n0 0 0 3 0 0 1 0 1\nend\n"));
  INode* skinned = nullptr;
  for (INode* node : model.nodes)
    if (EvalMesh(node, 0)) skinned = node;
  ASSERT_TRUE(skinned);
  const auto at = [&](int vertex, TimeValue t) {
    const EvaluatedMesh shown = EvalMesh(skinned, t);
    return shown.mesh->verts[size_t(vertex)] * skinned->GetObjectTM(t);
  };
  EXPECT_LT(Apart(at(0, 0), {1, 0, 0}), 1e-4);
  EXPECT_LT(Apart(at(1, 0), {11, 0, 0}), 1e-4);
  EXPECT_LT(Apart(at(0, kSecond), {0, 1, 0}), 1e-4);
  EXPECT_LT(Apart(at(1, kSecond), {0, 15, 0}), 1e-4);
  EXPECT_LT(Apart(at(2, kSecond), {0, 0, 3}), 1e-4);
  const float h = std::sqrt(0.5f);  // half way: an eighth turn, and 2 further out
  EXPECT_LT(Apart(at(1, kSecond / 2), {13 * h, 13 * h, 0}), 1e-3);
}

TEST_F(AssimpImport, ShapesOfFramesFollowTheFile) {
  std::vector<std::byte> bytes;
  ASSERT_TRUE(host::ReadFile((kModels / "MD2/sydney.md2").string(), bytes, error_)) << error_;
  const auto word = [&](size_t at) {
    std::int32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
  };
  const auto real = [&](size_t at) {
    float value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
  };
  const int size = word(16), vertices = word(24), frames = word(40), first = word(56);
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
        p[int(i)] = real(at + 12 + 4 * i) +
                    real(at + 4 * i) * float(std::uint8_t(bytes[at + 40 + 4 * size_t(v) + i]));
      expected += p;
    }
    const Box3 box = BoxAt(model.nodes, TimeValue(k) * kSecond / 10);
    // The game's X lies along our -Y.
    for (int i = 0; i < 3; ++i)
      EXPECT_NEAR(box.pmax[i] - box.pmin[i], expected.pmax[i] - expected.pmin[i], 1e-2)
          << k << ", axis " << i;
    EXPECT_NEAR(box.pmax.z, expected.pmax.z, 1e-2) << k;
  }
}

}  // namespace
