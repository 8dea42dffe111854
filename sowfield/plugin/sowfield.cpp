#include "sowfield/plugin/sowfield.h"

#include <algorithm>

#include "host/interface.h"
#include "host/scene/mtl.h"
#include "host/viewport/renderitems.h"
#include "host/viewport/viewexp.h"
#include "sowfield/display/bounds.h"
#include "sowfield/display/viewerinstances.h"
#include "sowfield/model/classids.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/palette.h"
#include "sowfield/model/typedata.h"
#include "sowfield/model/typerows.h"
#include "sowfield/plugin/classdesc.h"
#include "sowfield/resources/strings.h"
#include "sowfield/sources/proxyfiles.h"

namespace sowfield {
namespace {

constexpr int kPickSize = 4;  // pixels round the mouse

constexpr int kNotifications[] = {NOTIFY_PRE_RENDER,     NOTIFY_POST_RENDER,
                                  NOTIFY_RENDER_PREEVAL, NOTIFY_POST_RENDERFRAME,
                                  NOTIFY_FILE_PRE_OPEN,  NOTIFY_FILE_POST_OPEN};

// Finds the first node among the dependents that stands in the scene: a deleted node refers to its
// object for as long as the deletion can be undone.
class MyEnumProc : public DependentEnumProc {
 public:
  bool proc(ReferenceTarget* dependent) override {
    if (dependent->SuperClassID() != BASENODE_CLASS_ID) return false;
    auto* found = static_cast<INode*>(dependent);
    if (!found->InScene()) return false;
    node = found;
    return true;
  }
  INode* node = nullptr;
};

// Slot 0 is the object's own colour, slot t + 1 that of type t: the display mesh's material ids.
Mtl* MakeDisplayMtl(TimeValue t) {
  auto* multi = static_cast<MultiMtl*>(CreateInstance(MATERIAL_CLASS_ID, MultiMtl::kClassID));
  if (!multi) return nullptr;
  multi->SetNumSubMtls(int(kTypePalette.size()) + 1);
  multi->GetSubMtl(0)->SetDiffuse(UnpackColor(kObjectColor), t);
  for (int i = 0; i < int(kTypePalette.size()); ++i)
    multi->GetSubMtl(i + 1)->SetDiffuse(UnpackColor(TypeColor(i)), t);
  return multi;
}

}  // namespace

Sowfield::Sowfield() : distribution(*this), builder_(distribution), light_(distribution) {
  GetSowfieldDesc()->MakeAutoParamBlocks(this);
  for (const int code : kNotifications) RegisterNotification(OnNotification, this, code);
}

Sowfield::~Sowfield() {
  distribution.SetListReady(0);
  EditContext& context = TheEditContext();
  if (context.currentObject == this) {
    context.currentPainter.reset();
    context.currentObject = nullptr;
  }
  GetCOREInterface()->ClearPickMode();
  DeleteAllRefsToMe();
  DeleteAllRefsFromMe();
  for (const int code : kNotifications) UnRegisterNotification(OnNotification, this, code);
}

Class_ID Sowfield::ClassID() const { return kSowfieldClassID; }

void Sowfield::GetClassName(WStr& name) const {
  const wchar_t* text = GetString(kStringClassName);
  name = text ? text : L"";
}

const wchar_t* Sowfield::GetObjectName() {
  const wchar_t* text = GetString(kStringObjectName);
  return text ? text : L"";
}

void Sowfield::SetReference(int, ReferenceTarget* t) {
  if (pblock2) {
    pblock2->SetObserver(Ins_Pos, nullptr);
    pblock2->SetOwner(nullptr);
  }
  pblock2 = static_cast<IParamBlock2*>(t);
  distribution.block = pblock2;
  paint.stored.Clear();
  if (pblock2) pblock2->SetOwner(this);
}

IParamBlock2* Sowfield::GetParamBlockByID(int id) {
  return pblock2 && pblock2->ID() == id ? pblock2 : nullptr;
}

ReferenceTarget* Sowfield::Clone(RemapDir& remap) {
  auto* clone = new Sowfield;
  remap.AddMapping(this, clone);
  clone->ReplaceReference(0, remap.CloneRef(pblock2));
  clone->RefreshObject();
  TakeBrushMinimum(clone->distribution);
  BaseClone(this, clone, remap);
  return clone;
}

INode* Sowfield::OwnNode() {
  MyEnumProc finder;
  DoEnumDependents(&finder);
  return finder.node;
}

void Sowfield::InitNewObject() {
  Distribution& d = distribution;
  if (INode* node = OwnNode()) {
    node->SetNodeTM(d.curTime, TransMatrix(node->GetNodeTM(d.curTime).GetTrans()));
    node->SetWireColor(kObjectColor);
    displayMtl = MakeDisplayMtl(d.curTime);
    node->SetMtl(displayMtl);
    AddToObjectsLayer(node);
  }
  AppendGlobalRow(d);
}

void Sowfield::RefreshObject() {
  Interface* ip = GetCOREInterface();
  distribution.curTime = ip->GetTime();
  ivalid.SetEmpty();
  const bool outer = std::exchange(refreshing_, true);
  UpdateMesh(distribution.curTime);
  refreshing_ = outer;
  // No reader fills in the middle of a change; who refreshes there knows that the tables agree.
  if (!distribution.ListReady()) builder_.Fill(mesh);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE, NOTIFY_ALL, true);
  ip->RedrawViews(distribution.curTime, REDRAW_NORMAL, nullptr);
}

