#pragma once

#include <memory>
#include <optional>
#include <unordered_set>
#include <vector>

#include "host/core/hold.h"
#include "host/core/notify.h"
#include "host/math/tab.h"
#include "host/painter/painterinterface.h"
#include "sowfield/model/distribution.h"
#include "sowfield/model/placement.h"
#include "sowfield/paint/cursor.h"
#include "sowfield/paint/paintstate.h"
#include "sowfield/paint/targetindex.h"

namespace sowfield {

/// Turns the strokes of the host's paint system into placements: the line tool lays one wherever
/// the stroke has left all others far enough behind, the multi tool scatters some per brush width,
/// the eraser removes those in reach.
///
/// While the mouse is down new placements wait in the pending arrays and are shown by preview
/// nodes; at mouse up they are appended as one undo step. Only the eraser writes during a stroke.
class SowfieldPainter : public ReferenceTarget, public IPainterCanvasInterface_V5, public Listener {
 public:
  SowfieldPainter(Distribution& d, PaintState& state);
  ~SowfieldPainter() override;

  /// False if the host has no paint system: then no tool can be entered.
  bool HasPaintSystem() const { return painter_ != nullptr; }
  bool InSession() const { return painter_ && painter_->InPaintMode(); }

  /// Enters paint mode for PaintState::paintTool, or adapts a running one to it. Without a paint
  /// system, an active view or a type, the tool falls back to none.
  void SetPaintTool();
  /// Ends paint mode in every way; harmless when none runs. Commits what is pending and closes the
  /// undo step of an eraser's stroke that was cut off.
  void EndPaint();
  /// Forgets the targets, so that they are collected anew under a changed rule.
  void ResetTargets();

  // Canvas.
  bool StartStroke() override;
  bool PaintStroke(const PainterEvent& event) override;
  bool EndStroke(int count, const PainterEvent* events) override;
  bool EndStroke() override;
  bool CancelStroke() override;
  bool SystemEndPaintSession() override;
  void PainterDisplay() override {}

  void* GetInterface(std::uint32_t id) override;
  using ReferenceTarget::GetInterface;
  void OnEvent(Event event) override;

  // For the cursor.
  Distribution& Dist() { return d_; }
  PaintState& State() { return state_; }
  IPainterInterface_V7* Host() { return painter_; }
  /// Makes what lies under the mouse the targets, if one of it is none yet; true then. `towards` is
  /// a world point under the mouse; null where there is none, and the view ray itself is followed.
  bool UpdateTargetsAtCursor(const ViewExp& view, const IPoint2& mouse, const Point3* towards);
  const Tab<INode*>& TargetNodes() const { return targetNodes_; }
  const std::vector<INode*>& StrokeNodes() const { return strokeNodes_; }
  size_t PendingCount() const { return pendingPos_.size(); }
  const std::vector<INode*>& SourceNodes() const { return sourceNodes_; }

 private:
  friend class RightClickToExitPaint;

  // Strokes (stroke.cpp).
  void SelectTypes();
  void PrepareCollisions();
  void OpenEraseStep();
  void CloseEraseStep();
  void LineTool(const PainterEvent& event);
  void MultiTool(const PainterEvent& event, const ViewExp& view);
  void SurfaceBranch(const PainterEvent& event, const ViewExp& view, int n);
  void FreeBranch(const PainterEvent& event, const ViewExp& view, int n);
  void Erase(const PainterEvent& event);
  int CandidatesFor(const PainterEvent& event);
  float EraseChanceFor(const PainterEvent& event);
  int ChooseType();
  bool Collides(const Point3& position) const;
  bool FalloffRejects(float d, float radius);
  void Lay(int type, const Point3& position, float spin, const Point3& normal,
           const Matrix3* freeOrientation);
  int NextIndex(const std::vector<int>& pending, Param table, int modulus) const;
  void CommitPending();
  void DropPending();

  // Previews (preview.cpp).
  void ShowPreview(int type, int row, const Point3& position, const Point3& angles,
                   const Matrix3* freeOrientation);
  void DeletePreviews(bool redraw = true);
  INode* SourceOfPreview(int type);
  Mesh MeshOfFileType(const TypeRef& type) const;
  void DropSourceNodes();

  // Sessions (painter.cpp).
  void FillSourceNodes();
  TargetQuery QueryAlong(const SightLine& line, const Reach& reach) const;
  bool TakeTargets(const Tab<INode*>& found);
  void WidenTargets(const PainterEvent& event, const ViewExp& view);
  static void NodeLeft(void* param, NotifyInfo* info);

  Distribution& d_;
  PaintState& state_;
  ReferenceTarget* paintSystem_ = nullptr;
  IPainterInterface_V7* painter_ = nullptr;
  Paint_Cursor cursor_;

  // One slot per type: the source whose object the previews share; null for a type that lives in a
  // file before its first preview.
  std::vector<INode*> sourceNodes_;
  std::vector<INode*> fileNodes_;    // those of them that were made here
  std::vector<INode*> strokeNodes_;  // previews, in order of making
  std::unordered_set<const INode*> isPreview_;
  Tab<INode*> targetNodes_;
  std::unique_ptr<TargetIndex> index_;  // while a session runs

  // Pending placements, the same length all.
  std::vector<Point3> pendingPos_;
  std::vector<Point3> pendingRot_;  // Euler angles, radians
  std::vector<int> pendingType_;
  std::vector<int> pendingRand_;
  std::vector<int> pendingAnimRand_;
  CollisionIndex pendingIndex_;

  // The running stroke.
  std::vector<int> selectedTypes_;
  float paintPctTotal_ = 0;
  float strokeTravel_ = 0;  // world units, not yet spent by the multi tool
  Point3 strokeLast_{0, 0, 0};
  bool strokeStarted_ = false;
  std::optional<UndoStep> eraseStep_;  // spans the events of an eraser's stroke
  float collisionDist_ = 0;            // world units
  float eraseChance_ = 1;              // 0 to 1
  float falloff_ = 0;                  // 0 to 1
};

}  // namespace sowfield
