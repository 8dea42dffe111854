#include "host/scene/shape.h"

#include <bit>
#include <nlohmann/json.hpp>

#include "host/io/scenefile.h"
#include "host/io/scenevalues.h"
#include "host/viewport/picture.h"
#include "host/viewport/scenedrawing.h"
#include "tests/host/extras.h"
#include "tests/host/recording_owner.h"

namespace {

using nlohmann::json;

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
const std::vector<Point3> kSquare = {{-20, -20, 0}, {20, -20, 0}, {20, 20, 0}, {-20, 20, 0}};
const std::vector<Point3> kBroken = {{-20, -20, 0}, {20, -20, 0}, {kNan, 20, kInf}, {-20, 20, 0}};

// Closed flags, counts and the bits of all knots.
std::vector<std::uint32_t> BitsOf(const BezierShape& shape) {
  std::vector<std::uint32_t> bits;
  for (int s = 0; s < shape.SplineCount(); ++s) {
    const Spline3D& spline = shape.GetSpline(s);
    bits.insert(bits.end(), {spline.Closed(), std::uint32_t(spline.KnotCount())});
    for (int i = 0; i < 3 * spline.KnotCount(); ++i)
      bits.push_back(std::bit_cast<std::uint32_t>(spline.GetKnot(i / 3).Knot()[i % 3]));
  }
  return bits;
}

class Shapes : public Staged {
 protected:
  INode* AddShape(std::vector<Spline3D> splines, const Point3& at = {0, 0, 0}) {
    auto* object = new SplineShape;
    object->SetShape({std::move(splines)});
    return Add(object, at);
  }
  static SplineShape* ShapeOf(INode* node) {
    return dynamic_cast<SplineShape*>(node->GetObjectRef());
  }
  // A pixel of the view is a unit, the origin lies at 50, 50 and +Y goes up.
  bool HitAt(int x, int y) {
    ViewExp view = FlatView();
    const IPoint2 at{x, y};
    return !host::PickNodes(ip_, view, HITTYPE_POINT, true, &at).empty();
  }
  bool HitIn(bool crossing, IPoint2 corner, IPoint2 other) {
    ViewExp view = FlatView();
    const IPoint2 corners[] = {corner, other};
    return !host::PickNodes(ip_, view, HITTYPE_RECT, crossing, corners).empty();
  }
  void Save() {
    ASSERT_TRUE(host::SaveSceneBytes(ip_, "/s.glb", bytes_, error_)) << error_;
    const size_t size = *reinterpret_cast<const std::uint32_t*>(&bytes_[12]);
    root_ = json::parse(std::string(reinterpret_cast<const char*>(&bytes_[20]), size));
    bin_ = 28 + size;
  }
  // What was saved, with another description and the sums that belong to it.
  bool OpenWith(json root, std::vector<std::string>* losses = nullptr) {
    root["extensions"]["SOWFIELD_scene"]["jsonCrc"] = "00000000";
    std::string text = root.dump();
    text.resize((text.size() + 3) / 4 * 4, ' ');
    const std::string crc = host::CrcText(host::Crc32c(std::as_bytes(std::span(text))));
    text.replace(text.find(host::kCrcMark) + host::kCrcMark.size(), 8, crc);
    auto glb = bytes_;
    glb.erase(glb.begin() + 20, glb.begin() + std::ptrdiff_t(bin_) - 8);
    const auto* first = reinterpret_cast<const std::byte*>(text.data());
    glb.insert(glb.begin() + 20, first, first + text.size());
    const std::uint32_t sizes[] = {std::uint32_t(glb.size()), std::uint32_t(text.size())};
    std::memcpy(&glb[8], sizes, 8);
    return host::OpenSceneBytes(ip_, glb, "it", {nullptr, losses}, error_);
  }
  INode* First() { return host_.GetScene().AllNodes().front(); }

