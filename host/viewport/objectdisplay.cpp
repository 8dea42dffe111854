#include "host/scene/simpleobject.h"
#include "host/viewport/renderitems.h"
#include "host/viewport/viewexp.h"

// How an object is drawn and picked that says nothing else about it.

namespace {

constexpr int kPickSize = 4;  // pixels around a point

// Without the copy that a conversion makes of a mesh that is there already.
EvaluatedMesh ShownMesh(Object* object, TimeValue t) {
  auto* simple = dynamic_cast<SimpleObject2*>(object);
  if (!simple) return MeshOf(object, t);
  simple->UpdateMesh(t);
  EvaluatedMesh own;
  own.mesh = &simple->mesh;
  return own;
}

}  // namespace

bool Object::PrepareDisplay(UpdateDisplayContext&) { return CanConvertToType(triObjectClassID); }

bool Object::UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& nodeContext,
                                RenderItemContainer& container) {
  EvaluatedMesh shown = ShownMesh(this, context.time);
  if (!shown) return false;
  GenerateMeshRenderItemsContext wanted;
  wanted.GenerateDefaultContext(context);
  wanted.RemoveInvisibleMeshElementDescriptions(nodeContext.GetRenderNode());
  const std::optional<MeshDisplay> display = GetMeshDisplay(*shown.mesh);
  if (display) display->UpdateNodeItems(wanted, nodeContext, container);
  if (shown.converted) container.Keep(std::move(shown.converted));
  return display.has_value();
}

int Object::HitTest(TimeValue t, INode* node, HitType type, int crossing, int flags, IPoint2* p,
                    ViewExp* view) {
  if (!view || !view->IsAlive()) return 0;
  const EvaluatedMesh shown = ShownMesh(this, t);
  if (!shown) return 0;
  GraphicsWindow& gw = *view->getGW();
  HitRegion region = MakeHitRegion(type, crossing != 0, kPickSize, p);
  gw.setHitRegion(region);
  gw.clearHitCode();
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits((limits & ~GW_ILLUM) | GW_PICK);
  gw.setTransform(node->GetObjectTM(t));
  const int hit = shown.mesh->select(&gw, node->GetMtl(), &region, flags & int(HIT_ABORTONHIT));
  gw.setRndLimits(limits);
  return hit;
}
