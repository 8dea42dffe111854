#include "host/scene/scene.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "host/host.h"
#include "host/math/wstr.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/mesh.h"
#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"
#include "host/scene/shape.h"
#include "host/scenefile/scenefile.h"
#include "host/viewport/picture.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/proxies.h"
#include "tests/host/recording_owner.h"
#include "tests/host/sealed.h"
#include "tests/host/viewerfile.h"

namespace {

using Owner = RecordingOwner;

// Refers to up to four others. Made with a counter, it lives on the heap and counts its end there.
class Link : public ReferenceTarget {
 public:
  explicit Link(int* gone = nullptr) : gone_(gone) {}
  ~Link() override {
    DeleteAllRefsFromMe();
    if (gone_) ++*gone_;
  }
  void DeleteThis() override {
    if (gone_) delete this;
  }
  int NumRefs() const override { return 4; }
  ReferenceTarget* GetReference(int i) const override { return refs_[i]; }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) override {
    ++told;
    if (const auto handler = then) handler();  // a copy: handlers take themselves out
    return REF_SUCCEED;
  }
  int told = 0;
  std::function<void()> then;

 protected:
  void SetReference(int i, ReferenceTarget* t) override { refs_[i] = t; }

 private:
  ReferenceTarget* refs_[4] = {};
  int* gone_;
};

void Change(ReferenceTarget& t) { t.NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE); }

TEST(References, ATargetGoesWithItsLastDependentUnlessPinned) {
  int gone = 0;
  Link first, second;
  auto* target = new Link(&gone);
  first.ReplaceReference(0, target);
  second.ReplaceReference(3, target);
  first.DeleteReference(0);
  {
    const Pin<Link> pin(target);
    second.DeleteReference(3);
    first.ReplaceReference(0, target);  // back among the living before the pin goes
  }
  {
    const Pin<Link> pin(target), copy = pin;
    first.DeleteReference(0);
    EXPECT_EQ(gone, 0);
  }
  EXPECT_EQ(gone, 1);
}

TEST(References, AMessageTellsEachDependentOnceInTheOrderOfReferring) {
  Link target, a, b, above;
  std::string order;
  a.then = [&] { order += "a"; };
  b.then = [&] { order += "b"; };
  above.then = [&] { order += "^"; };
  b.ReplaceReference(0, &target), a.ReplaceReference(0, &target), b.ReplaceReference(1, &target);
  above.ReplaceReference(0, &a), target.ReplaceReference(0, &above);  // a loop
  Change(target);
  EXPECT_EQ(order, "ba^");
  EXPECT_EQ(target.told, 0) << "the origin isn't told of itself";
  for (Link* l : {&target, &a, &b, &above}) l->DeleteAllRefsFromMe();
}

TEST(References, HandlersMayChangeWhoRefersDuringAMessage) {
  int gone = 0;
  Link first, last, keeper;
  auto *target = new Link(&gone), *middle = new Link(&gone);
  keeper.ReplaceReference(0, middle);
  for (Link* l : {&first, middle, &last}) l->ReplaceReference(0, target);
  first.then = [&] {
    first.then = nullptr;
    keeper.DeleteReference(0);  // the middle one dies before its turn
    keeper.ReplaceReference(1, target);
    Change(*target);
  };
  Change(*target);
  EXPECT_EQ(gone, 1);
  EXPECT_EQ(first.told, 2);
  EXPECT_EQ(last.told, 2);
  EXPECT_EQ(keeper.told, 1) << "who comes during a message hears the next";
  // The origin loses its last reference while its message runs.
  first.then = [&] {
    first.DeleteReference(0), last.DeleteReference(0), keeper.DeleteReference(1);
  };
  Change(*target);
  EXPECT_EQ(last.told, 2);
  EXPECT_EQ(gone, 2);
}

using SceneTest = Staged;

