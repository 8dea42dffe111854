#pragma once

#include <gtest/gtest.h>

#include <array>
#include <functional>

#include "host/host.h"
#include "host/scene/primitives.h"
#include "host/scene/simpleobject.h"
#include "host/viewport/scenedrawing.h"

/// An object without a mesh of its own that draws by a function given to it.
class Extras : public SimpleObject2 {
 public:
  using Draw = std::function<void(GraphicsWindow& gw)>;
  /// `items` is called when the node's items are asked for.
  explicit Extras(Draw draw, std::function<void()> items = nullptr)
      : draw_(std::move(draw)), items_(std::move(items)) {}
  Class_ID ClassID() const override { return {0x5e57, 1}; }
  void GetClassName(WStr& name) const override { name = L"Extras"; }
  const wchar_t* GetObjectName() override { return L"Extras"; }
  void BuildMesh(TimeValue) override { ivalid = FOREVER; }
  int Display(TimeValue t, INode* node, ViewExp* view, int) override {
    UpdateMesh(t);
    view->getGW()->setTransform(node->GetObjectTM(t));
    draw_(*view->getGW());
    return 1;
  }
  bool UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& node,
                          RenderItemContainer& container) override {
    if (items_) items_();
    return SimpleObject2::UpdatePerNodeItems(context, node, container);
  }

 private:
  Draw draw_;
  std::function<void()> items_;
};

/// Sees `wide` units of the XY plane, the origin in the middle, +Y up; X is mirrored from below.
inline ViewExp FlatView(float wide = 100, int width = 100, int height = 100, float z = 9) {
  return ViewExp::Orthographic({0, 0, z}, {0, 0, 0}, wide, width, height);
}
/// Along +Y; left and right, up and down lie at -1 and 1 at depth 1, at 50 pixels a unit.
inline ViewExp SquareView() {
  return ViewExp::Perspective({0, 0, 0}, {0, 1, 0}, 1.5707964f, 100, 100);
}

inline std::array<Point3, 4> Square(const Point3& p, float half) {
  return {p + Point3(-half, -half, 0), p + Point3(half, -half, 0), p + Point3(half, half, 0),
          p + Point3(-half, half, 0)};
}

/// The vertices of what nodes show that aren't hidden, in the world.
inline std::vector<Point3> WorldVertices(const std::vector<INode*>& nodes, TimeValue t) {
  std::vector<Point3> all;
  for (INode* n : nodes)
    if (const EvaluatedMesh e = n->IsHidden() ? EvaluatedMesh() : EvalMesh(n, t))
      for (const Point3& v : e.mesh->verts) all.push_back(v * n->GetObjectTM(t));
  return all;
}

class Staged : public testing::Test {
 protected:
  INode* Add(Object* object = nullptr, const Point3& at = {0, 0, 0},
             ColorRef color = PackColor(220, 30, 30)) {
    INode* node = ip_.CreateObjectNode(object);
    node->SetNodeTM(0, TransMatrix(at));
    node->SetWireColor(color);
    return node;
  }
  INode* Plane(const Point3& middle, float side, int segments = 1, ColorRef color = 0) {
    auto* plane = new PlaneObject;
    plane->SetSize(side, side, segments, segments);
    return Add(plane, middle, color);
  }
  using Nodes = std::vector<INode*>;
  /// At a point, or in the rectangle of two.
  Nodes Pick(ViewExp view, std::vector<IPoint2> p, bool crossing = true) {
    return host::PickNodes(ip_, view, HitType(p.size() - 1), crossing, p.data());
  }
  /// Does some work as one step of undo.
  static void Step(const std::function<void()>& work) {
    theHold.Begin();
    work();
    theHold.Accept(L"Step");
  }
  host::Host host_;
  Interface& ip_ = host_.Services();
};
