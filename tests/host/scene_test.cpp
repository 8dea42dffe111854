#include "host/scene/scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <numbers>
#include <random>

#include "host/host.h"
#include "host/scene/builtinclass.h"
#include "host/scene/camera.h"
#include "host/scene/primitives.h"
#include "recording_owner.h"

namespace {

using Owner = RecordingOwner;

double Apart(const Point3& a, const Point3& b) {
  double worst = 0;
  for (int i = 0; i < 3; ++i) {
    const double d = std::fabs(double(a[i]) - b[i]);
    worst = std::isnan(d) ? std::numeric_limits<double>::infinity() : std::max(worst, d);
  }
  return worst;
}

double Apart(const Matrix3& a, const Matrix3& b) {
  double worst = 0;
  for (int i = 0; i < 4; ++i) worst = std::max(worst, Apart(a.GetRow(i), b.GetRow(i)));
  return worst;
}

void AppendNode(Owner& owner, INode* n) { owner.Block().Append(Owner::kNodes, 1, &n); }

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
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                             RefMessage) override {
    ++told;
    lastTarget = target;
    if (const auto handler = then) handler();  // a copy: handlers take themselves out
    return passOn ? REF_SUCCEED : REF_FAIL;
  }
  int told = 0;
  bool passOn = true;
  ReferenceTarget* lastTarget = nullptr;
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
  first.ReplaceReference(1, target);
  second.ReplaceReference(3, target);
  EXPECT_EQ(first.ReplaceReference(4, target), REF_FAIL);
  EXPECT_EQ(first.ReplaceReference(-1, target), REF_FAIL);
  first.DeleteReference(0);
  second.DeleteReference(3);
  EXPECT_EQ(gone, 0);
  {
    const Pin<Link> pin(target);
    const Pin<Link> copy = pin;
    first.DeleteReference(1);
    EXPECT_EQ(gone, 0);
    EXPECT_FALSE(target->HasDependents());
  }
  EXPECT_EQ(gone, 1);

  // Back among the living before the pin goes.
  target = new Link(&gone);
  first.ReplaceReference(0, target);
  {
    const Pin<Link> pin(target);
    first.DeleteReference(0);
    second.ReplaceReference(0, target);
  }
  EXPECT_EQ(gone, 1);
  second.DeleteAllRefsFromMe();
  EXPECT_EQ(gone, 2);
  { const Pin<Link> neverReferredTo(&first); }
}

TEST(References, ADyingTargetIsForgottenByAll) {
  Link first, second;
  auto* target = new Link;
  first.ReplaceReference(0, target), first.ReplaceReference(2, target);
  second.ReplaceReference(1, target);
  delete target;
  for (int i = 0; i < 4; ++i) {
    EXPECT_EQ(first.GetReference(i), nullptr);
    EXPECT_EQ(second.GetReference(i), nullptr);
  }
}

TEST(References, AMessageTellsEachDependentOnceInTheOrderOfReferring) {
  Link target, a, b, above;
  std::vector<int> order;
  a.then = [&] { order.push_back(1); };
  b.then = [&] { order.push_back(2); };
  above.then = [&] { order.push_back(3); };
  b.ReplaceReference(0, &target);
  a.ReplaceReference(0, &target);
  b.ReplaceReference(1, &target);
  above.ReplaceReference(0, &a);
  Change(target);
  EXPECT_EQ(order, (std::vector<int>{2, 1, 3}));
  EXPECT_EQ(above.lastTarget, &a) << "the direct reference that passes it on";
  a.passOn = false;
  Change(target);
  EXPECT_EQ(above.told, 1);
}

TEST(References, ALoopIsWalkedOnce) {
  Link a, b, c;
  a.ReplaceReference(0, &b), b.ReplaceReference(0, &c), c.ReplaceReference(0, &a);
  a.ReplaceReference(1, &a);
  Change(c);
  EXPECT_EQ(b.told, 1);
  EXPECT_EQ(a.told, 1);
  EXPECT_EQ(c.told, 0) << "the origin isn't told of itself";
  a.DeleteAllRefsFromMe(), b.DeleteAllRefsFromMe(), c.DeleteAllRefsFromMe();
}

