#include <cmath>
#include <filesystem>
#include <set>

#include "host/core/parallel.h"
#include "sowfield/model/placement.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/sources/sourceframe.h"
#include "tests/host/viewerfile.h"
#include "tests/sowfield/placement_twin.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

using nlohmann::json;

constexpr const char* kInstancing = "EXT_mesh_gpu_instancing";

struct Viewer : ViewerFile {
  using ViewerFile::ViewerFile;
  // Nodes with instances, of one name or of all.
  std::vector<size_t> Nodes(const std::string& name = "") const {
    std::vector<size_t> found;
    for (size_t i = 0; i < root["nodes"].size(); ++i)
      if (root["nodes"][i].contains("extensions") &&
          (name.empty() || root["nodes"][i]["name"] == name))
        found.push_back(i);
    return found;
  }
  const json& Attributes(size_t node) const {
    return root["nodes"][node]["extensions"][kInstancing]["attributes"];
  }
};

// A scale, then a rotation, then a translation, by the products of the quaternion's numbers.
Matrix3 Composed(const std::vector<float>& t, const std::vector<float>& q,
                 const std::vector<float>& s) {
  const double x = q[0], y = q[1], z = q[2], w = q[3];
  const auto row = [&](size_t i, double a, double b, double c) {
    return Point3(float(a * s[i]), float(b * s[i]), float(c * s[i]));
  };
  return {row(0, 1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)),
          row(1, 2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)),
          row(2, 2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)),
          {t[0], t[1], t[2]}};
}

// From a node to the child of the top node under which it stands.
Matrix3 ChainOf(const Viewer& v, size_t node) {
  const json& n = v.root["nodes"][node];
  const Matrix3 own = Composed(n.value("translation", std::vector<float>{0, 0, 0}),
                               n.value("rotation", std::vector<float>{0, 0, 0, 1}),
                               n.value("scale", std::vector<float>{1, 1, 1}));
  if (node == 0) return {};
  for (size_t i = 0; i < v.root["nodes"].size(); ++i)
    for (const json& child : v.root["nodes"][i].value("children", json::array()))
      if (child == node) return own * ChainOf(v, i);
  ADD_FAILURE() << "nothing holds node " << node;
  return {};
}

class Instances : public testing::Test, public SowfieldScene {
 protected:
  Viewer Save() { return Viewer(bytes = SaveBytes()); }
  // Random placements of the first `types` types, turned and lifted, with scales of either sign.
  void Paint(int count, int types) {
    Draws draw(5);
    ScatterPlacements(*this, draw, types, count);
    for (int slot = 0; slot <= types; ++slot) {
      Set(Tr_Random, 1, slot), Set(Tr_ZPos_Max, 4.0f, slot);
      for (const Param id : {Tr_XRot_Max, Tr_YRot_Max, Tr_ZRot_Max}) Set(id, 200.0f, slot);
      Set(Tr_Unify, 0, slot);
      for (const Param id : {Tr_XScale_Min, Tr_YScale_Min, Tr_ZScale_Max}) Set(id, 20.0f, slot);
    }
  }
  std::vector<std::byte> bytes;
};

// Each vertex of a mesh is one of the source's, taken through its matrix, and none is left. Gives
// six times the volume that the faces enclose when they are seen from outside.
double ExpectSourceMesh(const Viewer& v, size_t node, const Mesh& source, const Matrix3& m,
                        bool mirrored) {
  std::vector<bool> met(source.verts.size());
  double volume = 0;
  for (const json& part : v.PartsAt(node)) {
    std::vector<Point3> points;
    for (const auto& row : v.Rows<float>(part["attributes"]["POSITION"])) {
      points.push_back({row[0], row[1], row[2]});
      const Point3 p(mirrored ? -row[0] : row[0], row[1], row[2]);
      size_t i = 0;
      while (i < met.size() && Apart(source.verts[i] * m, p) > 1e-5) ++i;
      EXPECT_LT(i, met.size()) << p.x << ' ' << p.y << ' ' << p.z;
      if (i < met.size()) met[i] = true;
    }
    const auto at = v.Rows<std::uint32_t>(part["indices"]);
    for (size_t i = 0; i < at.size(); i += 3)
      volume +=
          double(DotProd(points[at[i][0]], CrossProd(points[at[i + 1][0]], points[at[i + 2][0]])));
  }
  EXPECT_EQ(std::count(met.begin(), met.end(), true), std::ptrdiff_t(met.size()));
  return volume;
}