TEST_F(SceneTest, NodesAndBlocksMayGoInTheHandlerOfTheirOwnMessage) {
  auto* owner = new Owner;
  INode* n = Add();
  owner->Block().Append(Owner::kNodes, 1, &n);
  owner->Block().SetValue(Owner::kCamera, 0, n);
  owner->TakeLog();
  n->SetNodeTM(0, TransMatrix({1, 2, 3}));
  EXPECT_EQ(owner->TakeLog(), (std::vector<std::string>{"change 0", "change 7"}));
  owner->onMessage = [&](const SeenMessage&) {
    owner->onMessage = nullptr;
    owner->Block().Delete(Owner::kNodes, 0, 1);
    GetCOREInterface()->DeleteNode(n, false, false);
  };
  n->SetName(L"Gone");
  EXPECT_TRUE(host_.GetScene().AllNodes().empty());

  const Pin<IParamBlock2> block(&owner->Block());
  owner->onMessage = [&](const SeenMessage&) {
    owner->onMessage = nullptr;
    owner->DeleteReference(0);
  };
  block->SetValue(Owner::kNumber, 0, 4);
  EXPECT_EQ(block->GetOwner(), nullptr);
  EXPECT_EQ(block->GetInt(Owner::kNumber), 4);
  owner->DeleteThis();
}

TEST_F(SceneTest, ADeletedParentComesBackWithItsChildrenInTheirOrder) {
  INode *parent = Add(), *after = Add();
  const Matrix3 tm = Turned({1, 1, 1}, 0.5f, {10, 0, 0});
  parent->SetNodeTM(0, tm);
  std::vector<INode*> children;
  std::vector<Matrix3> places;
  for (int i = 0; i < 4; ++i) {
    children.push_back(Add(nullptr, {float(i), 0, 7}));
    parent->AttachChild(children.back(), i % 2);  // every other one keeps its world matrix
    const Matrix3 own = TransMatrix({float(i), 0, 7});
    places.push_back(i % 2 ? own : own * tm);
  }
  Step([&] { ip_.DeleteNode(parent, false, false); });
  INode* root = host_.GetScene().GetRootNode();
  for (int round = 0; round < 2; ++round) {
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(children[i]->GetParentNode(), root);
      EXPECT_LT(Apart(children[i]->GetNodeTM(0), places[i]), 3e-6);
    }
    theHold->Undo();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(parent->GetChildNode(i), children[size_t(i)]);
    EXPECT_EQ(root->GetChildNode(0), parent) << "at its old place";
    EXPECT_EQ(root->GetChildNode(1), after);
    theHold->Redo();
  }
}

// References may run in a ring: a skin holds a bone that stands under the skin's own node.
TEST_F(SceneTest, WhoStandsUnderANodeIsToldThatItMoved) {
  auto* skin = new AnimatedMesh;
  INode *body = Add(skin), *middle = Add(), *bone = Add();
  body->AttachChild(middle), middle->AttachChild(bone);
  skin->SetBones({bone});
  Link watcher;
  watcher.ReplaceReference(0, bone);
  const auto expect = [&](const char* when) {
    EXPECT_GT(std::exchange(watcher.told, 0), 0) << when;
  };
  Step([&] { body->SetNodeTM(0, TransMatrix({1, 2, 3})); });
  expect("the parent's parent moved");
  host_.Undo().Undo();
  expect("it was taken back");
  bone->SetNodeTM(0, TransMatrix({4, 0, 0}));
  expect("its own move, which moves the skin that it stands under");
  watcher.DeleteAllRefsFromMe();
}

TEST_F(SceneTest, NodesAreFoundByNameInTheOrderOfAWalk) {
  Scene& scene = ip_.GetScene();
  std::mt19937 random(5);
  const auto below = [&](size_t n) { return size_t(random()) % n; };
  const WStr names[] = {L"a", L"b", L"c"};
  for (int act = 0; act < 600; ++act) {
    while (scene.AllNodes().size() < 5) Add()->SetName(names[below(3)]);
    const std::vector<INode*> all = scene.AllNodes();
    INode *n = all[below(all.size())], *to = all[below(all.size())];
    const INode* up = to;
    while (up && up != n) up = up->GetParentNode();
    const auto work = [&] {
      const size_t kind = below(6);
      if (kind < 2) Add()->SetName(names[below(3)]);
      if (kind == 2) n->SetName(names[below(3)]);
      if (kind == 3 && !up) to->AttachChild(n);
      if (kind == 4) ip_.DeleteNode(n, false, false);
      if (kind == 5) scene.GetRootNode()->AttachChild(n);
    };
    Step(work);
    for (size_t k = below(4); k > 0; --k) random() % 2 ? host_.Undo().Undo() : host_.Undo().Redo();
    for (const WStr& name : names) {
      std::vector<INode*> plain = scene.AllNodes();
      std::erase_if(plain, [&](INode* node) { return node->GetName() != name; });
      ASSERT_EQ(scene.FindNodes(name), plain) << "act " << act;
    }
  }
}