TEST(References, HandlersMayChangeWhoRefersDuringAMessage) {
  int gone = 0;
  Link target, first, last;
  auto* middle = new Link(&gone);
  Link keeper;
  keeper.ReplaceReference(0, middle);
  first.ReplaceReference(0, &target), middle->ReplaceReference(0, &target);
  last.ReplaceReference(0, &target);
  first.then = [&] {
    first.then = nullptr;
    keeper.DeleteReference(0);  // the middle one dies before its turn
    keeper.ReplaceReference(1, &target);
    Change(target);
  };
  Change(target);
  EXPECT_EQ(gone, 1);
  EXPECT_EQ(first.told, 2);
  EXPECT_EQ(last.told, 2);
  EXPECT_EQ(keeper.told, 1) << "who comes during a message hears the next";

  // The origin loses its last reference while its message runs.
  auto* origin = new Link(&gone);
  Link one, two;
  one.ReplaceReference(0, origin), two.ReplaceReference(0, origin);
  one.then = [&] { one.DeleteReference(0), two.DeleteReference(0); };
  Change(*origin);
  EXPECT_EQ(two.told, 0);
  EXPECT_EQ(gone, 2);
}

class SceneTest : public testing::Test {
 protected:
  Scene& TheScene() { return host.GetScene(); }
  INode* NewNode(Object* object = nullptr) { return TheScene().CreateObjectNode(object); }
  INode* NewBox(float width, float length, float height) {
    auto* box = new BoxObject;
    box->SetSize(width, length, height);
    return NewNode(box);
  }
  Box3 WorldBox(INode* n) {
    Box3 box;
    n->GetObjectRef()->GetWorldBoundBox(0, n, nullptr, box);
    return box;
  }
  host::Host host;
};

TEST_F(SceneTest, AWalkOverDependentsMeetsNodesInTheOrderTheyCameToRefer) {
  struct Walk : DependentEnumProc {
    std::vector<ReferenceTarget*> met;
    bool stopAtNode = false;
    bool proc(ReferenceTarget* d) override {
      met.push_back(d);
      return stopAtNode && d->SuperClassID() == BASENODE_CLASS_ID;
    }
  } all, first;
  auto* box = new BoxObject;
  INode* a = NewNode(box);
  INode* b = NewNode(box);
  EXPECT_FALSE(box->DoEnumDependents(&all));
  EXPECT_EQ(all.met, (std::vector<ReferenceTarget*>{a, b})) << "a node ends its path";
  first.stopAtNode = true;
  EXPECT_TRUE(box->DoEnumDependents(&first));
  EXPECT_EQ(first.met, std::vector<ReferenceTarget*>{a});

  Owner owner;
  AppendNode(owner, a);
  Walk through;
  owner.Block().DoEnumDependents(&through);
  EXPECT_EQ(through.met, std::vector<ReferenceTarget*>{&owner});
}

TEST_F(SceneTest, AChangedNodeReachesTheOwnerUnderTheNameOfItsParameter) {
  Owner owner;
  INode* n = NewNode();
  owner.Block().SetValue(Owner::kCamera, 0, n);
  owner.TakeLog();
  n->SetNodeTM(0, TransMatrix({1, 2, 3}));
  EXPECT_EQ(owner.TakeLog(), std::vector<std::string>{"change 7"});
  EXPECT_EQ(owner.Block().LastNotifyParamID(), -1);

  INode* other = NewNode();
  bool nested = false;
  owner.onMessage = [&](const SeenMessage&) {
    if (std::exchange(nested, true)) return;
    owner.Block().SetValue(Owner::kNumber, 0, 3);
    EXPECT_EQ(owner.Block().LastNotifyParamID(), Owner::kNodes);
  };
  AppendNode(owner, other);
}

TEST_F(SceneTest, ANodeMayBeDeletedByTheHandlerOfItsOwnMessage) {
  Owner owner;
  INode* n = NewNode();
  AppendNode(owner, n);
  AppendNode(owner, n);
  owner.onMessage = [&](const SeenMessage&) {
    owner.onMessage = nullptr;
    owner.Block().Delete(Owner::kNodes, 0, 2);
    GetCOREInterface()->DeleteNode(n, false, false);
  };
  n->SetName(L"Gone");
  EXPECT_TRUE(TheScene().AllNodes().empty());
}