TEST_F(Instances, StandWhereTheirPlacementsDo) {
  INode* box = AddBox(L"box", 1, 2, 3, {9, 9, 9});
  box->SetNodeTM(0, Turned({1, -2, 3}, 1, {5, 0, 0})), box->SetObjOffsetPos({0.5f, 0, 1});
  INode* const sources[] = {box, AddSphere(L"ball", 2, 8), AddBox(L"flat", 1, 1, 1),
                            AddBox(L"unpainted", 1, 1, 1)};
  ASSERT_EQ(AddTypesByName(D(), sources), 4);
  Paint(9000, 3);
  Set(Tr_Random, 0), Set(Tr_ZScale_Min, 50.0f), Set(Tr_ZScale_Min, 50.0f, 3);
  Set(Tr_Random, 0, 3);  // its scale along Z is 50 % and 50 % less than whole: nothing is left
  const Viewer v = Save();
  EXPECT_EQ(v.root["extensionsUsed"], (json{"SOWFIELD_scene", kInstancing}));
  EXPECT_FALSE(v.root.contains("extensionsRequired"));
  ASSERT_EQ(v.Nodes().size(), 4u);

  const PlacementEvaluator e(Block(), 0);
  std::set<size_t> shown;
  int mirroredOnes = 0;
  for (const size_t n : v.Nodes()) {
    const int type = v.root["nodes"][n]["name"] == "box" ? 0 : 1;
    const json& a = v.Attributes(n);
    const auto t = v.Rows<float>(a["TRANSLATION"]), q = v.Rows<float>(a["ROTATION"]),
               s = v.Rows<float>(a["SCALE"]), id = v.Rows<float>(a["_ID"]);
    ASSERT_TRUE(t.size() == id.size() && q.size() == id.size() && s.size() == id.size());
    const bool mirrored = e.Matrix(size_t(id[0][0])).Determinant() < 0;
    for (size_t i = 0; i < id.size(); ++i) {
      const auto p = size_t(id[i][0]);
      ASSERT_TRUE(shown.insert(p).second);
      ASSERT_EQ(e.Type(p), type);
      Matrix3 expected = e.Matrix(p);
      ASSERT_EQ(expected.Determinant() < 0, mirrored);
      if (mirrored) expected.SetRow(0, -expected.GetRow(0));
      ASSERT_EQ(Point3(t[i][0], t[i][1], t[i][2]), expected.GetTrans());
      ASSERT_LT(Apart(Composed(t[i], q[i], s[i]), expected), 1e-6) << p;
      ASSERT_TRUE(s[i][0] > 0 && s[i][1] > 0 && s[i][2] > 0);
    }
    mirroredOnes += mirrored;

    INode* source = Block().GetINode(Geo_Nodes, 0, type);
    const double volume =
        ExpectSourceMesh(v, n, *EvalMesh(source, 0).mesh, SourceMatrix(source, 0), mirrored);
    EXPECT_TRUE(type == 0 ? std::abs(volume - 6 * 6 * 6) < 1e-3 : volume > 0)
        << volume << ", the box is one of 6, scaled by 6";
  }
  EXPECT_EQ(mirroredOnes, 2);
  const std::vector<int> types = Ints(Ins_Type);
  EXPECT_EQ(shown.size(), types.size() - size_t(std::count(types.begin(), types.end(), 2)));
}

TEST_F(Instances, DependOnNoViewAndNoThreads) {
  ASSERT_TRUE(AddAsType(AddBox(L"box", 1, 2, 3)));
  ASSERT_TRUE(AddAsType(AddSphere(L"ball", 2, 8)));
  Paint(10000, 2);
  Set(ForceDisplay, 1), Set(Display_Type, 1);
  const auto save = [&] {  // without the scene's own description and its tables
    Viewer v = Save();
    v.root.erase("extensions"), v.root.erase("buffers");
    std::string data;
    for (const json& accessor : v.root["accessors"]) {
      if (!accessor.contains("bufferView")) continue;
      const json& part = v.root["bufferViews"][accessor["bufferView"].get<size_t>()];
      const size_t first = part.value("byteOffset", size_t(0)), size = part["byteLength"];
      data.append(reinterpret_cast<const char*>(v.bin.data()) + first, size);
    }
    return std::pair(v.root, data);
  };
  const auto plain = save();
  for (int mode = 0; mode <= 6; ++mode) {
    Set(Display_Mode, mode);
    D().RefreshObject();
    EXPECT_TRUE(save() == plain) << mode;
  }
  const std::vector<std::byte> before = bytes;
  const int threads = host::ParallelThreads();
  for (const int count : {1, 3}) {
    host::SetParallelThreads(count);
    Save();
    EXPECT_EQ(bytes, before) << count;
  }
  host::SetParallelThreads(threads);
}

