#include "host/host.h"

#include <cstdio>

#include "host/painter/paintsystem.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/modifier.h"
#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"
#include "host/scene/shape.h"
#include "host/scene/triobject.h"

namespace {

Interface* inForce = nullptr;

}  // namespace

int GetTicksPerFrame() { return 160; }

void GetMasterUnitInfo(int* type, float* scale) {
  *type = GetCOREInterface()->MasterUnitType();
  *scale = GetCOREInterface()->MasterUnitScale();
}

double MetresPer(UnitType unit) {
  switch (unit) {
    case UNITS_INCHES:
      return 0.0254;
    case UNITS_FEET:
      return 0.3048;
    case UNITS_MILES:
      return 1609.344;
    case UNITS_MILLIMETERS:
      return 0.001;
    case UNITS_CENTIMETERS:
      return 0.01;
    case UNITS_METERS:
      return 1;
    case UNITS_KILOMETERS:
      return 1000;
  }
  return 1;
}

Interface* GetCOREInterface() { return inForce; }

Interface::Interface() : scene_(new Scene), views_(this) {}

Interface::~Interface() = default;

TimeValue Interface::GetTime() const { return host::CoreSession::InForce().time; }

void Interface::SetTime(TimeValue t, bool redraw) {
  host::CoreSession::InForce().time = t;
  if (redraw) RedrawViews(t);
}

void Interface::DeleteNode(INode* node, bool redraw, bool) { DeleteNodes({&node, 1}, redraw); }

void Interface::DeleteNodes(std::span<INode* const> nodes, bool redraw) {
  if (scene_->DeleteNodes(nodes) > 0 && redraw) RedrawViews(GetTime());
}

void Interface::SelectNodeTab(std::span<INode* const> nodes) {
  scene_->ClearNodeSelection();
  for (INode* n : nodes) scene_->SelectNode(n, false);
}

void Interface::PrintToListener(const WStr& text) {
  if (listener_) {
    listener_(text);
  } else {
    std::fputs(ToUtf8(text).c_str(), stderr);
  }
}

void Interface::SetMasterUnit(UnitType type, float scale) {
  unitType_ = type;
  unitScale_ = scale;
}

namespace host {

Host::Host() : before_(inForce) {
  core_ = std::make_unique<CoreSession>();
  services_ = std::make_unique<Interface>();
  inForce = services_.get();
  RegisterMaterialClasses(core_->classes);
  RegisterMeshClasses(core_->classes);
  RegisterPrimitiveClasses(core_->classes);
  RegisterShapeClass(core_->classes);
  RegisterControlClasses(core_->classes);
  RegisterAnimatedMeshClass(core_->classes);
  RegisterProxyClasses(core_->classes);
  RegisterModifierClasses(core_->classes);
  RegisterPaintSystem(core_->classes);
}

Host::~Host() {
  // Objects say goodbye to the services in their destructors, so the scene goes first.
  core_->hold.Clear();
  // Nodes may refer to one another through the blocks of their objects: a ring of them would keep
  // itself alive, so each node lets go of its own first.
  std::vector<Pin<INode>> nodes;
  for (INode* n : GetScene().AllNodes()) nodes.emplace_back(n);
  for (const Pin<INode>& n : nodes) n->DeleteAllRefsFromMe();
  nodes.clear();
  GetScene().DeleteAllRefsFromMe();
  services_.reset();
  inForce = before_;
}

}  // namespace host
