#pragma once

#include <cmath>
#include <memory>

#include "host/painter/painterinterface.h"
#include "sowfield/paint/painter.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {

/// The bits of placement rows, so that equal ones mean equal tables.
inline std::string Bits(const std::vector<Placement>& rows) {
  static_assert(sizeof(Placement) == 36);
  return {reinterpret_cast<const char*>(rows.data()), rows.size() * sizeof(Placement)};
}

/// A paint system whose hits are written down beforehand.
class ScriptedPaintSystem : public ReferenceTarget, public IPainterInterface_V7 {
 public:
  struct WayPoint {
    IPoint2 mouse;
    bool hit = false;
    Point3 world{0, 0, 0}, normal{0, 0, 1};
  };
  SClass_ID SuperClassID() const override { return PAINT_SYSTEM_CLASS_ID; }
  Class_ID ClassID() const override { return PAINTERINTERFACE_CLASS_ID; }
  using ReferenceTarget::GetInterface;
  void* GetInterface(std::uint32_t id) override {
    return id == PAINTERINTERFACE_V7 ? static_cast<IPainterInterface_V7*>(this) : nullptr;
  }
  void InitializeCallback(ReferenceTarget*) override {}
  void SetOptions(bool, bool) override {}
  bool StartPaintSession(IPainterRightClickHandler*) override { return session = accepts; }
  bool InPaintMode() const override { return session; }
  void EndPaintSession() override { session = false; }
  void InitializeNodes(int, int n, INode* const* all) override { sent.emplace_back(all, all + n); }
  void UpdateMeshes(bool) override { calls += 'u'; }
  void SetBrushRadius(float r) override { radius = r; }
  float GetBrushRadius() const override { return radius; }
  PainterHit RandomHit(int) override {
    narrowQueries += radius != 4;
    return nextHit < hits.size() ? hits[nextHit++] : PainterHit{};
  }
  void AddToStroke(const IPoint2& mouse, bool, bool) override {
    calls += 'a';
    way.push_back(cast ? cast(mouse) : WayPoint{mouse});
  }
  int GetStrokePointCount() const override { return int(way.size()); }
  bool GetStrokeHit(int i) const override { return way.at(size_t(i)).hit; }
  Point3 GetStrokePointWorld(int i) const override { return way.at(size_t(i)).world; }
  Point3 GetStrokeNormalWorld(int i) const override { return way.at(size_t(i)).normal; }
  IPoint2 GetStrokeMouse(int i) const override { return way.at(size_t(i)).mouse; }

  bool session = false, accepts = true;
  float radius = 1;
  std::vector<PainterHit> hits;
  size_t nextHit = 0;
  std::vector<WayPoint> way;
  std::function<WayPoint(const IPoint2&)> cast;
  std::vector<std::vector<INode*>> sent;
  std::string calls;      // u and a, for updates of the meshes and additions to the record
  int narrowQueries = 0;  // queries by another radius than 4
};

struct ScriptedPaintDesc : ClassDesc2 {
  ReferenceTarget* Create(bool) override { return last = new ScriptedPaintSystem; }
  const wchar_t* ClassName() override { return L"Scripted Paint"; }
  SClass_ID SuperClassID() override { return PAINT_SYSTEM_CLASS_ID; }
  Class_ID ClassID() override { return PAINTERINTERFACE_CLASS_ID; }
  const wchar_t* Category() override { return L""; }
  ScriptedPaintSystem* last = nullptr;
};

/// A scene with types to paint, and a choice of paint system.
struct PaintScene : SowfieldScene {
  enum System { kReal, kScripted, kNone };

  explicit PaintScene(int types, System system = kReal) {
    // A registry gives nothing back, and finds what was registered first.
    auto& classes = const_cast<std::vector<ClassDesc2*>&>(host.Classes().All());
    if (system != kReal)
      std::erase_if(classes, [](auto* d) { return d->SuperClassID() == PAINT_SYSTEM_CLASS_ID; });
    if (system == kScripted) host.Classes().Add(&desc);
    // 200 by 200 pixels of 0.1 units straight down, +X right and +Y up.
    Look(ViewExp::Orthographic({0, 0, 10}, {0, 0, 0}, 20, 200, 200));
    for (float x = 1; sources.size() < size_t(types); x += 0.5f) {
      sources.push_back(AddBox(L"Source", 0.2f * x, 0.3f, 0.5f, {100 * x, 500, 0}));
      EXPECT_TRUE(AddAsType(sources.back()));
    }
    Brush(1, 0.5f);
  }
  void Look(const ViewExp& view) { host.Views().SetActive(std::make_shared<ViewExp>(view)); }
  ViewExp& View() { return *host.Views().Active(); }
  IPoint2 Pixel(const Point3& world) {
    double x = 0, y = 0;
    EXPECT_TRUE(View().ProjectToScreen(world, x, y));
    return {int(std::lround(x)), int(std::lround(y))};
  }
  void MoveTo(float x, float y) { host.Views().Move(Pixel({x, y, 0})); }
  /// Brush and display so that nothing but the test's own settings decides.
  void Brush(float size, float collision) {
    Set(Brush_Size, size), Set(Brush_Collision, collision);
    Set(Brush_Falloff, 0), Set(Brush_Erase, 100), Set(Brush_Amount, 10), Set(Brush_Snap, 0);
    Set(Display_Mode, 2);
    Undo().Clear();
  }
  SowfieldPainter& Painter() { return *TheEditContext().NeedPainter(); }
  ScriptedPaintSystem& Scripted() { return *desc.last; }
  IPainterCanvasInterface_V5& Canvas() { return Painter(); }
  std::vector<INode*> Targets() {
    return {Painter().TargetNodes().begin(), Painter().TargetNodes().end()};
  }
  size_t NodeCount() { return host.GetScene().AllNodes().size(); }
  size_t Count() { return size_t(D().PlacementCount()); }
  std::vector<Placement> Rows() {
    std::vector<Placement> rows;
    const IParamBlock2& b = Block();
    for (int i = 0; i < b.Count(Ins_Pos); ++i)
      rows.push_back({b.GetPoint3(Ins_Pos, 0, i), b.GetPoint3(Ins_Normal, 0, i),
                      b.GetInt(Ins_Type, 0, i), b.GetInt(Ins_Rand, 0, i),
                      b.GetInt(Ins_AnimRand, 0, i)});
    return rows;
  }
  static PainterEvent On(const Point3& at, float radius = 1, INode* node = nullptr,
                         const Point3& normal = {0, 0, 1}) {
    return {true, {0, 0}, at, normal, radius, node};
  }
  void Give(const std::vector<PainterEvent>& events, bool cutOff = false) {
    Canvas().StartStroke();
    for (const PainterEvent& e : events) Canvas().PaintStroke(e);
    if (!cutOff) Canvas().EndStroke();
  }
  static std::vector<PainterEvent> Row(int count, float y = 0) {
    std::vector<PainterEvent> row;
    for (int i = 0; i < count; ++i) row.push_back(On({float(i), y, 0}));
    return row;
  }
  /// A stroke of the mouse from pixel to pixel of the active view.
  void Drag(int tool, const IPoint2& from, const IPoint2& to) {
    EXPECT_TRUE(PressToolButton(tool));
    host.Views().Move(from);
    host.Views().Press(from);
    for (int i = 0; i <= 40; ++i)
      host.Views().Move({from.x + (to.x - from.x) * i / 40, from.y + (to.y - from.y) * i / 40});
    host.Views().Release(to);
  }

  std::vector<INode*> sources;
  static inline ScriptedPaintDesc desc;
};

}  // namespace sowfield