TEST_F(Instances, EveryNodeOfTheObjectShowsThem) {
  host.Services().SetMasterUnit(UNITS_METERS, 1);
  ASSERT_TRUE(AddAsType(AddBox(L"box", 1, 2, 3)));
  Paint(50, 1);
  node->SetNodeTM(0, TransMatrix({3, 4, 5}));
  const Matrix3 away = Turned({2, 2, 2}, 0.25f, {7, 8, 9});
  INode* second = AddNode(L"second", object);
  second->SetNodeTM(0, away), second->SetObjectOffset(TransMatrix({0, 1, 0}));
  AddNode(L"hidden", object)->Hide(true);
  const Point3 probe(1, 2, 3);  // where a placement stands, in the world
  // The display mesh is taken from the world through the first node and shown by each.
  const Point3 there = (probe - Point3(3, 4, 5) + Point3(0, 1, 0)) * away;

  Viewer v = Save();
  const std::vector<size_t> nodes = v.Nodes("box");
  ASSERT_EQ(nodes.size(), 4u);  // plain and mirrored ones
  for (const size_t i : {0, 1}) {
    EXPECT_LT(Apart(probe * ChainOf(v, nodes[i]), probe), 1e-5);
    EXPECT_LT(Apart(probe * ChainOf(v, nodes[i + 2]), there), 1e-5);
    EXPECT_EQ(v.Attributes(nodes[i]), v.Attributes(nodes[i + 2]));
    EXPECT_EQ(v.PartsAt(nodes[i]), v.PartsAt(nodes[i + 2]));
  }

  // What turns, stretches or moves the first node takes no placement along: they leave it.
  const Matrix3 wide({1, 0, 0}, {0, 3, 0}, {0, 0, 1}, {0, 0, 0});
  for (const bool keyed : {false, true}) {
    node->SetNodeTM(0, keyed ? TransMatrix({1, 1, 1}) : wide * away);
    for (int t = 0; keyed && t <= 4800; t += 4800)
      node->GetTMController()->SetKeys(t, {{1, 1, 1}, {0, 0, 0, 1}, {1, 1, float(t)}}, 7);
    v = Save();
    const std::vector<size_t> top = v.root["nodes"][0]["children"];
    int atTop = 0;
    for (const size_t n : v.Nodes())
      atTop += std::count(top.begin(), top.end(), n) == 1 && ChainOf(v, n).IsIdentity();
    EXPECT_EQ(atTop, 2) << keyed;
    EXPECT_EQ(v.Nodes().size(), 4u);
  }
}

TEST_F(Instances, ShowTheWholeMeshOfEveryKind) {
  const std::string file = testing::TempDir() + "/viewerinstances.mok";
  Generator drawn;
  ASSERT_TRUE(WriteMoksetFile(BoxMeshOf(4, 5, 6), FromUtf8(file), drawn));
  auto* green = new StdMtl;
  green->SetName(L"green");
  for (const int kind : {0, 1, 3}) {
    INode* source = AddSource(*this, kind, L"kind" + std::to_wstring(kind), 1, 2, 3);
    if (kind == 1) {
      static_cast<MoksetProxyObject*>(source->GetObjectRef())->SetProxyFile(FromUtf8(file));
      source->SetMtl(green);
    }
    ASSERT_TRUE(AddAsType(source));
  }
  AddFileType(*this, FromUtf8(file), green);
  AddFileType(*this, L"/nowhere/lost.mok");
  Paint(200, 5);
  const Viewer v = Save();
  EXPECT_EQ(v.Nodes().size(), 8u);  // the last type's file is lost
  for (int type = 0; type < 4; ++type) {
    const std::vector<size_t> nodes = v.Nodes(ToUtf8(Block().Strings(Geo_Names)[size_t(type)]));
    ASSERT_EQ(nodes.size(), 2u) << type;
    const bool ofFile = type == 1 || type == 3;
    const Mesh source = ofFile ? BoxMeshOf(4, 5, 6) : BoxMeshOf(1, 2, 3);
    const Matrix3 m = SourceMatrix(type == 3 ? nullptr : Block().GetINode(Geo_Nodes, 0, type), 0);
    for (const size_t i : {0, 1}) {
      EXPECT_GT(ExpectSourceMesh(v, nodes[i], source, m, i == 1), 0);
      const auto material = v.PartsAt(nodes[i])[0]["material"].get<size_t>();
      EXPECT_EQ(v.root["materials"][material].value("name", ""), ofFile ? "green" : "");
    }
  }
  std::filesystem::remove(file);
}

}  // namespace
}  // namespace sowfield