// A block that goes with its owner, while one of its messages runs.
TEST_F(SceneTest, ABlockOutlivesItsMessageAndKnowsThatItsOwnerIsGone) {
  auto* owner = new Owner;
  const Pin<IParamBlock2> block(&owner->Block());
  EXPECT_EQ(block->GetOwner(), owner);
  owner->onMessage = [&](const SeenMessage&) {
    owner->onMessage = nullptr;
    owner->DeleteReference(0);
  };
  block->SetValue(Owner::kNumber, 0, 4);
  EXPECT_EQ(block->GetOwner(), nullptr);
  EXPECT_EQ(block->GetInt(Owner::kNumber), 4);
  owner->DeleteThis();
}

// An object with a block, as a plug-in's.
class Holder : public BoxObject {
 public:
  Holder() { ReplaceReference(0, new IParamBlock2(Owner::Desc(), this)), ++alive; }
  ~Holder() override { --alive, DeleteAllRefsFromMe(); }
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return pblock2; }
  static inline int alive = 0;

 protected:
  void SetReference(int, ReferenceTarget* t) override { pblock2 = static_cast<IParamBlock2*>(t); }
};

TEST(HostLife, NodesThatReferToOneAnotherGoWithTheHost) {
  {
    host::Host host;
    Holder *a = new Holder, *b = new Holder;
    INode* na = host.GetScene().CreateObjectNode(a);
    INode* nb = host.GetScene().CreateObjectNode(b);
    a->pblock2->Append(Owner::kNodes, 1, &nb);
    b->pblock2->Append(Owner::kNodes, 1, &na);
    b->pblock2->Append(Owner::kNodes, 1, &nb);
    EXPECT_EQ(Holder::alive, 2);
  }
  EXPECT_EQ(Holder::alive, 0);
}

TEST(HostLife, TheNewestHostIsInForce) {
  host::Host outer;
  Interface* services = GetCOREInterface();
  {
    host::Host inner;
    EXPECT_NE(GetCOREInterface(), services);
    theHold.Begin();
    inner.GetScene().CreateObjectNode(nullptr);
    theHold.Accept(L"Inner");
  }
  EXPECT_EQ(GetCOREInterface(), services);
  EXPECT_EQ(theHold->UndoCount(), 0u);
}

TEST_F(SceneTest, ABroadcastRunsInOrderOverThoseWhoAreStillThere) {
  struct Listener {
    std::vector<std::string>* heard;
    std::string name;
    std::function<void()> then;
    static void Hear(void* self, NotifyInfo* info) {
      auto* l = static_cast<Listener*>(self);
      l->heard->push_back(l->name + std::to_string(info->intcode) + "@" + std::to_string(info->time));
      if (const auto handler = l->then) handler();
    }
  };
  std::vector<std::string> heard;
  Listener a{&heard, "a", {}}, b{&heard, "b", {}}, c{&heard, "c", {}}, late{&heard, "late", {}};
  for (Listener* l : {&a, &b, &c}) RegisterNotification(Listener::Hear, l, NOTIFY_PRE_RENDER);
  RegisterNotification(Listener::Hear, &c, NOTIFY_POST_RENDER);
  a.then = [&] {
    a.then = nullptr;
    UnRegisterNotification(Listener::Hear, &b, NOTIFY_PRE_RENDER);
    RegisterNotification(Listener::Hear, &late, NOTIFY_PRE_RENDER);
    BroadcastNotification({NOTIFY_POST_RENDER, 3});
  };
  BroadcastNotification({NOTIFY_PRE_RENDER, 160});
  EXPECT_EQ(heard, (std::vector<std::string>{"a20@160", "c21@3", "c20@160"}));
  heard.clear();
  BroadcastNotification({NOTIFY_PRE_RENDER, 0});
  EXPECT_EQ(heard, (std::vector<std::string>{"a20@0", "c20@0", "late20@0"}));
  UnRegisterNotification(Listener::Hear, &b, NOTIFY_PRE_RENDER);
}

