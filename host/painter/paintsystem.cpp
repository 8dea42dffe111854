#include "host/painter/paintsystem.h"

#include <cmath>
#include <deque>
#include <exception>
#include <random>

#include "host/core/builtinclass.h"
#include "host/core/notify.h"
#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/painter/painterinterface.h"
#include "host/painter/raycaster.h"

namespace host {
namespace {

constexpr size_t kMostPoints = 4096;
constexpr std::uint64_t kRandomSeed = 5489;

/// A point of the pointer's way. It outlives nodes, so it names none.
struct WayPoint {
  IPoint2 mouse;
  Ray ray;  // of the view in which it was taken; without a direction where there was none
  bool hit = false;
  Point3 world{0, 0, 0};
  Point3 normal{0, 0, 1};
};

/// Two unit vectors across a normal, from an axis that it doesn't run along.
struct Disc {
  explicit Disc(const Point3& n) : normal(n) {
    const Point3 axis = std::fabs(n.x) < 0.6f ? Point3(1, 0, 0) : Point3(0, 1, 0);
    a = Normalize(CrossProd(axis, n));
    b = CrossProd(n, a);
  }
  Point3 normal, a, b;
};

}  // namespace

/// The canvas isn't kept alive: it outlives the sessions, or InitializeCallback(nullptr) is called.
/// Any call of the canvas or the right-click handler may end the session or start another.
class PaintSystem : public ReferenceTarget, public IPainterInterface_V7, public MouseOwner {
 public:
  PaintSystem() {
    for (const int code : kNodeCodes) RegisterNotification(NodeGone, this, code);
  }
  ~PaintSystem() override {
    for (const int code : kNodeCodes) UnRegisterNotification(NodeGone, this, code);
    GiveMouseBack();
  }

  SClass_ID SuperClassID() const override { return PAINT_SYSTEM_CLASS_ID; }
  Class_ID ClassID() const override { return PAINTERINTERFACE_CLASS_ID; }
  void GetClassName(WStr& name) const override { name = L"Paint System"; }
  using ReferenceTarget::GetInterface;
  void* GetInterface(std::uint32_t id) override {
    return id == PAINTERINTERFACE_V7 ? static_cast<IPainterInterface_V7*>(this) : nullptr;
  }

  void InitializeCallback(ReferenceTarget* canvas) override;
  void SetOptions(bool, bool eventsOffSurface) override { eventsOffSurface_ = eventsOffSurface; }
  bool StartPaintSession(IPainterRightClickHandler* handler) override;
  bool InPaintMode() const override { return session_; }
  void EndPaintSession() override;

  void InitializeNodes(int flags, int count, INode* const* nodes) override;
  void UpdateMeshes(bool pointData) override;
  void SetBrushRadius(float radius) override { radius_ = radius; }
  float GetBrushRadius() const override { return radius_; }
  PainterHit RandomHit(int pointIndex) override;

  void AddToStroke(const IPoint2& mouse, bool pointData, bool redraw) override;
  int GetStrokePointCount() const override { return int(way_.size()); }
  bool GetStrokeHit(int i) const override { return At(i).hit; }
  Point3 GetStrokePointWorld(int i) const override { return At(i).world; }
  Point3 GetStrokeNormalWorld(int i) const override { return At(i).normal; }
  IPoint2 GetStrokeMouse(int i) const override { return At(i).mouse; }

  void MousePressed(const IPoint2& at) override;
  void MouseMoved(const IPoint2& at, bool pressed) override;
  void MouseReleased(const IPoint2& at) override;
  void RightClicked(const IPoint2& at) override;

 private:
  static constexpr int kNodeCodes[] = {NOTIFY_NODE_LEFT_SCENE, NOTIFY_NODE_DESTROYED};
  static void NodeGone(void* system, NotifyInfo* info);

  const WayPoint& At(int i) const;
  PainterHit Meet(WayPoint& point);
  PainterHit Follow(const IPoint2& mouse);
  void SendEvent(const IPoint2& at);
  void DropStroke();
  void GiveMouseBack();
  template <class F>
  void OrSay(F&& act);
  double Uniform() { return double(random_() >> 11) * 0x1p-53; }

  RayCaster caster_;
  IPainterCanvasInterface_V5* canvas_ = nullptr;
  IPainterRightClickHandler* handler_ = nullptr;
  std::deque<WayPoint> way_;
  std::mt19937_64 random_{kRandomSeed};
  Disc disc_{Point3(0, 0, 1)};  // of the last random hit
  float radius_ = 1;
  bool eventsOffSurface_ = true;
  bool session_ = false;