  std::vector<std::byte> bytes_;
  size_t bin_ = 0;
  json root_;
  std::string error_;
};

TEST_F(Shapes, AreObjectsOfAClassOfTheirOwn) {
  auto* object = dynamic_cast<SplineShape*>(CreateInstance(64, Class_ID(10, 0)));
  ASSERT_TRUE(object);
  INode* node = Add(object, {100, 0, 0});
  EXPECT_TRUE(object->SuperClassID() == 64 && object->IsSubClassOf(Class_ID(10, 0)));
  EXPECT_TRUE(object->CanConvertToType(Class_ID(10, 0)) && !EvalMesh(node, 0));
  EXPECT_EQ(object->ConvertToType(0, Class_ID(10, 0)), object);
  RecordingOwner owner;
  owner.Block().Append(RecordingOwner::kNodes, 1, &node);
  owner.TakeLog();
  object->SetShape({{{kSquare, true}, {}, {{{1, 2, 30}}, false}}});
  EXPECT_EQ(owner.TakeLog(), std::vector<std::string>{"change 0"});
  Box3 box;
  object->GetWorldBoundBox(0, node, nullptr, box);
  EXPECT_EQ(box, Box3({80, -20, 0}, {120, 20, 30}));
  RemapDir remap;
  auto* copy = static_cast<SplineShape*>(object->Clone(remap));
  Add(copy);
  EXPECT_EQ(BitsOf(copy->GetShape()), BitsOf(object->GetShape()));
}

TEST_F(Shapes, LinesAreHitWhereTheyRun) {
  INode* node = AddShape({{kSquare, false}});
  EXPECT_TRUE(HitAt(50, 69) && HitAt(70, 50) && HitAt(50, 30));
  EXPECT_FALSE(HitAt(30, 50) || HitAt(50, 50) || HitAt(50, 80)) << "the left side is open";
  ShapeOf(node)->SetShape({{{kSquare, true}, {{{-45, 0, 0}}, true}, {}}});
  node->SetNodeTM(0, TransMatrix({20, 0, 0}));
  EXPECT_TRUE(HitAt(50, 50) && !HitAt(70, 50) && !HitAt(25, 50));
  EXPECT_TRUE(HitIn(false, {40, 20}, {98, 80}) && HitIn(true, {40, 20}, {60, 80}));
  EXPECT_FALSE(HitIn(false, {40, 20}, {60, 80}) || HitIn(true, {60, 40}, {80, 60}));
  ShapeOf(node)->SetShape({{{kSquare, true}, {{{-60, 0, 0}, {-55, 0, 0}}, false}}});
  EXPECT_FALSE(HitIn(false, {40, 20}, {98, 80})) << "one of its splines lies outside";
}

TEST_F(Shapes, LinesToKnotsThatAreNotFiniteAreNeitherDrawnNorHit) {
  AddShape({{kBroken, true}});
  EXPECT_TRUE(HitAt(50, 70) && HitAt(30, 50));
  EXPECT_FALSE(HitAt(70, 50) || HitAt(50, 30) || HitIn(false, {1, 1}, {99, 99}));
  ViewExp view = FlatView();
  const auto picture = host::DrawScene(ip_, view, {.grid = false}, error_);
  ASSERT_TRUE(picture) << error_;
  for (int x = 0; x < 100; ++x) {
    const std::uint8_t* c = &picture->rgb[size_t(50 * 100 + x) * 3];
    const bool inWireColor = c[0] > c[1] + 60 && c[0] > c[2] + 60;
    EXPECT_FALSE(inWireColor && std::abs(x - 30) > 1) << x;
    EXPECT_TRUE(inWireColor || x != 30) << int(c[0]) << ' ' << int(c[1]);
  }
}

TEST_F(Shapes, ComeBackBitForBitAndDamageCostsOneSpline) {
  const auto odd = std::bit_cast<float>(0xFFC12345u);  // a NaN with bits of its own
  INode* node = AddShape({{{{odd, -0.0f, 1e-45f}, {kInf, -kInf, 0.1f}}, true},
                          {{{4, 5, 6}, {7, 8, 9}}, false},
                          {{}, true},
                          {{{1, 2, 3}}, true}});
  node->SetName(L"edge");
  const std::vector<std::uint32_t> bits = BitsOf(ShapeOf(node)->GetShape());
  AddShape({});
  Save();
  const std::vector<std::byte> saved = bytes_;
  const json sound = root_;
  ASSERT_TRUE(OpenWith(sound)) << error_;
  EXPECT_EQ(BitsOf(ShapeOf(First())->GetShape()), bits);
  Save();
  EXPECT_EQ(bytes_, saved);

  const struct {
    const char *place, *value, *said;
    int left;
  } cases[] = {{"", "7", "splines is 7, expected a list", -1},
               {"/1/closed", "1", "closed of spline 1 is 1, expected true or false", 3},
               {"/0/knots/crc", "\"00000000\"", "the table knots of spline 0 is damaged", 4},
               {"/1/knots/count", "3", "the table knots of spline 1", 4},
               {"/3/knots/view", "99", "the table knots of spline 3 lies in buffer view 99", 3}};
  for (const auto& [place, value, said, left] : cases) {
    json root = sound;
    root[json::json_pointer(std::string("/extensions/SOWFIELD_scene/things/0/data/splines") +
                            place)] = json::parse(value);
    EXPECT_FALSE(OpenWith(root));
    EXPECT_NE(error_.find("Spline \"edge\" (0x"), std::string::npos) << error_;
    EXPECT_NE(error_.find(said), std::string::npos) << place << ": " << error_;
    std::vector<std::string> losses;
    ASSERT_TRUE(OpenWith(root, &losses)) << place << ": " << error_;
    const SplineShape* shape = ShapeOf(First());
    EXPECT_TRUE(!losses.empty() && (shape ? shape->GetShape().SplineCount() : -1) == left) << place;
  }
}

TEST_F(Shapes, ViewersSeeLines) {
  const std::vector<Spline3D> splines = {
      {kSquare, true}, {{{1, 2, 3}, {-4, 5, 6}}, false}, {kBroken, true}, {{{1, 1, 1}}, true}, {}};
  INode* plain = AddShape(splines);
  Add(ShapeOf(plain))->SetMtl(new StdMtl);  // shares the lines all the same
  INode* sheared = Add(ShapeOf(plain), {0, 0, 0}, PackColor(0, 255, 0));
  sheared->SetObjectOffset(Matrix3({1, 0, 0}, {2, 3, 0}, {0, 0, 1}, {0, 0, 0}));
  AddShape({{kBroken, false}, {}});
  Add(ShapeOf(plain))->Hide(true);
  Save();
  std::vector<int> shown;  // by the nodes in their order, behind the frame
  for (size_t i = 1; i < root_["nodes"].size(); ++i)
    shown.push_back(root_["nodes"][i].value("mesh", -1));
  EXPECT_EQ(shown, (std::vector<int>{0, 0, 1, -1, -1}));
  ASSERT_EQ(root_["meshes"].size(), 2u);
  for (const size_t mesh : {0, 1}) {
    const json& lines = root_["meshes"][mesh]["primitives"];
    ASSERT_EQ(lines.size(), 2u);
    for (const size_t s : {0, 1}) {
      EXPECT_EQ(lines[s]["mode"], splines[s].Closed() ? 2 : 3);
      const json& material = root_["materials"][lines[s]["material"].get<size_t>()];
      EXPECT_EQ(material["pbrMetallicRoughness"]["baseColorFactor"][1] == 1.0, mesh == 1);
      const json& accessor = root_["accessors"][lines[s]["attributes"]["POSITION"].get<size_t>()];
      ASSERT_EQ(accessor["count"], splines[s].KnotCount());
      const json& view = root_["bufferViews"][accessor["bufferView"].get<size_t>()];
      for (size_t i = 0; i < splines[s].Knots().size(); ++i) {
        Point3 at, knot = splines[s].Knots()[i];
        std::memcpy(&at, &bytes_[bin_ + view["byteOffset"].get<size_t>() + 12 * i], 12);
        EXPECT_EQ(at, mesh == 0 ? knot : Point3(knot.x + 2 * knot.y, 3 * knot.y, knot.z));
      }
    }
  }
}

}  // namespace