TEST_F(SceneTest, ChildrenStandUnderTheirParentsMatrix) {
  INode *parent = NewNode(), *child = NewNode(), *grandchild = NewNode();
  Matrix3 turned;
  turned.RotateZ(std::numbers::pi_v<float> / 2);
  turned.SetTrans({10, 0, 0});
  child->SetNodeTM(0, TransMatrix({1, 0, 0}));
  parent->AttachChild(child, false);
  parent->SetNodeTM(0, turned);
  EXPECT_LT(Apart(child->GetNodeTM(0).GetTrans(), Point3(10, 1, 0)), 1e-6);
  child->AttachChild(grandchild, true);
  EXPECT_LT(Apart(grandchild->GetNodeTM(0), Matrix3()), 2e-6) << "keeps its world matrix";

  grandchild->SetNodeTM(0, TransMatrix({3, 4, 5}));
  const Matrix3 before = grandchild->GetNodeTM(0);
  INode* both[] = {parent, child};
  EXPECT_EQ(TheScene().DeleteNodes(both), 2);
  EXPECT_EQ(grandchild->GetParentNode(), TheScene().GetRootNode());
  EXPECT_LT(Apart(grandchild->GetNodeTM(0), before), 2e-6);
  EXPECT_EQ(TheScene().AllNodes(), std::vector<INode*>{grandchild});
  INode* root = TheScene().GetRootNode();
  EXPECT_EQ(TheScene().DeleteNodes({&root, 1}), 0);
}

TEST_F(SceneTest, ADeletedParentComesBackWithItsChildrenInTheirOrder) {
  INode* parent = NewNode();
  Matrix3 tm = TransMatrix({1, 2, 3});
  tm.RotateX(0.5f);
  parent->SetNodeTM(0, tm);
  std::vector<INode*> children;
  std::vector<Matrix3> places;
  for (int i = 0; i < 4; ++i) {
    children.push_back(NewNode());
    children.back()->SetNodeTM(0, TransMatrix({float(i), 0, 7}));
    parent->AttachChild(children.back());
    places.push_back(children.back()->GetNodeTM(0));
  }
  INode* after = NewNode();
  theHold.Begin();
  GetCOREInterface()->DeleteNode(parent, false, false);
  theHold.Accept(L"Delete parent");
  for (int round = 0; round < 2; ++round) {
    for (size_t i = 0; i < 4; ++i) {
      EXPECT_EQ(children[i]->GetParentNode(), TheScene().GetRootNode());
      EXPECT_LT(Apart(children[i]->GetNodeTM(0), places[i]), 3e-6);
    }
    theHold->Undo();
    for (int i = 0; i < 4; ++i) EXPECT_EQ(parent->GetChildNode(i), children[size_t(i)]);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(children[i]->GetNodeTM(0), places[i]);
    EXPECT_EQ(TheScene().GetRootNode()->GetChildNode(0), parent) << "at its old place";
    EXPECT_EQ(TheScene().GetRootNode()->GetChildNode(1), after);
    theHold->Redo();
  }
}

TEST_F(SceneTest, PivotOperationsLeaveTheObjectAndTheChildrenWhereTheyAre) {
  Matrix3 plain = TransMatrix({5, 6, 7});
  Matrix3 turned = plain;
  turned.RotateX(0.7f), turned.RotateZ(-2.0f);
  Matrix3 mirrored = turned;
  mirrored.Scale({-1, 2, 0.5f});
  Matrix3 shifted = TransMatrix({1, 1, 1});
  shifted.RotateY(0.3f);

  for (const Matrix3& tm : {plain, turned, mirrored}) {
    for (const Matrix3& offset : {Matrix3(), shifted}) {
      INode *n = NewBox(2, 4, 6), *child = NewNode();
      n->SetNodeTM(0, tm);
      n->SetObjectOffset(offset);
      n->AttachChild(child);
      child->SetNodeTM(0, TransMatrix({-3, 2, 9}));
      const Matrix3 object = n->GetObjectTM(0);
      const auto same = [&] {
        EXPECT_LT(Apart(n->GetObjectTM(0), object), 8e-6);
        EXPECT_LT(Apart(child->GetNodeTM(0), TransMatrix({-3, 2, 9})), 8e-6);
        EXPECT_LT(Apart(n->GetObjectOffset() * n->GetNodeTM(0), object), 8e-6);
      };
      n->CenterPivot(0);
      same();
      // The middle of the box under the object matrix is the middle of its world box.
      EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(0, 0, 3) * object), 1e-5);
      EXPECT_LT(Apart(n->GetNodeTM(0).GetRow(0), tm.GetRow(0)), 1e-6) << "axes stay";

      n->Move(0, Matrix3(), {1, 2, 3}, true, false, true);
      same();
      EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(0, 0, 3) * object + Point3(1, 2, 3)), 1e-5);

      n->ResetPivot(0);
      same();
      EXPECT_LT(Apart(n->GetNodeTM(0), object), 1e-6);
      EXPECT_LT(Apart(n->GetObjectOffset(), Matrix3()), 3e-6);
    }
  }
}

