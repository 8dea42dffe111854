#include "host/scene/shape.h"
#include "host/scene/simpleobject.h"
#include "host/viewport/renderitems.h"
#include "host/viewport/snap.h"
#include "host/viewport/viewexp.h"

// How an object is drawn and picked that says nothing else about it, and how shapes are.

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

// What `test` makes of the view's window in pick state, in the space of the node's object.
template <class Test>
int Picked(TimeValue t, INode* node, HitRegion region, ViewExp& view, Test test) {
  GraphicsWindow& gw = *view.getGW();
  gw.setHitRegion(region);
  gw.clearHitCode();
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits((limits & ~GW_ILLUM) | GW_PICK);
  gw.setTransform(node->GetObjectTM(t));
  const int hit = test(gw, region);
  gw.setRndLimits(limits);
  return hit;
}

void DrawLines(GraphicsWindow& gw, const Spline3D& spline) {
  const std::span<const Point3> knots = spline.Knots();
  const auto draw = [&](const Point3& from, const Point3& to) {
    const Point3 ends[] = {from, to};
    if (IsFinite(from) && IsFinite(to)) gw.polyline(2, ends, false);
  };
  for (size_t i = 1; i < knots.size(); ++i) draw(knots[i - 1], knots[i]);
  if (spline.Closed() && knots.size() > 2) draw(knots.back(), knots.front());
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
  return Picked(t, node, MakeHitRegion(type, crossing != 0, kPickSize, p), *view,
                [&](GraphicsWindow& gw, HitRegion& region) {
                  return shown.mesh->select(&gw, node->GetMtl(), &region,
                                            flags & int(HIT_ABORTONHIT));
                });
}

int Object::Snap(TimeValue t, INode* node, SnapInfo* snap, IPoint2* p, ViewExp* view) {
  if (!view || !view->IsAlive()) return 0;
  const auto* simple = dynamic_cast<SimpleObject2*>(this);
  if (simple && simple->suspendSnap) return 0;
  const EvaluatedMesh shown = ShownMesh(this, t);
  const Matrix3 tm = node->GetObjectTM(t);
  return shown ? shown.mesh->snap(view->getGW(), snap, p, tm) : 0;
}

int SplineShape::Display(TimeValue t, INode* node, ViewExp* view, int) {
  GraphicsWindow& gw = *view->getGW();
  gw.setTransform(node->GetObjectTM(t));
  gw.setColor(LINE_COLOR, UnpackColor(node->GetWireColor()));
  for (const Spline3D& spline : shape_.splines) DrawLines(gw, spline);
  return 1;
}

int SplineShape::HitTest(TimeValue t, INode* node, HitType type, int crossing, int, IPoint2* p,
                         ViewExp* view) {
  if (!view || !view->IsAlive()) return 0;
  return Picked(t, node, MakeHitRegion(type, crossing != 0, kPickSize, p), *view,
                [&](GraphicsWindow& gw, const HitRegion& region) {
                  bool any = false, all = true;
                  for (const Spline3D& spline : shape_.splines) {
                    if (spline.KnotCount() < 2) continue;
                    gw.clearHitCode();
                    gw.polyline(spline.KnotCount(), spline.Knots().data(), spline.Closed());
                    any = any || gw.checkHitCode();
                    all = all && gw.checkHitCode();
                  }
                  return any && (region.crossing || all);
                });
}
