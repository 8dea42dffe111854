#include "host/scene/scene.h"

#include <random>

#include "host/scene/camera.h"
#include "tests/host/apart.h"
#include "tests/host/extras.h"
#include "tests/host/recording_owner.h"

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
  EXPECT_EQ(gone, 0);
  {
    const Pin<Link> pin(target);
    second.DeleteReference(3);
    first.ReplaceReference(0, target);  // back among the living before the pin goes
  }
  EXPECT_EQ(gone, 0);
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

class SceneTest : public Staged {};

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
  std::vector<INode*> children;
  std::vector<Matrix3> places;
  for (int i = 0; i < 4; ++i) {
    children.push_back(Add());
    children.back()->SetNodeTM(0, TransMatrix({float(i), 0, 7}));
    parent->AttachChild(children.back(), i % 2);  // every other one keeps its world matrix
    parent->SetNodeTM(0, tm);
    places.push_back(TransMatrix({float(i), 0, 7}));
    if (i % 2 == 0) places.back() = places.back() * tm;
    EXPECT_LT(Apart(children.back()->GetNodeTM(0), places.back()), 3e-6);
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

// A square on its corner stands lower once it is turned onto a side; the box of its box rises.
TEST_F(SceneTest, ATurnedMeshHasTheBoxOfItsVertices) {
  auto* square = new TriObject;
  square->mesh.setNumVerts(4);
  square->mesh.verts[0] = {1, 0, 0}, square->mesh.verts[1] = {0, 0, 1};
  square->mesh.verts[2] = {-1, 0, 0}, square->mesh.verts[3] = {0, 0, -2};
  INode* n = Add(square);
  Matrix3 tm;
  tm.RotateY(0.78539816f);
  tm.Translate({10, 20, 30});
  n->SetNodeTM(0, tm);
  const float h = 0.70710678f;  // half a turn of a right angle moves (0, 0, -2) by (2 h, 2 h)
  const Box3 tight = TightWorldBox(n, 0);
  EXPECT_LT(Apart(tight.Min() + tight.Max(), Point3(20 - h, 40, 60 - h)), 1e-5);
  EXPECT_LT(Apart(tight.Max() - tight.Min(), Point3(3 * h, 0, 3 * h)), 1e-5);
  n->CenterPivot(0);
  EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(10 - h / 2, 20, 30 - h / 2)), 1e-5);
  Box3 loose;
  square->GetWorldBoundBox(0, n, nullptr, loose);
  EXPECT_GT(loose.Max().z - loose.Min().z, 4 * h);
  EXPECT_TRUE(TightWorldBox(Add(), 0).IsEmpty());
}

TEST_F(SceneTest, ProjectionIsTheInverseOfTheRayThroughAPixel) {
  INode* camera = Add(new CameraObject);
  Matrix3 tm;
  tm.RotateX(1.1f), tm.RotateZ(0.4f), tm.Scale({2, 3, -4});
  camera->SetNodeTM(0, tm);
  std::mt19937 engine(11);
  for (const ViewExp& view : {ViewExp::Perspective({30, -40, 20}, {0, 0, 5}, 0.8f, 800, 600),
                              ViewExp::Perspective({2, 1, -50}, {2, 1, 0}, 0.5f, 301, 501),
                              ViewExp::Orthographic({0, 0, 100}, {0, 0, 0}, 60, 800, 600),
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
      ASSERT_NEAR(sx, x, 0.1) << view.Width();
      ASSERT_NEAR(sy, y, 0.1) << view.Width();
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

}  // namespace