TEST_F(SceneTest, MovesOfTheWholeNodeAndOfItsObject) {
  INode *n = NewBox(2, 2, 2), *child = NewNode();
  n->AttachChild(child);
  Matrix3 axis;
  axis.RotateZ(std::numbers::pi_v<float> / 2);
  n->Move(0, axis, {3, 0, 0}, true, false, false);
  EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(0, 3, 0)), 1e-6);
  EXPECT_EQ(child->GetNodeTM(0).GetTrans(), Point3(0, 0, 0));
  n->Move(0, Matrix3(), {1, 0, 0}, true, true, false);
  EXPECT_LT(Apart(child->GetNodeTM(0).GetTrans(), Point3(1, 0, 0)), 1e-6);

  n->CenterPivot(0, true);  // the object goes to the pivot
  EXPECT_LT(Apart(WorldBox(n).Center(), n->GetNodeTM(0).GetTrans()), 1e-6);
  EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), Point3(1, 3, 0)), 1e-6);
  EXPECT_LT(Apart(n->GetObjOffsetPos(), Point3(0, 0, -1)), 1e-6);
}

TEST_F(SceneTest, AFlatNodeKeepsItsPivotAndNothingIsLost) {
  INode* n = NewBox(2, 2, 2);
  Matrix3 flat = TransMatrix({1, 2, 3});
  flat.SetRow(2, {0, 0, 0});
  n->SetNodeTM(0, flat);
  for (int way = 0; way < 3; ++way) {
    if (way == 0) n->CenterPivot(0);
    if (way == 1) n->ResetPivot(0);
    if (way == 2) n->Move(0, Matrix3(), {1, 1, 1}, true, false, true);
    EXPECT_EQ(n->GetNodeTM(0), flat);
    EXPECT_EQ(n->GetObjectOffset(), Matrix3());
  }
  INode* empty = NewNode();
  empty->CenterPivot(0);
  EXPECT_EQ(empty->GetNodeTM(0), Matrix3());
}

TEST_F(SceneTest, NamesLayersAndEvaluation) {
  auto* box = new BoxObject;
  EXPECT_EQ(NewNode(box)->GetName(), L"Box001");
  EXPECT_EQ(NewNode(box)->GetName(), L"Box002");
  EXPECT_EQ(TheScene().UniqueName(L"Box"), L"Box");
  EXPECT_EQ(TheScene().UniqueName(L"Box002"), L"Box002001");
  EXPECT_EQ(TheScene().FindNodes(L"Box001").size(), 1u);

  ILayerManager& layers = TheScene().Layers();
  ILayer* made = layers.CreateLayer(L"Vegetation");
  EXPECT_EQ(layers.CreateLayer(L"Vegetation"), nullptr);
  EXPECT_EQ(layers.GetCurrentLayer(), layers.GetDefaultLayer());
  EXPECT_FALSE(layers.SetCurrentLayer(L"None such"));
  EXPECT_TRUE(layers.SetCurrentLayer(L"Vegetation"));
  INode* n = NewNode(box);
  EXPECT_EQ(n->GetReference(6), made);
  layers.GetDefaultLayer()->AddToLayer(n);
  EXPECT_EQ(n->GetLayer(), layers.GetDefaultLayer());
  made->Hide(true);
  EXPECT_FALSE(n->IsHidden()) << "a node's flag is its own";

  n->Hide(true);
  EXPECT_EQ(n->EvalWorldState(0).obj, box);
  EXPECT_EQ(n->EvalWorldState(0, false).obj, nullptr);
  EXPECT_EQ(NewNode()->EvalWorldState(0).obj, nullptr);
  EXPECT_TRUE(EvalMesh(n, 0));
  EXPECT_FALSE(EvalMesh(NewNode(new CameraObject), 0));
  EXPECT_FALSE(EvalMesh(nullptr, 0));
}

