#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "host/host.h"
#include "host/io/import.h"
#include "host/scene/animatedmesh.h"
#include "tests/host/apart.h"
#include "tests/host/gltfbuilder.h"

namespace {

using host::ImportOptions;
using host::ImportResult;
using nlohmann::json;

/// A unit square in the file's XY plane, as two triangles with corners of their own: corners 0 and
/// 3, and 2 and 4, are of one position.
Gltf Square() {
  Gltf g;
  const int at = g.Floats({0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 0, 0, 1, 1, 0, 0, 1, 0}, "VEC3", 3);
  g.root["meshes"] = {{{"primitives", {{{"attributes", {{"POSITION", at}}}}}}}};
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

class AnimationImport : public testing::Test {
 protected:
  std::vector<INode*> Take(Gltf& g) {
    const std::string bytes = g.Glb();
    auto result =
        host::ImportGltfBytes(host_.Services(), std::as_bytes(std::span(bytes)), {}, error_);
    EXPECT_TRUE(result) << error_;
    if (result) warnings_ = result->warnings;
    return result ? result->nodes : std::vector<INode*>();
  }
  /// A vertex of the node's mesh, in the world.
  static Point3 World(INode* node, size_t vertex, TimeValue t) {
    return EvalMesh(node, t).mesh->verts.at(vertex) * node->GetObjectTM(t);
  }
  host::Host host_;
  std::string error_;
  std::vector<std::string> warnings_;
};

TEST_F(AnimationImport, TracksOfATopNodeAreBroughtUpright) {
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
  host_.Services().SetMasterUnit(UNITS_CENTIMETERS, 1);
  host_.Services().SetAnimRange({0, 5000});
  const std::vector<INode*> nodes = Take(g);
  ASSERT_EQ(nodes.size(), 2u);
  ASSERT_EQ(warnings_.size(), 1u);
  EXPECT_NE(warnings_[0].find("wave"), std::string::npos);
  EXPECT_EQ(host_.Services().GetAnimRange(), Interval(0, 9600));

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

TEST_F(AnimationImport, CornersThatMorphApartStayApart) {
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
  const std::vector<INode*> nodes = Take(g);
  ASSERT_EQ(nodes.size(), 3u);
  EXPECT_EQ(warnings_.size(), 0u);
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

TEST_F(AnimationImport, ASkinStandsWhereItsJointsAre) {
  Gltf g = Skinned();
  host_.Services().SetMasterUnit(UNITS_CENTIMETERS, 1);
  const std::vector<INode*> nodes = Take(g);
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

TEST_F(AnimationImport, BrokenMotionIsRefusedByName) {
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
       R"({"count": 1, "indices": {"bufferView": 1, "componentType": 5121, "byteOffset": 1},
           "values": {"bufferView": 0}})",
       "sparse writes element 7, but there are only 6"}};
  for (const auto& [pointer, value, says] : cases) {
    Gltf g = Skinned();
    g.root[json::json_pointer(pointer)] = json::parse(value);
    const std::string bytes = g.Glb();
    EXPECT_FALSE(
        host::ImportGltfBytes(host_.Services(), std::as_bytes(std::span(bytes)), {}, error_))
        << pointer;
    EXPECT_NE(error_.find(says), std::string::npos) << error_ << "\nlacks " << says;
    EXPECT_TRUE(host_.GetScene().AllNodes().empty());
  }
  // Times that fall, and one that isn't finite.
  for (const float second : {-1.0f, std::nanf("")}) {
    Gltf g = Skinned();
    const size_t input = g.root["animations"][0]["samplers"][0]["input"];
    const json& accessor = g.root["accessors"][input];
    const size_t at = g.root["bufferViews"][size_t(accessor["bufferView"])]["byteOffset"];
    std::memcpy(g.data.data() + at + 4, &second, 4);
    const std::string bytes = g.Glb();
    EXPECT_FALSE(
        host::ImportGltfBytes(host_.Services(), std::as_bytes(std::span(bytes)), {}, error_));
    EXPECT_NE(error_.find("rotation: the time of key 1"), std::string::npos) << error_;
  }
}

}  // namespace
