#pragma once

#include <functional>
#include <memory>

#include "host/scene/scene.h"
#include "host/ui/messageboxes.h"
#include "host/viewport/viewports.h"

/// Length of a frame in ticks: 4800 ticks a second, 30 frames.
int GetTicksPerFrame();

/// Kinds of the master unit.
enum UnitType : int {
  UNITS_INCHES,
  UNITS_FEET,
  UNITS_MILES,
  UNITS_MILLIMETERS,
  UNITS_CENTIMETERS,
  UNITS_METERS,
  UNITS_KILOMETERS
};
double MetresPer(UnitType unit);
/// Scene units are `scale` times the unit named by `type`.
void GetMasterUnitInfo(int* type, float* scale);

inline constexpr unsigned REDRAW_NORMAL = 8;

/// The services of the host, as an object reaches them. All on the main thread.
class Interface {
 public:
  Interface();
  ~Interface();
  Interface(const Interface&) = delete;
  Interface& operator=(const Interface&) = delete;

  TimeValue GetTime() const;
  /// Moves the time; the views are redrawn on request.
  void SetTime(TimeValue t, bool redraw = true);
  const Interval& GetAnimRange() const { return animRange_; }
  void SetAnimRange(const Interval& range) { animRange_ = range; }

  INode* GetRootNode() const { return scene_->GetRootNode(); }
  INode* CreateObjectNode(Object* object) { return scene_->CreateObjectNode(object); }
  /// Children keep their places. Harmless for a node that is gone already.
  void DeleteNode(INode* node, bool redraw, bool overrideSlaves);
  /// Several at one stroke, with one redraw.
  void DeleteNodes(std::span<INode* const> nodes, bool redraw);
  /// See Scene.
  void SelectNode(INode* node, bool clearSelection = true) {
    scene_->SelectNode(node, clearSelection);
  }
  void ClearNodeSelection() { scene_->ClearNodeSelection(); }
  /// Selects these alone, in the order given.
  void SelectNodeTab(std::span<INode* const> nodes);
  Renderer* GetCurrentRenderer() const { return scene_->GetRenderer(); }
  ILayerManager& GetLayerManager() { return scene_->Layers(); }
  Scene& GetScene() { return *scene_; }
  /// Puts another scene in the place of the present one, which comes back. Tells nobody.
  std::unique_ptr<Scene> ExchangeScene(std::unique_ptr<Scene> scene) {
    scene_.swap(scene);
    return scene;
  }

  /// May be null.
  ViewExp* GetActiveViewExp() const { return views_.Active(); }
  void RedrawViews(TimeValue t, unsigned = REDRAW_NORMAL, void* = nullptr) { views_.Redraw(t); }
  void RegisterRedrawViewsCallback(RedrawViewsCallback* c) { views_.Register(c); }
  void UnRegisterRedrawViewsCallback(RedrawViewsCallback* c) { views_.UnRegister(c); }
  host::Viewports& Views() { return views_; }
  /// The pointer in pixels of the active view, and the keys held with it.
  IPoint2 GetMousePosition() const { return views_.MousePosition(); }
  const host::Modifiers& GetKeys() const { return views_.Keys(); }

  /// Ends a running pick mode; harmless without one.
  void ClearPickMode() {}

  host::MessageBoxes& Boxes() { return boxes_; }
  /// One line to the listener; standard error unless a reader is set.
  void PrintToListener(const WStr& text);
  void SetListener(std::function<void(const WStr&)> listener) { listener_ = std::move(listener); }

  /// Off during strokes and renders. Nothing depends on it.
  void SetHostSwitch(bool on) { hostSwitch_ = on; }
  bool GetHostSwitch() const { return hostSwitch_; }

  void SetMasterUnit(UnitType type, float scale);
  UnitType MasterUnitType() const { return unitType_; }
  float MasterUnitScale() const { return unitScale_; }

 private:
  std::unique_ptr<Scene> scene_;
  host::Viewports views_;
  host::MessageBoxes boxes_;
  std::function<void(const WStr&)> listener_;
  Interval animRange_{0, 16000};
  UnitType unitType_ = UNITS_METERS;
  float unitScale_ = 1;
  bool hostSwitch_ = true;
};

/// The services of the host in force; one must be.
Interface* GetCOREInterface();