ViewExp SomeView(int which, INode* camera) {
  switch (which) {
    case 0: return ViewExp::Perspective({30, -40, 20}, {0, 0, 5}, 0.8f, 800, 600);
    case 1: return ViewExp::Perspective({0, 0, 50}, {0, 0, 0}, 1.2f, 301, 501);
    case 2: return ViewExp::Perspective({2, 1, -50}, {2, 1, 0}, 0.5f, 640, 480);
    case 3: return ViewExp::Orthographic({0, 0, 100}, {0, 0, 0}, 60, 800, 600);
    case 4: return ViewExp::Orthographic({30, -40, 20}, {0, 0, 5}, 40, 1000, 700);
    case 5: return ViewExp::Orthographic({0, -100, 0}, {0, 0, 0}, 25, 640, 480);
    default: return ViewExp::FromCamera(camera, 500, 400);
  }
}

TEST_F(SceneTest, ProjectionIsTheInverseOfTheRayThroughAPixel) {
  auto* lens = new CameraObject;
  INode* camera = NewNode(lens);
  lens->SetFOV(0, 1.0f);
  Matrix3 tm;
  tm.RotateX(1.1f), tm.RotateZ(0.4f), tm.Scale({2, 3, -4});
  tm.SetTrans({3, 4, 30});
  camera->SetNodeTM(0, tm);
  std::mt19937 engine(11);
  for (int which = 0; which < 7; ++which) {
    const ViewExp view = SomeView(which, camera);
    std::uniform_real_distribution<float> px(-0.5f, float(view.Width()) - 0.5f),
        py(-0.5f, float(view.Height()) - 0.5f), way(1, 200);
    const bool parallel = view.GetKind() == ViewExp::Kind::Orthographic;
    for (int i = 0; i < 500; ++i) {
      const float x = px(engine), y = py(engine);
      const Ray ray = view.MapScreenToWorldRay(x, y);
      ASSERT_NEAR(Length(ray.dir), 1, 1e-6);
      // A parallel view's ray starts far behind: compare where it passes the eye's plane.
      const double start = parallel ? DotProd(view.ViewToWorld().GetTrans() - ray.p, ray.dir) : 0;
      const double t = start + way(engine);
      const Point3 hit(float(ray.p.x + t * ray.dir.x), float(ray.p.y + t * ray.dir.y),
                       float(ray.p.z + t * ray.dir.z));
      double sx = 0, sy = 0;
      ASSERT_TRUE(view.ProjectToScreen(hit, sx, sy));
      ASSERT_NEAR(sx, x, 0.1) << "view " << which;
      ASSERT_NEAR(sy, y, 0.1) << "view " << which;
      if (parallel) {
        ASSERT_GT(start, 9999);
      } else {
        ASSERT_FALSE(view.ProjectToScreen(ray.p - ray.dir * 5.0f, sx, sy)) << "behind the eye";
      }
    }
  }
}