TEST_F(SceneTest, PivotOperationsLeaveTheObjectAndTheChildrenWhereTheyAre) {
  const Matrix3 turned = Turned({1, 1, 1}, 0.7f, {5, 6, 7});
  Matrix3 mirrored = turned;
  mirrored.Scale({-1, 2, 0.5f});
  const Matrix3 flat({1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {1, 2, 3});
  for (const Matrix3& tm : {turned, mirrored, flat}) {
    auto* box = new BoxObject;
    box->SetSize(2, 4, 6);
    INode *n = Add(box), *child = Add();
    n->SetNodeTM(0, tm);
    if (tm != flat) n->SetObjectOffset(mirrored);
    n->AttachChild(child);
    const Matrix3 object = n->GetObjectTM(0), childTM = child->GetNodeTM(0);
    const auto expect = [&](const Matrix3& pivot) {
      EXPECT_LT(Apart(n->GetObjectTM(0), object), 2e-5);
      EXPECT_LT(Apart(child->GetNodeTM(0), childTM), 2e-5);
      EXPECT_LT(Apart(n->GetObjectOffset() * n->GetNodeTM(0), object), 2e-5);
      EXPECT_LT(Apart(n->GetNodeTM(0), tm == flat ? flat : pivot), 2e-5);
    };
    // The middle of the box under the object matrix is the middle of its world box.
    Matrix3 pivot = tm;
    pivot.SetTrans(Point3(0, 0, 3) * object);
    n->CenterPivot(0);
    expect(pivot);
    n->Move(0, Matrix3(), {1, 2, 3}, true, false, true);
    pivot.Translate({1, 2, 3});
    expect(pivot);
    n->ResetPivot(0);
    expect(object);
    if (tm == flat) continue;
    n->Move(0, mirrored, {1, 0, 0}, true, false, false);
    EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans() - object.GetTrans(), mirrored.GetRow(0)), 2e-5);
    EXPECT_LT(Apart(child->GetNodeTM(0), childTM), 2e-5);
  }
}

TEST_F(SceneTest, ATurnedMeshHasTheBoxOfItsVertices) {
  auto* square = new TriObject;
  square->mesh.setNumVerts(4);
  const Point3 corners[] = {{1, 0, 0}, {0, 0, 1}, {-1, 0, 0}, {0, 0, -2}};
  std::copy(corners, corners + 4, square->mesh.verts.begin());
  INode* n = Add(square);
  Matrix3 tm;
  tm.RotateY(0.78539816f);
  tm.Translate({10, 20, 30});
  n->SetNodeTM(0, tm);
  const float h = 0.70710678f;  // half a turn of a right angle moves (0, 0, -2) by (2 h, 2 h)
  const Box3 tight = TightWorldBox(n, 0);
  EXPECT_LT(Apart(tight.Min(), Point3(10 - 2 * h, 20, 30 - 2 * h)), 1e-5);
  EXPECT_LT(Apart(tight.Max(), Point3(10 + h, 20, 30 + h)), 1e-5);
  n->CenterPivot(0);
  EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(10 - h / 2, 20, 30 - h / 2)), 1e-5);
  EXPECT_TRUE(TightWorldBox(Add(), 0).IsEmpty());
}

