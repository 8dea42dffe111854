#pragma once

#include "host/core/notify.h"
#include "host/scene/instancesource.h"
#include "host/scene/simpleobject.h"
#include "sowfield/display/displaymesh.h"
#include "sowfield/display/lightmodes.h"
#include "sowfield/model/distribution.h"
#include "sowfield/model/messages.h"
#include "sowfield/paint/paintstate.h"
#include "sowfield/panels/editcontext.h"
#include "sowfield/plugin/createcallback.h"

namespace sowfield {

/// The geometry object: a distribution of object types and placements held in one parameter block,
/// which is its only reference and all that is stored. Everything else here lasts while the object
/// is in memory.
class Sowfield : public SimpleObject2,
                 public ObjectSide,
                 public EditedObject,
                 public InstanceSource {
 public:
  Sowfield();
  ~Sowfield() override;

  // What features work on.
  Distribution distribution;
  PaintState paint;
  /// Given to the object's node by InitNewObject; the user may replace it.
  Mtl* displayMtl = nullptr;
  /// 0 when the file of a type can't be found: the views then say so.
  int proxyFilesFound = 1;

  // EditedObject.
  Distribution& EditedDistribution() override { return distribution; }
  PaintState& EditedPaintState() override { return paint; }
  void InitNewObject() override;

  // ObjectSide.
  void RefreshObject() override;
  INode* OwnNode() override;
  bool PanelsOpen() const override { return panelsOpen_; }

  // References.
  Class_ID ClassID() const override;
  void GetClassName(WStr& name) const override;
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return pblock2; }
  RefResult NotifyRefChanged(const Interval& changeInt, ReferenceTarget* target, PartID& partID,
                             RefMessage message) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  // Object.
  IParamBlock2* GetParamBlock(int) override { return pblock2; }
  IParamBlock2* GetParamBlockByID(int id) override;
  void BeginEditParams(Interface* ip, unsigned flags, void* prev) override;
  void EndEditParams(Interface* ip, unsigned flags, void* next) override;
  const wchar_t* GetObjectName() override;
  void InitNodeName(WStr& name) override { name = L"Sowfield_"; }
  Interval ObjectValidity(TimeValue t) override { return {t, t}; }
  unsigned GetObjectDisplayRequirement() const override { return 1; }
  int IntersectRay(TimeValue, const Ray&, float&, Point3&) override { return 0; }
  int HasUVW() override { return 1; }
  void SetGenUVW(bool) override {}
  /// Always a new empty mesh: geometry reaches the renderer by other ways.
  Mesh* GetRenderMesh(TimeValue t, INode* node, ViewExp* view, bool& needDelete) override;
  CreateMouseCallBack* GetCreateMouseCallBack();

  // Display. In the light modes placements are drawn here, in the others with the mesh.
  /// 0 if the view isn't alive.
  int Display(TimeValue t, INode* node, ViewExp* view, int flags) override;
  int HitTest(TimeValue t, INode* node, HitType type, int crossing, int flags, IPoint2* p,
              ViewExp* view) override;
  /// Vertices and edges of the display mesh: the logo, and in the heavy modes the placements.
  int Snap(TimeValue t, INode* node, SnapInfo* snap, IPoint2* p, ViewExp* view) override;
  /// The display mesh's box; in the light modes an estimate that covers all placements.
  void GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) override;
  bool PrepareDisplay(UpdateDisplayContext& context) override;
  bool UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& nodeContext,
                          RenderItemContainer& container) override;

  // InstanceSource.
  std::unique_ptr<InstanceSet> InstancesAt(TimeValue t) override;

  // SimpleObject2.
  /// A redraw that comes in the middle of a table change keeps the last mesh.
  /// Who reads the mesh calls this before, and finds it filled; a refresh alone writes no vertex.
  void UpdateMesh(TimeValue t) override;
  void BuildMesh(TimeValue t) override;

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  static void OnNotification(void* param, NotifyInfo* info);
  void CarryOut(Effect effect);
  bool RefreshFollows(MessageState s) const;
  void CheckProxyFiles();
  void FillMesh();

  bool InLightMode(TimeValue t) const;

  DisplayBuilder builder_;
  LightDrawer light_;
  std::uint64_t emptyMesh_ = 0;  // stamp of a mesh that a refresh has left empty
  Interface* ip_ = nullptr;
  bool panelsOpen_ = false;
  bool refreshing_ = false;
  bool removingTypes_ = false;  // because their nodes went
};

/// Flags of BeginEditParams.
inline constexpr unsigned kEditModify = 0;
inline constexpr unsigned kEditCreate = 1;

}  // namespace sowfield