TEST_F(SceneTest, RaysAndGridPointsByHand) {
  // Looking down from 10 with half the width 10 * tan(45 degrees) = 10 on the ground.
  const float right = std::numbers::pi_v<float> / 2;
  const ViewExp down = ViewExp::Perspective({0, 0, 10}, {0, 0, 0}, right, 200, 100);
  EXPECT_EQ(down.ViewToWorld().GetRow(0), Point3(1, 0, 0));
  EXPECT_EQ(down.ViewToWorld().GetRow(1), Point3(0, 1, 0));
  // Pixel 149's middle is at 149.5 of 200, half a pixel (0.05 units) short of three quarters.
  EXPECT_LT(Apart(down.SnapPoint({149, 49}), Point3(4.95f, 0.05f, 0)), 1e-5);
  EXPECT_LT(Apart(down.SnapPoint({0, 0}), Point3(-9.95f, 4.95f, 0)), 1e-5);
  IPoint2 snapped;
  down.SnapPoint({7, 8}, snapped, nullptr, 1);
  EXPECT_EQ(snapped, (IPoint2{7, 8}));

  const ViewExp top = ViewExp::Orthographic({0, 0, 10}, {0, 0, 0}, 20, 200, 100);
  EXPECT_LT(Apart(top.SnapPoint({149, 49}), Point3(4.95f, 0.05f, 0)), 1e-5);
  // A front view sees the ground from its edge, so its grid is the wall it faces.
  const ViewExp front = ViewExp::Orthographic({0, -10, 0}, {0, 0, 0}, 20, 200, 100);
  EXPECT_LT(Apart(front.SnapPoint({149, 49}), Point3(4.95f, 0, 0.05f)), 1e-5);
  const ViewExp side = ViewExp::Orthographic({10, 0, 0}, {0, 0, 0}, 20, 200, 100);
  EXPECT_LT(Apart(side.SnapPoint({149, 49}), Point3(0, 4.95f, 0.05f)), 1e-5);
  EXPECT_LT(Apart(Point3(top.GetCPDisp({0, 0, 0}, {1, 1, 0}, {100, 50}, {130, 10}, true), 0, 0),
                  Point3(5, 0, 0)),
            1e-5)
      << "3 along X, 4 along Y";
  EXPECT_LT(top.GetCPDisp({0, 0, 0}, {1, 1, 0}, {130, 10}, {100, 50}, true), 0);

  // A slanted parallel view, small beside the distance that its rays start at.
  const ViewExp slanted = ViewExp::Orthographic({300, -400, 200}, {0, 0, 0}, 2, 1000, 1000);
  for (const IPoint2 at : {IPoint2{0, 0}, IPoint2{777, 321}, IPoint2{999, 999}}) {
    const Point3 p = slanted.SnapPoint(at);
    double x = 0, y = 0;
    EXPECT_EQ(p.z, 0);
    slanted.ProjectToScreen(p, x, y);
    EXPECT_NEAR(x, at.x, 0.1);
    EXPECT_NEAR(y, at.y, 0.1);
  }

  // The ray above the horizon meets the ground nowhere; the answer is finite and on it.
  const ViewExp level = ViewExp::Perspective({0, 0, 5}, {0, 10, 5}, right, 100, 100);
  const Point3 far = level.SnapPoint({50, 10});
  EXPECT_EQ(far.z, 0);
  EXPECT_GT(far.y, 1000);
  EXPECT_LT(far.y, 10001);
}

TEST_F(SceneTest, ACameraViewFollowsItsNode) {
  auto* lens = new CameraObject;
  INode* camera = NewNode(lens);
  const ViewExp view = ViewExp::FromCamera(camera, 100, 100);
  lens->SetFOV(0, 1.25f);
  camera->SetNodeTM(0, TransMatrix({1, 2, 3}));
  EXPECT_EQ(view.GetViewCamera(), camera);
  EXPECT_EQ(view.Fov(), 1.25f);
  EXPECT_EQ(view.MapScreenToWorldRay(49.5f, 49.5f).p, Point3(1, 2, 3));
  EXPECT_EQ(view.MapScreenToWorldRay(49.5f, 49.5f).dir, Point3(0, 0, -1));
  EXPECT_TRUE(view.IsAlive());
  INode* gone[] = {camera};
  TheScene().DeleteNodes(gone);
  EXPECT_FALSE(view.IsAlive());
  theHold->Undo();
  EXPECT_TRUE(view.IsAlive());
  EXPECT_EQ(ViewExp::Perspective({0, 0, 1}, {0, 0, 0}, 1, 1, 1).GetViewCamera(), nullptr);
}

