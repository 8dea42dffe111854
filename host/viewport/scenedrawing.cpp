#include "host/viewport/scenedrawing.h"

#include "host/interface.h"

namespace host {

namespace {

bool IsFiniteMatrix(const Matrix3& tm) {
  for (int i = 0; i < 4; ++i)
    if (!IsFinite(tm.GetRow(i))) return false;
  return true;
}

// Pinned: what an object does while it draws or is asked may take nodes away.
std::vector<Pin<INode>> VisibleNodes(Interface& ip) {
  std::vector<Pin<INode>> nodes;
  for (INode* node : ip.GetScene().AllNodes())
    if (RenderNode(node).IsVisible()) nodes.emplace_back(node);
  return nodes;
}

}  // namespace

std::vector<ShownNode> ShowNodes(Interface& ip, ViewExp& view, TimeValue t) {
  GraphicsWindow& gw = *view.getGW();
  gw.Clear();
  std::vector<ShownNode> shown;
  for (const Pin<INode>& node : VisibleNodes(ip)) {
    if (!node->InScene()) continue;
    const Matrix3 tm = node->GetObjectTM(t);
    Object* object = node->EvalWorldState(t).obj;
    if (!object || !IsFiniteMatrix(tm)) continue;
    ShownNode one{node, Pin<Object>(object), tm, {}};
    gw.setTransform(tm);
    object->Display(t, node.get(), &view, 0);
    UpdateDisplayContext context{t, &view};
    UpdateNodeContext nodeContext(node.get());
    if (object->PrepareDisplay(context) &&
        object->UpdatePerNodeItems(context, nodeContext, one.items))
      shown.push_back(std::move(one));
  }
  return shown;
}

std::vector<INode*> PickNodes(Interface& ip, ViewExp& view, HitType type, bool crossing,
                              const IPoint2* p) {
  std::vector<INode*> hit;
  if (!view.IsAlive()) return hit;
  IPoint2 at[2] = {p[0], type == HITTYPE_RECT ? p[1] : p[0]};
  for (const Pin<INode>& node : VisibleNodes(ip)) {
    Object* object = node->EvalWorldState(ip.GetTime()).obj;
    if (object && IsFiniteMatrix(node->GetObjectTM(ip.GetTime())) &&
        object->HitTest(ip.GetTime(), node.get(), type, crossing, int(HIT_ABORTONHIT), at, &view))
      hit.push_back(node.get());
  }
  return hit;
}

int SnapNodes(Interface& ip, ViewExp& view, const IPoint2& p, SnapInfo& snap) {
  int found = 0;
  if (!view.IsAlive()) return found;
  IPoint2 at = p;
  for (const Pin<INode>& node : VisibleNodes(ip)) {
    Object* object = node->EvalWorldState(ip.GetTime()).obj;
    if (object && IsFiniteMatrix(node->GetObjectTM(ip.GetTime())))
      found |= object->Snap(ip.GetTime(), node.get(), &snap, &at, &view);
  }
  return found;
}

}  // namespace host
