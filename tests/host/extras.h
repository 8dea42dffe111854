#pragma once

#include <functional>

#include "host/scene/simpleobject.h"
#include "host/viewport/viewexp.h"

/// An object without a mesh of its own that draws by a function given to it.
class Extras : public SimpleObject2 {
 public:
  using Draw = std::function<void(GraphicsWindow& gw)>;
  explicit Extras(Draw draw) : draw_(std::move(draw)) {}
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

 private:
  Draw draw_;
};