TEST_F(SceneTest, ProjectionIsTheInverseOfTheRayThroughAPixel) {
  INode* camera = Add(new CameraObject);
  camera->SetNodeTM(0, Turned({2, 3, -4}, 1.1f, {0, 0, 0}));
  std::mt19937 engine(11);
  for (const ViewExp& view : {ViewExp::Perspective({2, 1, -50}, {2, 1, 0}, 0.5f, 301, 501),
                              ViewExp::Orthographic({30, -40, 20}, {0, 0, 5}, 40, 1000, 700),
                              ViewExp::FromCamera(camera, 500, 400)}) {
    std::uniform_real_distribution<float> px(-0.5f, float(view.Width()) - 0.5f),
        py(-0.5f, float(view.Height()) - 0.5f), way(1, 200);
    const bool parallel = view.GetKind() == ViewExp::Kind::Orthographic;
    for (int i = 0; i < 500; ++i) {
      const float x = px(engine), y = py(engine);
      const Ray ray = view.MapScreenToWorldRay(x, y);
      ASSERT_NEAR(Length(ray.dir), 1, 1e-6);
      // A parallel view's ray starts far behind: compare where it passes the eye's plane.
      const double start = parallel ? DotProd(view.ViewToWorld().GetTrans() - ray.p, ray.dir) : 0;
      double sx = 0, sy = 0;
      ASSERT_TRUE(view.ProjectToScreen(ray.p + ray.dir * float(start + way(engine)), sx, sy));
      ASSERT_LT(std::hypot(sx - x, sy - y), 0.1) << view.Width();
    }
  }
  // By hand, looking down from 10 with half the width 10 * tan(45 degrees) = 10 on the ground:
  // pixel 149's middle is at 149.5 of 200, half a pixel (0.05 units) short of three quarters.
  const ViewExp down = ViewExp::Perspective({0, 0, 10}, {0, 0, 0}, 1.5707964f, 200, 100);
  EXPECT_LT(Apart(down.SnapPoint({149, 49}), Point3(4.95f, 0.05f, 0)), 1e-5);
  // A front view sees the ground from its edge, so its grid is the wall it faces.
  const ViewExp front = ViewExp::Orthographic({0, -10, 0}, {0, 0, 0}, 20, 200, 100);
  EXPECT_LT(Apart(front.SnapPoint({149, 49}), Point3(4.95f, 0, 0.05f)), 1e-5);
}

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
  bool HitAt(int x, int y) { return !Pick(FlatView(), {{x, y}}).empty(); }
  bool HitIn(bool crossing, IPoint2 corner, IPoint2 other) {
    return !Pick(FlatView(), {corner, other}, crossing).empty();
  }
  void Save() {
    std::vector<std::byte> bytes;
    ASSERT_TRUE(host::SaveSceneBytes(ip_, "/s.glb", bytes, error_)) << error_;
    glb_ = Raw(bytes);
    const std::string text = GlbText(glb_);
    root_ = json::parse(text);
    chunk_ = glb_.substr(20 + text.size());
  }
  // What was saved, with another description.
  bool OpenWith(const json& root, std::vector<std::string>* losses = nullptr) {
    std::string text = root.dump();
    text.resize((text.size() + 3) / 4 * 4, ' ');
    const std::string glb = GlbOf(Sealed(text), chunk_);
    const auto bytes = std::as_bytes(std::span(glb));
    return host::OpenSceneBytes(ip_, bytes, "it", {losses}, error_);
  }
  INode* First() { return host_.GetScene().AllNodes().front(); }

  std::string glb_, chunk_;  // the second is that of the bytes, with its head of eight
  json root_;
  std::string error_;
};

TEST_F(Shapes, AreObjectsOfAClassOfTheirOwn) {
  auto* object = dynamic_cast<SplineShape*>(CreateInstance(64, Class_ID(10, 0)));
  ASSERT_TRUE(object);
  INode* node = Add(object, {100, 0, 0});
  EXPECT_TRUE(object->IsSubClassOf(Class_ID(10, 0)) && !EvalMesh(node, 0));
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
  INode* copy = Add(static_cast<SplineShape*>(object->Clone(remap)));
  EXPECT_EQ(BitsOf(ShapeOf(copy)->GetShape()), BitsOf(object->GetShape()));
}

