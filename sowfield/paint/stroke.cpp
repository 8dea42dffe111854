#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/math/quat.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/listchange.h"
#include "sowfield/model/units.h"
#include "sowfield/paint/painter.h"

namespace sowfield {
namespace {

// Hits whose surface is tilted further than this against the stroke's are refused, in degrees.
constexpr float kMostTilt = 80.0f;
constexpr long long kAttemptsPerCandidate = 10;

Point3 NormalDegrees(const Point3& normal) {
  float a[3];
  QuatToEuler(Quat(MatrixFromNormal(normal)), a);
  return {a[0] * kDegrees, a[1] * kDegrees, a[2] * kDegrees};
}

// The third difference keeps its sign, unlike the other two.
bool TooSteep(const Point3& hit, const Point3& reference) {
  return std::fabs(hit.x - reference.x) > kMostTilt || std::fabs(hit.y - reference.y) > kMostTilt ||
         hit.z - reference.z > kMostTilt;
}

}  // namespace

// The types that are selected in the painter's list, or all.
void SowfieldPainter::SelectTypes() {
  selectedTypes_.clear();
  for (const int row : d_.lists.painterRows)
    if (row < d_.TypeCount()) selectedTypes_.push_back(row);
  if (selectedTypes_.empty())
    for (int i = 0; i < d_.TypeCount(); ++i) selectedTypes_.push_back(i);
  paintPctTotal_ = 0;
  for (const int type : selectedTypes_)
    paintPctTotal_ += float(d_.block->GetInt(Geo_PaintPct, d_.curTime, type));
}

void SowfieldPainter::PrepareCollisions() {
  d_.block->SetObserver(Ins_Pos, &state_.stored);
  state_.stored.Prepare(d_.block->Points(Ins_Pos), collisionDist_);
  pendingIndex_.Prepare(pendingPos_, collisionDist_);
}

// The eraser writes only while its step is open: from the stroke's start, or from its first event
// where it was taken up under way.
void SowfieldPainter::OpenEraseStep() {
  if (!eraseStep_) eraseStep_.emplace(L"Vorn_Painter");
}

void SowfieldPainter::CloseEraseStep() {
  if (!eraseStep_) return;
  eraseStep_->Accept();
  eraseStep_.reset();
}

bool SowfieldPainter::StartStroke() {
  const IParamBlock2& block = *d_.block;
  const TimeValue t = d_.curTime;
  painter_->UpdateMeshes(false);
  strokeStarted_ = false;
  strokeTravel_ = 0;
  SelectTypes();
  painter_->SetBrushRadius(block.GetFloat(Brush_Size, t));
  collisionDist_ = block.GetFloat(Brush_Collision, t);
  eraseChance_ = float(block.GetInt(Brush_Erase, t)) * kPercent;
  // Beyond its range nearly every draw would be refused, and the free branch draws until one isn't.
  falloff_ = float(std::clamp(block.GetInt(Brush_Falloff, t), 0, 100)) * kPercent;
  GetCOREInterface()->SetHostSwitch(false);

  CloseEraseStep();  // of a stroke whose end was never told
  if (state_.paintTool == kEraseTool) {
    OpenEraseStep();
  } else {
    PrepareCollisions();
  }
  return true;
}

bool SowfieldPainter::PaintStroke(const PainterEvent& reported) {
  ViewExp* view = GetCOREInterface()->GetActiveViewExp();
  if (!view || !view->IsAlive()) {
    GetCOREInterface()->PrintToListener(L"Invalid viewport!\n");
    return false;
  }
  PainterEvent event = reported;
  if (!event.hit && !GroundPoint(*view, event.mouse, event.worldPoint)) return false;

  switch (state_.paintTool) {
    case kLineTool:
      LineTool(event);
      break;
    case kMultiTool:
      MultiTool(event, *view);
      break;
    case kEraseTool:
      Erase(event);
      break;
    default:
      break;
  }
  return true;
}

bool SowfieldPainter::EndStroke(int, const PainterEvent*) { return true; }

bool SowfieldPainter::EndStroke() {
  CloseEraseStep();
  CommitPending();  // nothing waits while the eraser is in hand
  selectedTypes_.clear();
  if (d_.block->GetInt(Paint_On_Self, d_.curTime)) {
    painter_->UpdateMeshes(false);
    painter_->AddToStroke(GetCOREInterface()->GetMousePosition(), false, false);
  }
  GetCOREInterface()->SetHostSwitch(true);
  d_.Tell(Event::StatsChanged);
  return true;
}

int SowfieldPainter::ChooseType() {
  const float r = d_.rng.RandomRange(paintPctTotal_, 0);
  float sum = 0;
  for (const int type : selectedTypes_) {
    const int share = d_.block->GetInt(Geo_PaintPct, d_.curTime, type);
    if (share == 0) continue;
    sum += float(share);
    if (sum >= r) return type;
  }
  return 0;
}

int SowfieldPainter::NextIndex(const std::vector<int>& pending, Param table, int modulus) const {
  if (!pending.empty()) return (pending.back() + 1) % modulus;
  const std::span<const int> stored = d_.block->Ints(table);
  return stored.empty() ? 0 : (stored.back() + 1) % modulus;
}

bool SowfieldPainter::Collides(const Point3& position) const {
  return pendingIndex_.AnyCloser(position, collisionDist_) ||
         state_.stored.AnyCloser(position, collisionDist_);
}

// Beyond the edge of the falloff a candidate is kept the less likely the nearer it is to the rim.
bool SowfieldPainter::FalloffRejects(float d, float radius) {
  if (!(d / radius > 1 - falloff_)) return false;
  const float x = (d - radius * (1 - falloff_)) / (radius * falloff_);
  return x >= d_.rng.Random(1);
}

void SowfieldPainter::Lay(int type, const Point3& position, float spin, const Point3& normal,
                          const Matrix3* freeOrientation) {
  const int row = NextIndex(pendingRand_, Ins_Rand, kBlockSize);
  const int animRow = NextIndex(pendingAnimRand_, Ins_AnimRand, kAnimTableSize);
  const Point3 angles = StoredAngles(spin, normal);
  ShowPreview(type, row, position, angles, freeOrientation);
  pendingPos_.push_back(position);
  pendingRot_.push_back(angles);
  pendingType_.push_back(type);
  pendingRand_.push_back(row);
  pendingAnimRand_.push_back(animRow);
  pendingIndex_.Insert(position);
}

void SowfieldPainter::LineTool(const PainterEvent& event) {
  if (Collides(event.worldPoint)) return;
  const int type = ChooseType();
  const Point3 normal = event.hit ? event.worldNormal : Point3(0, 0, 0);
  Lay(type, event.worldPoint, state_.brushAngle, normal, nullptr);
}

int SowfieldPainter::CandidatesFor(const PainterEvent& event) {
  const int amount = d_.block->GetInt(Brush_Amount, d_.curTime);
  if (!strokeStarted_) {
    strokeStarted_ = true;
    strokeLast_ = event.worldPoint;
    return amount;
  }
  strokeTravel_ += Length(event.worldPoint - strokeLast_);
  strokeLast_ = event.worldPoint;
  const float diameter = 2 * event.radius;
  const float n = std::trunc(strokeTravel_ / diameter * float(amount));
  if (!(n >= 1)) return 0;
  // What the travel pays for is spent before the limit: a jump doesn't leave a debt of placements.
  strokeTravel_ -= n * (diameter / float(amount));
  if (!std::isfinite(strokeTravel_)) strokeTravel_ = 0;  // a brush without size
  return n < float(amount) ? int(n) : amount;
}

void SowfieldPainter::MultiTool(const PainterEvent& event, const ViewExp& view) {
  const int n = CandidatesFor(event);
  if (n < 1) return;
  if (event.node) {
    SurfaceBranch(event, view, n);
  } else {
    FreeBranch(event, view, n);
  }
}

void SowfieldPainter::SurfaceBranch(const PainterEvent& event, const ViewExp& view, int n) {
  WidenTargets(event, view);
  const float brush = d_.block->GetFloat(Brush_Size, d_.curTime);
  painter_->SetBrushRadius(2 * brush);
  const Point3 reference = NormalDegrees(event.worldNormal);

  int accepted = 0;
  const long long attempts = n * kAttemptsPerCandidate;
  for (long long attempt = 0; attempt < attempts && accepted < n; ++attempt) {
    const int type = ChooseType();
    const PainterHit hit = painter_->RandomHit(-1);
    if (!hit.hit) continue;
    if (FalloffRejects(Length(hit.worldPoint - event.worldPoint), event.radius)) continue;
    if (TooSteep(NormalDegrees(hit.worldNormal), reference)) continue;
    // Counted before the collision test: a dense area soon ends the loop.
    ++accepted;
    if (Collides(hit.worldPoint)) continue;
    const float spin = d_.rng.Random(360) * kRadians;
    Lay(type, hit.worldPoint, spin, hit.worldNormal, nullptr);
  }
  painter_->SetBrushRadius(brush);
}

void SowfieldPainter::FreeBranch(const PainterEvent& event, const ViewExp& view, int n) {
  IPoint2 snapped;
  const Point3 center = view.SnapPoint(event.mouse, snapped, nullptr, 1);
  for (int i = 0; i < n; ++i) {
    const int type = ChooseType();
    const float a = d_.rng.Random(360) * kRadians;
    float d = d_.rng.Random(event.radius);
    while (FalloffRejects(d, event.radius)) d = d_.rng.Random(event.radius);

    const host::SinCos turn = host::SinCosOf(a);
    const Point3 position(center.x + d * float(turn.cos), center.y + d * float(turn.sin), center.z);
    if (Collides(position)) continue;
    const float spin = d_.rng.Random(360) * kRadians;
    Matrix3 orientation;
    StoredAngles(spin, Point3(0, 0, 0), &orientation);
    Lay(type, position, spin, Point3(0, 0, 0), &orientation);
  }
}

float SowfieldPainter::EraseChanceFor(const PainterEvent& event) {
  if (!(eraseChance_ < 1)) return 1;
  float chance = eraseChance_;
  // The chance follows the way: a slow stroke with many events erases no faster than a quick one.
  if (strokeStarted_)
    chance *= std::min(Length(event.worldPoint - strokeLast_) / event.radius, 1.0f);
  strokeStarted_ = true;
  strokeLast_ = event.worldPoint;
  return chance;
}

void SowfieldPainter::Erase(const PainterEvent& event) {
  IParamBlock2& block = *d_.block;
  const float chance = EraseChanceFor(event);
  const bool draws = eraseChance_ < 1;
  std::vector<unsigned char> takes(size_t(d_.TypeCount()), 1);
  if (!selectedTypes_.empty() && selectedTypes_.size() < takes.size()) {
    std::fill(takes.begin(), takes.end(), 0);
    for (const int type : selectedTypes_) takes[size_t(type)] = 1;
  }

  const std::span<const Point3> positions = block.Points(Ins_Pos);
  const std::span<const int> types = block.Ints(Ins_Type);
  std::vector<unsigned char> keep(positions.size(), 1);
  bool any = false;
  for (size_t p = positions.size(); p-- > 0;) {
    if (!takes[size_t(types[p])]) continue;
    if (!(Length(positions[p] - event.worldPoint) < event.radius)) continue;
    if (draws && d_.rng.Random(1) >= chance) continue;
    keep[p] = 0;
    any = true;
  }
  if (!any) return;

  OpenEraseStep();
  {
    ListChange change(d_, L"Vorn_Painter");
    for (const Param id : kPlacementTables) block.KeepEntries(id, keep);
    change.Accept();
  }
  if (!IsLightMode(block.GetInt(Display_Mode, d_.curTime))) {
    d_.RefreshObject();
    painter_->UpdateMeshes(false);  // the object's own mesh may be among the targets
  }
}

void SowfieldPainter::CommitPending() {
  if (pendingPos_.empty()) return;
  IParamBlock2& block = *d_.block;
  const int n = int(pendingPos_.size());
  UndoStep step(L"Vorn_Painter");  // holds the mode too that the display may have to lower
  {
    ListChange change(d_, L"Vorn_Painter");
    block.Append(Ins_Pos, n, pendingPos_.data());
    block.Append(Ins_Normal, n, pendingRot_.data());
    block.Append(Ins_Type, n, pendingType_.data());
    block.Append(Ins_Rand, n, pendingRand_.data());
    block.Append(Ins_AnimRand, n, pendingAnimRand_.data());
    change.Accept();
  }
  DeletePreviews();
  if (IsLightMode(block.GetInt(Display_Mode, d_.curTime))) {
    GetCOREInterface()->RedrawViews(d_.curTime);
  } else {
    d_.RefreshObject();
  }
  step.Accept();
  DropPending();
}

void SowfieldPainter::DropPending() {
  DeletePreviews();
  pendingPos_.clear();
  pendingRot_.clear();
  pendingType_.clear();
  pendingRand_.clear();
  pendingAnimRand_.clear();
  pendingIndex_.Clear();
}

}  // namespace sowfield