void Sowfield::UpdateMesh(TimeValue t) {
  if (!distribution.ListReady() && !refreshing_) return;
  if (builder_.WaitsForNode() && OwnNode()) ivalid.SetEmpty();
  SimpleObject2::UpdateMesh(t);
  if (!refreshing_) FillMesh();
}

void Sowfield::FillMesh() {
  if (distribution.ListReady()) builder_.Fill(mesh);
}

void Sowfield::BuildMesh(TimeValue t) {
  builder_.Build(t);
  if (pblock2->Count(Proxy_Files) > 0) CheckProxyFiles();
  ivalid = {t, t};
}

std::unique_ptr<InstanceSet> Sowfield::InstancesAt(TimeValue t) {
  return MakeViewerInstances(distribution, t);
}

bool Sowfield::InLightMode(TimeValue t) const {
  return IsLightMode(pblock2->GetInt(Display_Mode, t));
}

int Sowfield::Display(TimeValue t, INode* node, ViewExp* view, int) {
  if (!view || !view->IsAlive()) return 0;
  GraphicsWindow& gw = *view->getGW();
  gw.setTransform(node->GetObjectTM(t));
  UpdateMesh(t);
  if (!proxyFilesFound) {
    gw.setColor(TEXT_COLOR, 1, 0, 0);
    gw.text(Point3(0, 0, 0), L"Cannot find external file !");
  }
  light_.Draw(t, gw);  // by the mode that the build has left
  return 1;
}

int Sowfield::HitTest(TimeValue t, INode* node, HitType type, int crossing, int flags, IPoint2* p,
                      ViewExp* view) {
  if (!view || !view->IsAlive()) return 0;
  UpdateMesh(t);
  GraphicsWindow& gw = *view->getGW();
  HitRegion region = MakeHitRegion(type, crossing != 0, kPickSize, p);
  gw.setHitRegion(region);
  gw.clearHitCode();
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits((limits & ~GW_ILLUM) | GW_PICK);

  gw.setTransform(node->GetObjectTM(t));
  int hit = mesh.select(&gw, nullptr, &region, flags & HIT_ABORTONHIT);
  light_.Draw(t, gw);
  if (gw.checkHitCode()) hit = 1;
  gw.setRndLimits(limits);
  return hit;
}

