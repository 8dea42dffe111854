#include "sowfield/paint/painter.h"

#include <algorithm>

#include "host/core/classdesc.h"
#include "host/interface.h"

namespace sowfield {

/// Ends paint mode on a right click in a view.
class RightClickToExitPaint : public IPainterRightClickHandler {
 public:
  void RightClick() override {
    if (painter) painter->EndPaint();
  }
  SowfieldPainter* painter = nullptr;  // who last started a session
};

namespace {

RightClickToExitPaint rightClick;

}  // namespace

SowfieldPainter::SowfieldPainter(Distribution& d, PaintState& state)
    : d_(d),
      state_(state),
      paintSystem_(CreateInstance(PAINT_SYSTEM_CLASS_ID, PAINTERINTERFACE_CLASS_ID)),
      cursor_(*this) {
  if (paintSystem_)
    painter_ = static_cast<IPainterInterface_V7*>(paintSystem_->GetInterface(PAINTERINTERFACE_V7));
  d_.AddListener(this);
  RegisterNotification(NodeLeft, this, NOTIFY_NODE_LEFT_SCENE);
}

SowfieldPainter::~SowfieldPainter() {
  UnRegisterNotification(NodeLeft, this, NOTIFY_NODE_LEFT_SCENE);
  d_.RemoveListener(this);
  if (rightClick.painter == this) rightClick.painter = nullptr;
  if (Interface* ip = GetCOREInterface()) {  // none is left when the program ends
    ip->UnRegisterRedrawViewsCallback(&cursor_);
    CloseEraseStep();
    DeletePreviews(false);
    DropSourceNodes();
  }
  if (painter_) {
    painter_->InitializeCallback(nullptr);
    painter_->EndPaintSession();
  }
  if (paintSystem_) paintSystem_->DeleteThis();
}

void* SowfieldPainter::GetInterface(std::uint32_t id) {
  if (id == PAINTERCANVASINTERFACE_V5) return static_cast<IPainterCanvasInterface_V5*>(this);
  return ReferenceTarget::GetInterface(id);
}

void SowfieldPainter::FillSourceNodes() {
  DropSourceNodes();
  for (const TypeRef& t : TypeWalk(*d_.block)) sourceNodes_.push_back(d_.SourceNode(t));
}

void SowfieldPainter::SetPaintTool() {
  if (!painter_ || d_.TypeCount() == 0) {
    EndPaint();
    return;
  }
  if (!painter_->InPaintMode()) {
    painter_->InitializeCallback(this);
    painter_->SetOptions(false, true);
    if (!painter_->StartPaintSession(&rightClick)) {
      state_.paintTool = kNoTool;
      d_.Tell(Event::PaintToolChanged);
      return;
    }
    rightClick.painter = this;
    FillSourceNodes();
    index_ =
        std::make_unique<TargetIndex>([this](const INode* n) { return isPreview_.contains(n); });
    cursor_.Restart();
    GetCOREInterface()->RegisterRedrawViewsCallback(&cursor_);
  } else if (state_.paintTool == kEraseTool) {
    CommitPending();  // erasing works on the tables, so nothing may wait
  } else {
    // An eraser's stroke that still runs goes on with this tool.
    CloseEraseStep();
    PrepareCollisions();
    if (state_.paintTool == kMultiTool && d_.block->GetInt(Paint_On_Self, d_.curTime))
      targetNodes_.ZeroCount();
  }
  d_.Tell(Event::PaintToolChanged);
}

void SowfieldPainter::EndPaint() {
  const auto tellEnd = [&] {
    d_.Tell(Event::PaintToolChanged);
    d_.Tell(Event::StatsChanged);
    GetCOREInterface()->SetHostSwitch(true);
  };
  if (!painter_) {
    state_.paintTool = kNoTool;
    tellEnd();
    return;
  }
  if (painter_->InPaintMode()) painter_->EndPaintSession();
  GetCOREInterface()->UnRegisterRedrawViewsCallback(&cursor_);
  state_.paintTool = kNoTool;
  CloseEraseStep();
  DropSourceNodes();
  CommitPending();
  selectedTypes_.clear();
  targetNodes_.ZeroCount();
  index_.reset();
  tellEnd();
}

void SowfieldPainter::ResetTargets() {
  if (!painter_) return;
  targetNodes_.ZeroCount();
  painter_->InitializeNodes(0, 0, nullptr);
}

bool SowfieldPainter::CancelStroke() {
  EndPaint();
  return true;
}

bool SowfieldPainter::SystemEndPaintSession() {
  EndPaint();
  return true;
}

// The type list may change while painting. What waits keeps its type indices if types only came at
// the end; else they no longer fit and it goes.
void SowfieldPainter::OnEvent(Event event) {
  if (event != Event::TypeListChanged || !InSession()) return;
  std::vector<INode*> before = sourceNodes_;
  for (INode*& source : before)
    if (std::find(fileNodes_.begin(), fileNodes_.end(), source) != fileNodes_.end())
      source = nullptr;
  FillSourceNodes();
  const bool fits = before.size() <= sourceNodes_.size() &&
                    std::equal(before.begin(), before.end(), sourceNodes_.begin());
  if (!fits) {
    DropPending();
    if (!selectedTypes_.empty()) SelectTypes();
  }
  if (d_.TypeCount() == 0) EndPaint();
}

void SowfieldPainter::NodeLeft(void* param, NotifyInfo* info) {
  auto* self = static_cast<SowfieldPainter*>(param);
  auto* node = static_cast<INode*>(info->subject);
  if (self->isPreview_.erase(node) > 0) {
    std::erase(self->strokeNodes_, node);
    return;
  }
  Tab<INode*>& targets = self->targetNodes_;
  for (int i = targets.Count(); i-- > 0;)
    if (targets[i] == node) targets.Delete(i, 1);
  for (INode*& source : self->sourceNodes_)
    if (source == node) source = nullptr;
  std::erase(self->fileNodes_, node);
}

TargetQuery SowfieldPainter::QueryAlong(const SightLine& line, const Reach& reach) const {
  const IParamBlock2& block = *d_.block;
  Interface* ip = GetCOREInterface();
  const bool onSelf = block.GetInt(Paint_On_Self, d_.curTime) != 0;
  const int mode = block.GetInt(Display_Mode, d_.curTime);
  return {SowfieldObjectsAreTargets(onSelf, state_.paintTool, mode), ip->GetTime(),
          ip->GetActiveViewExp(), line, reach};
}

bool SowfieldPainter::TakeTargets(const Tab<INode*>& found) {
  for (INode* n : found) {
    if (targetNodes_.Contains(n)) continue;
    targetNodes_ = found;
    painter_->InitializeNodes(0, targetNodes_.Count(), &targetNodes_[0]);
    return true;
  }
  return false;
}

bool SowfieldPainter::UpdateTargetsAtCursor(const ViewExp& view, const IPoint2& mouse,
                                            const Point3* towards) {
  const Ray ray = view.MapScreenToWorldRay(float(mouse.x), float(mouse.y));
  const SightLine line = SightLineThrough(ray.p, towards ? *towards : ray.p + ray.dir);
  Tab<INode*> found;
  index_->Collect(GetCOREInterface()->GetScene(), QueryAlong(line, {.scaled = true}), found);
  return TakeTargets(found);
}

void SowfieldPainter::WidenTargets(const PainterEvent& event, const ViewExp& view) {
  const Ray ray = view.MapScreenToWorldRay(float(event.mouse.x), float(event.mouse.y));
  const SightLine line = SightLineThrough(ray.p, event.worldPoint);
  Tab<INode*> found = targetNodes_;
  index_->Collect(GetCOREInterface()->GetScene(), QueryAlong(line, {.radius = event.radius}),
                  found);
  TakeTargets(found);
}

}  // namespace sowfield