TEST_F(Shapes, LinesAreHitWhereTheyRun) {
  INode* node = AddShape({{kSquare, false}});
  EXPECT_TRUE(HitAt(50, 69) && HitAt(70, 50) && HitAt(50, 30));
  EXPECT_FALSE(HitAt(30, 50) || HitAt(50, 50) || HitAt(50, 80)) << "the left side is open";
  ShapeOf(node)->SetShape({{{kSquare, true}, {{{-45, 0, 0}}, true}, {}}});
  node->SetNodeTM(0, TransMatrix({20, 0, 0}));
  EXPECT_TRUE(HitAt(50, 50) && !HitAt(70, 50) && !HitAt(25, 50));
  EXPECT_TRUE(HitIn(false, {40, 20}, {98, 80}) && HitIn(true, {60, 80}, {40, 20}));
  EXPECT_FALSE(HitIn(false, {40, 20}, {60, 80}) || HitIn(true, {80, 60}, {60, 40}));
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
  const std::string saved = glb_;
  const json sound = root_;
  ASSERT_TRUE(OpenWith(sound)) << error_;
  EXPECT_EQ(BitsOf(ShapeOf(First())->GetShape()), bits);
  Save();
  EXPECT_EQ(glb_, saved);

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
  const ViewerFile v(std::as_bytes(std::span(glb_)));
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
      std::vector<std::vector<float>> wanted;
      for (const Point3& p : splines[s].Knots())
        wanted.push_back(mesh == 0 ? std::vector{p.x, p.y, p.z}
                                   : std::vector{p.x + 2 * p.y, 3 * p.y, p.z});
      EXPECT_EQ(v.Rows<float>(lines[s]["attributes"]["POSITION"]), wanted);
    }
  }
}