// Not held back by suspendSnap, which stays set once the user has placed the object.
int Sowfield::Snap(TimeValue t, INode* node, SnapInfo* snap, IPoint2* p, ViewExp* view) {
  if (!view || !view->IsAlive()) return 0;
  GraphicsWindow& gw = *view->getGW();
  const Matrix3 tm = node->GetObjectTM(t);
  gw.setTransform(tm);
  UpdateMesh(t);
  return mesh.snap(&gw, snap, p, tm);
}

void Sowfield::GetLocalBoundBox(TimeValue t, INode* node, ViewExp* view, Box3& box) {
  SimpleObject2::GetLocalBoundBox(t, node, view, box);
  if (InLightMode(t))
    box = LightBounds(distribution, t, view, box, node ? node->GetObjectTM(t) : Matrix3());
}

bool Sowfield::PrepareDisplay(UpdateDisplayContext& context) {
  FillMesh();
  // A refresh asks for another redraw, which would refresh again: once for each mesh is enough. In
  // the middle of a change the tables may disagree; its end refreshes by itself.
  if (mesh.verts.empty() && mesh.Stamp() != emptyMesh_ && distribution.ListReady()) {
    RefreshObject();
    FillMesh();
    if (mesh.verts.empty()) emptyMesh_ = mesh.Stamp();
  }
  if (mesh.verts.empty()) return false;
  GenerateMeshRenderItemsContext elements;
  elements.GenerateDefaultContext(context);
  if (const auto display = GetMeshDisplay(mesh)) display->PrepareDisplay(elements);
  return true;
}

bool Sowfield::UpdatePerNodeItems(UpdateDisplayContext& context, UpdateNodeContext& nodeContext,
                                  RenderItemContainer& container) {
  FillMesh();
  if (mesh.verts.empty()) return false;
  GenerateMeshRenderItemsContext elements;
  elements.GenerateDefaultContext(context);
  elements.RemoveInvisibleMeshElementDescriptions(nodeContext.GetRenderNode());
  const auto display = GetMeshDisplay(mesh);
  if (display) display->UpdateNodeItems(elements, nodeContext, container);
  return display.has_value();
}

Mesh* Sowfield::GetRenderMesh(TimeValue, INode*, ViewExp*, bool& needDelete) {
  needDelete = true;
  return new Mesh;
}

RefResult Sowfield::NotifyRefChanged(const Interval&, ReferenceTarget* target, PartID&,
                                     RefMessage message) {
  if (target != pblock2 || !pblock2) return REF_SUCCEED;
  if (IsOfSources(pblock2->LastNotifyParamID())) distribution.leastRadius.reset();
  MessageState state{message,
                     pblock2->LastNotifyParamID(),
                     theHold.Holding(),
                     theHold.RestoreOrRedoing(),
                     distribution.ListReady(),
                     pblock2->GetInt(Display_Mode),
                     false};
  state.refreshFollows = RefreshFollows(state);
  for (const Effect e : Decide(state)) CarryOut(e);
  return REF_SUCCEED;
}

// By the build that runs already, or in answer to a message of the step that is still to come.
bool Sowfield::RefreshFollows(MessageState s) const {
  if (s.restoreOrRedoing == 0 || refreshing_) return refreshing_;
  s.message = REFMSG_CHANGE;
  const auto params = AllParams();
  return std::any_of(params.begin(), params.end(), [&](const ParamEntry& e) {
    if (!theHold->WillTell({pblock2, e.id})) return false;
    s.param = e.id;
    const Effects effects = Decide(s);
    return std::find(effects.begin(), effects.end(), Effect::RefreshObject) != effects.end();
  });
}

void Sowfield::CheckProxyFiles() {
  const int found = AllMoksetFilesExist(distribution);
  if (std::exchange(proxyFilesFound, found) != found) distribution.Tell(Event::TypeListChanged);
}