  bool inStroke_ = false;
  IPoint2 lastEvent_;
  std::vector<PainterEvent> stroke_;
};

void PaintSystem::NodeGone(void* system, NotifyInfo* info) {
  auto* self = static_cast<PaintSystem*>(system);
  auto* node = static_cast<INode*>(info->subject);
  self->caster_.Forget(node);
  for (PainterEvent& e : self->stroke_)
    if (e.node == node) e.node = nullptr;
}

// Callers can't unwind: what the ray kernel or memory refuses is said, and rays miss.
template <class F>
void PaintSystem::OrSay(F&& act) {
  try {
    act();
  } catch (const std::exception& e) {
    GetCOREInterface()->PrintToListener(L"Paint system: " + FromUtf8(e.what()) + L"\n");
  }
}

void PaintSystem::InitializeCallback(ReferenceTarget* canvas) {
  DropStroke();
  void* found = canvas ? canvas->GetInterface(PAINTERCANVASINTERFACE_V5) : nullptr;
  canvas_ = static_cast<IPainterCanvasInterface_V5*>(found);
}

bool PaintSystem::StartPaintSession(IPainterRightClickHandler* handler) {
  Viewports& views = GetCOREInterface()->Views();
  const bool canSee = views.Active() && views.Active()->IsAlive();
  if (session_ || !canSee || views.GetMouseOwner()) return false;
  session_ = true;
  handler_ = handler;
  views.SetMouseOwner(this);
  random_.seed(kRandomSeed);
  way_.clear();
  Follow(views.MousePosition());
  return true;
}

void PaintSystem::EndPaintSession() {
  if (!session_) return;
  session_ = false;
  handler_ = nullptr;
  GiveMouseBack();
  DropStroke();
  // Last of all: the canvas may do anything, even let go of this.
  if (canvas_) canvas_->SystemEndPaintSession();
}

void PaintSystem::GiveMouseBack() {
  Interface* ip = GetCOREInterface();
  if (ip && ip->Views().GetMouseOwner() == this) ip->Views().SetMouseOwner(nullptr);
}

void PaintSystem::DropStroke() {
  inStroke_ = false;
  stroke_.clear();
}

void PaintSystem::InitializeNodes(int, int count, INode* const* nodes) {
  const size_t n = count > 0 && nodes ? size_t(count) : 0;
  OrSay([&] { caster_.SetTargets({nodes, n}, GetCOREInterface()->GetTime()); });
}

void PaintSystem::UpdateMeshes(bool pointData) {
  OrSay([&] { caster_.Update(GetCOREInterface()->GetTime()); });
  if (!pointData) return;
  for (size_t i = way_.size(); i-- > 0 && !way_[i].hit;) Meet(way_[i]);
}

PainterHit PaintSystem::RandomHit(int pointIndex) {
  const WayPoint& point = pointIndex == -1 && !way_.empty() ? way_.back() : At(pointIndex);
  if (!point.hit || !(radius_ > 0) || !std::isfinite(radius_)) return {};
  const double r = radius_ * std::sqrt(Uniform());
  const SinCos turn = SinCosOf(2 * kPi * Uniform());

  if (!(point.normal == disc_.normal)) disc_ = Disc(point.normal);
  const Point3 &n = disc_.normal, &a = disc_.a, &b = disc_.b;
  const double along = r * turn.cos, across = r * turn.sin;
  Point3 from;
  for (int i = 0; i < 3; ++i)
    from[i] = float(double(point.world[i]) + along * a[i] + across * b[i] + double(radius_) * n[i]);
  PainterHit hit;
  OrSay([&] { hit = caster_.Cast({from, -n}, 2.0 * radius_); });
  return hit;
}

const WayPoint& PaintSystem::At(int i) const {
  static const WayPoint none;
  return i >= 0 && i < int(way_.size()) ? way_[size_t(i)] : none;
}

PainterHit PaintSystem::Meet(WayPoint& point) {
  PainterHit hit;
  OrSay([&] { hit = caster_.Cast(point.ray); });
  point.hit = hit.hit, point.world = hit.worldPoint, point.normal = hit.worldNormal;
  return hit;
}

PainterHit PaintSystem::Follow(const IPoint2& mouse) {
  WayPoint point{.mouse = mouse, .ray = {{0, 0, 0}, {0, 0, 0}}};
  const ViewExp* view = GetCOREInterface()->GetActiveViewExp();
  if (view && view->IsAlive())
    point.ray = view->MapScreenToWorldRay(float(mouse.x), float(mouse.y));
  const PainterHit hit = Meet(point);
  way_.push_back(point);
  if (way_.size() > kMostPoints) way_.pop_front();
  return hit;
}

void PaintSystem::AddToStroke(const IPoint2& mouse, bool, bool redraw) {
  Follow(mouse);
  Interface* ip = GetCOREInterface();
  if (redraw) ip->RedrawViews(ip->GetTime());
}

void PaintSystem::SendEvent(const IPoint2& at) {
  const PainterHit hit = Follow(at);
  lastEvent_ = at;
  if (!canvas_ || (!hit.hit && !eventsOffSurface_)) return;
  const PainterEvent event{hit.hit, at, hit.worldPoint, hit.worldNormal, radius_, hit.node};
  stroke_.push_back(event);
  canvas_->PaintStroke(event);
}

void PaintSystem::MousePressed(const IPoint2& at) {
  if (!session_ || inStroke_ || !canvas_) return;
  const Pin<PaintSystem> alive(this);
  DropStroke();
  inStroke_ = true;  // before the call, so that a session that ends in it ends the stroke
  if (!canvas_->StartStroke()) DropStroke();
  if (inStroke_) SendEvent(at);
}

void PaintSystem::MouseMoved(const IPoint2& at, bool pressed) {
  const Pin<PaintSystem> alive(this);
  if (inStroke_ && pressed) SendEvent(at);
}

void PaintSystem::MouseReleased(const IPoint2& at) {
  const Pin<PaintSystem> alive(this);
  if (inStroke_ && at != lastEvent_) SendEvent(at);
  if (!inStroke_) return;
  const std::vector<PainterEvent> all = stroke_;  // the call may clear the list
  canvas_->EndStroke(int(all.size()), all.data());
  if (!inStroke_) return;
  DropStroke();
  canvas_->EndStroke();
}

void PaintSystem::RightClicked(const IPoint2&) {
  const Pin<PaintSystem> alive(this);
  if (session_ && handler_) handler_->RightClick();
}

void RegisterPaintSystem(ClassRegistry& classes) {
  static BuiltinClass<PaintSystem> system(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID,
                                          L"Paint System");
  classes.Add(&system);
}

}  // namespace host