TEST_F(SceneTest, ARedrawAskedForInsideARedrawComesAfterIt) {
  struct Callback : RedrawViewsCallback {
    std::function<void()> then;
    int calls = 0, depth = 0;
    void proc(Interface*) override {
      ++calls;
      EXPECT_EQ(depth++, 0) << "never inside itself";
      if (then) then();
      --depth;
    }
  } asks, other;
  std::vector<TimeValue> drawn;
  host.Views().SetPainter([&](TimeValue t) { drawn.push_back(t); });
  Interface* ip = GetCOREInterface();
  ip->RegisterRedrawViewsCallback(&asks);
  ip->RegisterRedrawViewsCallback(&asks);
  asks.then = [&] {
    if (asks.calls > 1) return;
    ip->RedrawViews(ip->GetTime());
    ip->SetTime(160);
    EXPECT_EQ(drawn.size(), 1u);
    EXPECT_TRUE(host.Views().IsDrawing());
    ip->RegisterRedrawViewsCallback(&other);
  };
  ip->RedrawViews(0);
  EXPECT_EQ(drawn, (std::vector<TimeValue>{0, 160})) << "once more, at the time that is now";
  EXPECT_EQ(asks.calls, 2);
  EXPECT_EQ(other.calls, 1);

  // One that asks each time is answered a few times, not for ever.
  drawn.clear();
  asks.then = [&] { ip->RedrawViews(160); };
  other.then = [&] {
    ip->UnRegisterRedrawViewsCallback(&other);
    ip->UnRegisterRedrawViewsCallback(&other);
  };
  ip->RedrawViews(160);
  EXPECT_EQ(drawn.size(), size_t(host::Viewports::kMostPasses));
  EXPECT_EQ(other.calls, 2);
  EXPECT_FALSE(host.Views().IsDrawing());
  ip->UnRegisterRedrawViewsCallback(&asks);
}

TEST(LibraryStrings, AreLookedUpByLibraryAndCutToTheBuffer) {
  const int library = 0, another = 0;
  const host::LibraryString texts[] = {{1, L"Sowfield"}, {15, L"Add Geo"}};
  host::RegisterStrings(&library, texts, 2);
  wchar_t buffer[256];
  EXPECT_EQ(LoadStringW(&library, 15, buffer, 256), 7);
  EXPECT_STREQ(buffer, L"Add Geo");
  EXPECT_EQ(LoadStringW(&library, 1, buffer, 4), 3);
  EXPECT_STREQ(buffer, L"Sow");
  EXPECT_EQ(LoadStringW(&library, 1, buffer, 1), 0);
  EXPECT_STREQ(buffer, L"");
  EXPECT_EQ(LoadStringW(&library, 1, buffer, 0), 0);
  EXPECT_EQ(LoadStringW(&library, 2, buffer, 256), 0);
  EXPECT_EQ(LoadStringW(&another, 1, buffer, 256), 0);
  host::UnRegisterStrings(&library);
  EXPECT_EQ(LoadStringW(&library, 1, buffer, 256), 0);
}

TEST_F(SceneTest, PluginsOfAnotherReleaseOrWithATakenClassAreRefused) {
  static std::uint32_t version;
  static int shutDowns;
  static std::vector<ClassDesc2*> offered;
  static host::BuiltinClass<BoxObject> one(GEOMOBJECT_CLASS_ID, Class_ID(77, 1), L"One");
  static host::BuiltinClass<BoxObject> box(GEOMOBJECT_CLASS_ID, BoxObject::kClassID, L"Box again");
  shutDowns = 0;
  const PluginEntries entries = {[]() -> const wchar_t* { return L"Plug-in"; },
                                 [] { return int(offered.size()); },
                                 [](int i) { return offered[size_t(i)]; },
                                 [] { return version; },
                                 [] { return 1; },
                                 [] { return ++shutDowns; }};
  std::string why;
  const size_t before = host.Classes().All().size();
  offered = {&one};
  version = 0x4E203100;
  EXPECT_FALSE(host.Classes().AddPlugin(entries, why));
  EXPECT_NE(why.find("API 49"), std::string::npos) << why;
  version = 0x4E203200;
  for (const auto& classes : {std::vector<ClassDesc2*>{&one, &box}, {&one, &one}}) {
    offered = classes;
    EXPECT_FALSE(host.Classes().AddPlugin(entries, why));
    EXPECT_EQ(host.Classes().All().size(), before);
  }
  EXPECT_EQ(shutDowns, 2);
  offered = {nullptr, &one};
  EXPECT_TRUE(host.Classes().AddPlugin(entries, why));
  EXPECT_EQ(host.Classes().Find(GEOMOBJECT_CLASS_ID, Class_ID(77, 1)), &one);
  EXPECT_EQ(CreateInstance(GEOMOBJECT_CLASS_ID, Class_ID(77, 2)), nullptr);
  EXPECT_FALSE(host.Classes().LoadPlugin("/no/such/library.so", why));
  EXPECT_NE(why.find("/no/such/library.so"), std::string::npos) << why;
}

}  // namespace