TEST(CornerNormals, AreMeansByAreaOverASharedGroup) {
  Mesh mesh;
  mesh.setNumVerts(4);
  const Point3 points[] = {{0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {1, 0, 3}};
  for (int i = 0; i < 4; ++i) mesh.setVert(i, points[i]);
  mesh.setNumFaces(2);
  mesh.faces[0].setVerts(0, 1, 2);  // normal +Z, area 1
  mesh.faces[1].setVerts(1, 3, 2);  // normal -X, area 3
  const Point3 up(0, 0, 1), left(-1, 0, 0);
  const auto expect = [&](const Point3& shared0, const Point3& shared1) {
    // Face 0 is 0 1 2, face 1 is 1 3 2: they share vertices 1 and 2.
    const Point3 expected[] = {up, shared0, shared0, shared1, left, shared1};
    const std::vector<Point3> n = CornerNormals(mesh);
    ASSERT_EQ(n.size(), 6u);
    for (size_t i = 0; i < 6; ++i) EXPECT_LT(Apart(n[i], expected[i]), 1e-6) << i;
  };
  expect(up, left);  // no groups
  mesh.faces[0].smGroup = 1, mesh.faces[1].smGroup = 2;
  expect(up, left);
  // Areas 1 and 3: the mean points along (-3, 0, 1).
  const Point3 mean(-3 / std::sqrt(10.0f), 0, 1 / std::sqrt(10.0f));
  mesh.faces[0].smGroup = 5, mesh.faces[1].smGroup = 6;
  expect(mean, mean);
}

// A closed, outward surface: each directed edge once, its reverse once; volume by the sum of
// tetrahedra to the origin.
double ClosedVolume(const Mesh& mesh) {
  std::set<std::pair<std::uint32_t, std::uint32_t>> edges;
  double volume = 0;
  for (const Face& f : mesh.faces) {
    for (int k = 0; k < 3; ++k) EXPECT_TRUE(edges.emplace(f.v[k], f.v[(k + 1) % 3]).second);
    volume += DotProd(mesh.verts[f.v[0]], CrossProd(mesh.verts[f.v[1]], mesh.verts[f.v[2]])) / 6.0;
  }
  for (const auto& [from, to] : edges) EXPECT_TRUE(edges.contains({to, from})) << from << ' ' << to;
  return volume;
}

TEST(Primitives, AreClosedOutwardAndOfTheirSize) {
  for (const int segments : {3, 4, 5, 7, 32}) {
    SphereObject sphere;
    sphere.SetSize(2, segments);
    sphere.UpdateMesh(0);
    SCOPED_TRACE(segments);
    EXPECT_EQ(sphere.mesh.FirstFault(), "");
    for (const Point3& v : sphere.mesh.verts) EXPECT_NEAR(Length(v), 2, 1e-6);
    const double full = 4.0 / 3 * 3.14159265 * 8, volume = ClosedVolume(sphere.mesh);
    EXPECT_GT(volume, segments == 32 ? 0.97 * full : 0);
    EXPECT_LT(volume, full);
  }
}

TEST(Texts, GoToUtf8AndBackAndWhatIsBrokenIsMarked) {
  const WStr text = L"a\u00E9\u20AC\U0001F33E";
  const std::string bytes = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8C\xBE";
  EXPECT_EQ(ToUtf8(text), bytes);
  EXPECT_EQ(FromUtf8(bytes), text);
  // Longer than needed, cut off, half of a pair, beyond the last code: a mark for each byte.
  for (const char* broken : {"\x80", "\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    EXPECT_EQ(FromUtf8(broken), WStr(std::strlen(broken), L'\uFFFD'));
}

bool Same(const Mesh& a, const Mesh& b) {
  return std::equal(a.verts.begin(), a.verts.end(), b.verts.begin(), b.verts.end()) &&
         a.faces == b.faces && a.maps == b.maps;
}
template <class Proxy>
Proxy* Made(Class_ID id) {
  auto* proxy = dynamic_cast<Proxy*>(CreateInstance(GEOMOBJECT_CLASS_ID, id));
  EXPECT_TRUE(proxy && proxy->ClassID() == id && proxy->SuperClassID() == 16);
  return proxy;
}
Mesh Converted(Object* object) { return *MeshOf(object, 0).mesh; }

TEST(MoksetProxy, HoldsAMeshInItsTables) {
  host::Host host;
  auto* proxy = Made<MoksetProxyObject>({0x4a93d413, 0xc235d2b7});
  host.Services().CreateObjectNode(proxy);
  Mesh mesh = BoxMeshOf(2, 4, 6);
  mesh.faces[3].smGroup = 0x80000001u;
  proxy->SetMesh(mesh);
  IParamBlock2& b = *proxy->GetParamBlock(0);
  EXPECT_TRUE(b.GetPoint3(1) == Point3(1, 2, 6) && b.GetPoint3(2) == Point3(-1, -2, 0));
  EXPECT_TRUE(Same(Converted(proxy), mesh));
  for (const Point3& p : {Point3(0, 1, 8), Point3(-1, 0, 1), Point3(0, NAN, 1), Point3(0, 1, 7)}) {
    b.SetValue(5, 0, p, 2);
    EXPECT_EQ(Converted(proxy).getNumVerts(), p.z == 7 ? 8 : 0);
  }
  b.Delete(8, 0, 1);
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0) << "texture faces don't fit";
  mesh.setNumVerts(7000, true);
  proxy->SetMesh(mesh);
  ASSERT_EQ(b.Count(46), 3000);
  for (int i = 1; i < 3000; ++i) EXPECT_LT(b.GetInt(46, 0, i - 1), b.GetInt(46, 0, i));
  void* asked = proxy->GetInterface(Interface_ID{0x70de6ee5, 0x70ab16b7});
  ASSERT_TRUE(asked && !proxy->GetInterface(Interface_ID{0x70de6ee5, 0}));
  static_cast<MoksetProxyInterface*>(asked)->SetProxyFile(L"x.Vorn");
  EXPECT_TRUE(b.GetInt(50) == 1 && b.GetStr(51) == WStr(L"x.Vorn") && b.Count(3) == 3000);
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0);
}

template <class Proxy>
void ExpectDisplay(Class_ID id, ParamID display, int whole) {
  host::Host host;
  auto* proxy = Made<Proxy>(id);
  host.Services().CreateObjectNode(proxy);
  Mesh mesh = BoxMeshOf(2, 3, 4);
  mesh.setNumVerts(9, true), mesh.setVert(8, {0, 9, 5});
  theHold.Begin(), proxy->SetMesh(mesh), theHold.Accept(L"Mesh");
  for (const int shown : {0, 1, 2, 3, 4, whole}) {
    proxy->GetParamBlock(0)->SetValue(display, 0, shown);
    EXPECT_EQ(Converted(proxy).getNumVerts(), shown == whole ? 9 : 8);
    EXPECT_EQ(Converted(proxy).getBoundingBox(), mesh.getBoundingBox());
  }
  RemapDir remap;
  INode* copy = host.Services().CreateObjectNode(static_cast<Object*>(proxy->Clone(remap)));
  theHold->Undo();
  EXPECT_EQ(Converted(proxy).getNumVerts(), 0);
  EXPECT_TRUE(Same(*EvalMesh(copy, 0).mesh, mesh)) << "a life of its own";
}

TEST(RendererProxies, ShowWhatTheirDisplayParameterTells) {
  ExpectDisplay<VRayProxyObject>({0x6cf53873, 0x1ff85498}, 1, 4);
  ExpectDisplay<CoronaProxyObject>({0x2b0264bc, 0x5ec07f5}, 2, 3);
}

}  // namespace