void Sowfield::CarryOut(Effect effect) {
  Distribution& d = distribution;
  switch (effect) {
    case Effect::RefreshObject:
      RefreshObject();
      break;
    case Effect::ListReady0:
      d.SetListReady(0);
      break;
    case Effect::ListReady1:
      d.SetListReady(1);
      break;
    case Effect::RemoveNulledTypes:
      // A node that goes along with a type may be the source of others: the walk finds them too.
      if (std::exchange(removingTypes_, true)) break;
      RemoveNulledTypes(d);
      removingTypes_ = false;
      break;
    case Effect::RemoveNulledSplines:
      for (int i = 0; i < pblock2->Count(Excl_Splines);) {
        if (pblock2->GetINode(Excl_Splines, 0, i)) {
          ++i;
        } else {
          pblock2->Delete(Excl_Splines, i, 1);
        }
      }
      break;
    case Effect::DropVariations:
      d.Tell(Event::VariationsDropped);
      break;
    case Effect::CheckProxyFiles:
      CheckProxyFiles();
      break;
    case Effect::TakeBrushMinimum:
      TakeBrushMinimum(d);
      break;
    case Effect::FitShownType:
      FitShownType(d);
      break;
    case Effect::TellTypeList:
      d.Tell(Event::TypeListChanged);
      break;
    case Effect::TellPainterList:
      d.Tell(Event::PainterListChanged);
      break;
    case Effect::TellRowControls:
      d.Tell(Event::RowControlsChanged);
      break;
    case Effect::TellStats:
      d.Tell(Event::StatsChanged);
      break;
    case Effect::TellBrushSize:
      d.Tell(Event::BrushSizeChanged);
      break;
    case Effect::TellCollision:
      d.Tell(Event::CollisionChanged);
      break;
    case Effect::TellEraseChance:
      d.Tell(Event::EraseChanceChanged);
      break;
    case Effect::TellColorShift:
      d.Tell(Event::ColorShiftChanged);
      break;
    case Effect::TellExclusion:
      d.Tell(Event::ExclusionChanged);
      break;
    case Effect::TellCamera:
      d.Tell(Event::CameraChanged);
      break;
  }
}

void Sowfield::OnNotification(void* param, NotifyInfo* info) {
  auto* self = static_cast<Sowfield*>(param);
  Distribution& d = self->distribution;
  switch (info->intcode) {
    case NOTIFY_FILE_PRE_OPEN:
      d.SetListReady(0);
      break;
    case NOTIFY_FILE_POST_OPEN:
      d.SetListReady(1);
      UpgradeNormalRows(d);
      d.curTime = GetCOREInterface()->GetTime();
      TakeBrushMinimum(d);
      break;
    case NOTIFY_PRE_RENDER:
      GetCOREInterface()->PrintToListener(
          L"Sowfield: placements can't be rendered yet; this render shows none.\n");
      break;
    case NOTIFY_RENDER_PREEVAL:
    case NOTIFY_POST_RENDERFRAME:
      d.curTime = info->time;
      break;
    case NOTIFY_POST_RENDER:
      d.curTime = GetCOREInterface()->GetTime();
      break;
    default:
      break;
  }
}

void Sowfield::BeginEditParams(Interface* ip, unsigned flags, void*) {
  ip_ = ip;
  if (flags != kEditModify && flags != kEditCreate) return;
  // The header and statistics panels make their owner the current object as they open.
  EditContext& context = TheEditContext();
  if (context.currentObject != this) context.ClosePainter();
  context.currentObject = this;
  panelsOpen_ = true;
}

void Sowfield::EndEditParams(Interface* ip, unsigned, void*) {
  ip->ClearPickMode();
  EditContext& context = TheEditContext();
  if (context.currentObject == this) context.ClosePainter();
  panelsOpen_ = false;
  const Interval now(distribution.curTime, distribution.curTime);
  NotifyDependents(now, PART_ALL, REFMSG_END_EDIT, NOTIFY_ALL, true);
}

CreateMouseCallBack* Sowfield::GetCreateMouseCallBack() {
  static SowfieldCreateCallBack callback;
  callback.SetObject(this);
  return &callback;
}

}  // namespace sowfield
