#include "sowfield/display/lightmodes.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/viewport/graphicswindow.h"
#include "sowfield/display/exclusionseam.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/palette.h"
#include "sowfield/model/placementbatch.h"

namespace sowfield {
namespace {

constexpr int kAlwaysAll = 25, kFewest = 10;
constexpr float kPercentAboveFirst = 0.01010101f;  // one of the 99 steps from 1 to 100 percent

// Rotation and scale of a source, and what is subtracted to stand it on its placement.
struct SourceFrame {
  Matrix3 turn;
  Point3 offset{0, 0, 0};
};

// `stand` is the point of the source, in its object's space, that comes to the placement.
SourceFrame FrameOf(const INode* node, TimeValue t, const Point3& stand) {
  SourceFrame frame;
  if (!node) return frame;  // a file's points are in their own frame
  frame.turn = node->GetNodeTM(t);
  frame.offset = frame.turn.GetTrans() - stand * node->GetObjectTM(t);
  frame.turn.NoTrans();
  return frame;
}

// Few enough for the caches, many enough for the bulk kernel.
constexpr size_t kBlock = 256;

// Brings blocks of stored positions into the object's own space.
class ObjectSpace {
 public:
  ObjectSpace(std::span<const Point3> stored, const Matrix3& objectTM)
      : stored_(stored), toObject_(Inverse(objectTM)), same_(toObject_.IsIdentity()) {}
  const Point3* Block(size_t first, size_t count) {
    if (same_) return &stored_[first];
    for (size_t i = 0; i < count; ++i) block_[i] = stored_[first + i] * toObject_;
    return block_;
  }

 private:
  std::span<const Point3> stored_;
  Matrix3 toObject_;
  bool same_;
  Point3 block_[kBlock];
};

// Dots of placements whose figure is shown, in bulk.
void DrawDots(const PlacementBatch& batch, const PlacementEvaluator& placements,
              std::span<const LightFigure> figures, ObjectSpace& positions, GraphicsWindow& gw) {
  std::vector<std::uint32_t> colors;
  bool all = true;
  for (size_t type = 0; type < figures.size(); ++type) {
    colors.push_back(GraphicsWindow::PackedColor(UnpackColor(TypeColor(int(type)))));
    all = all && figures[type].shown;
  }
  Point3 buffer[kBlock];
  std::uint32_t rgba[kBlock];
  for (size_t first = 0; first < placements.Count(); first += kBlock) {
    size_t count = std::min(kBlock, placements.Count() - first);
    const Point3* at = batch.Origins(first, count, positions.Block(first, count), buffer);
    const int* types = &placements.Types()[first];
    if (all) {
      for (size_t i = 0; i < count; ++i) rgba[i] = colors[size_t(types[i])];
    } else {
      size_t shown = 0;
      for (size_t i = 0; i < count; ++i) {
        buffer[shown] = at[i];
        rgba[shown] = colors[size_t(types[i])];
        shown += figures[size_t(types[i])].shown;
      }
      at = buffer, count = shown;
    }
    gw.markers(count, at, rgba, DOT_MRKR);
  }
}

// Corners 0 to 3 go round the base, 4 to 7 stand on them.
void DrawBox(GraphicsWindow& gw, const Point3* corners, const Matrix3& m) {
  Point3 at[8];
  for (int i = 0; i < 8; ++i) at[i] = corners[i] * m;
  gw.polyline(4, at, true);
  gw.polyline(4, at + 4, true);
  for (int i = 0; i < 4; ++i) {
    const Point3 edge[2] = {at[i], at[i + 4]};
    gw.polyline(2, edge, false);
  }
}

}  // namespace

int CloudPoints(int samples, int percent) {
  if (samples <= kAlwaysAll) return samples;
  const float n =
      float(samples - kFewest) * kPercentAboveFirst * float(percent - 1) + float(kFewest);
  // Each whole i below n. The factor is rounded up: at 100 percent n comes out above the count.
  return std::min(int(std::ceil(n)), samples);
}

bool TablesAgree(const Distribution& d) { return d.ListReady() || FirstBreach(*d.block).empty(); }

void LightDrawer::Say() {
  if (said_ || !ExclusionAsked(d_)) return;
  said_ = true;
  GetCOREInterface()->PrintToListener(
      L"Sowfield: exclusion splines don't take effect yet; all placements are shown.\n");
}

void LightDrawer::Draw(TimeValue t, GraphicsWindow& gw) {
  const int mode = d_.block->GetInt(Display_Mode, t);
  if (!IsLightMode(mode)) return;
  const INode* own = d_.OwnNode();
  if (!own || d_.TypeCount() == 0 || !TablesAgree(d_)) return;
  Say();
  if (mode == kShowNone) return;

  MakeFigures(mode, t);
  const PlacementEvaluator placements(*d_.block, t);
  const PlacementBatch batch(placements);
  ObjectSpace positions(placements.Positions(), own->GetObjectTM(t));
  if (mode == kShowDot) {
    DrawDots(batch, placements, figures_, positions, gw);
    return;
  }
  Matrix3 matrices[kBlock];
  int colored = -1;
  for (size_t first = 0; first < placements.Count(); first += kBlock) {
    const size_t count = std::min(kBlock, placements.Count() - first);
    const Point3* at = positions.Block(first, count);
    batch.Matrices(first, count, at, matrices);
    for (size_t i = 0; i < count; ++i) {
      const int type = placements.Type(first + i);
      const LightFigure& figure = figures_[size_t(type)];
      if (!figure.shown) continue;
      if (type != colored) gw.setColor(LINE_COLOR, UnpackColor(TypeColor(type)));
      colored = type;
      if (mode == kShowBox) {
        DrawBox(gw, &points_[figure.first], matrices[i]);
      } else {
        for (size_t k = 0; k < figure.count; ++k)
          gw.marker(points_[figure.first + k] * matrices[i], DOT_MRKR);
      }
    }
  }
}

void LightDrawer::MakeFigures(int mode, TimeValue t) {
  const IParamBlock2& block = *d_.block;
  const int shownType = block.GetInt(Display_Type, t) - 1;
  const std::span<const int> samples = block.Ints(Geo_PointCount);
  figures_.assign(size_t(d_.TypeCount()), {});
  points_.clear();
  int firstSample = 0;
  for (const TypeRef& type : TypeWalk(block)) {
    LightFigure& figure = figures_[size_t(type.type)];
    figure.shown = (shownType < 0 || type.type == shownType) &&
                   (!type.HasNode() || d_.SourceNode(type) != nullptr);
    figure.first = points_.size();
    if (figure.shown && mode == kShowBox) AddBox(type, t);
    if (figure.shown && mode == kShowCloud) AddCloud(type, t, firstSample);
    figure.count = points_.size() - figure.first;
    firstSample += samples[size_t(type.type)];
  }
}

// The box stands on the middle of its floor.
void LightDrawer::AddBox(const TypeRef& type, TimeValue t) {
  const Point3 a = d_.block->GetPoint3(Geo_BoxMax, t, type.type);
  const Point3 b = d_.block->GetPoint3(Geo_BoxMin, t, type.type);
  const Point3 floor((b.x + a.x) / 2, (b.y + a.y) / 2, b.z);
  const SourceFrame frame = FrameOf(d_.SourceNode(type), t, floor);
  const Point3 half = (a - b) * 0.5f;
  for (const float z : {0.0f, a.z - b.z})
    for (const Point3& corner : {Point3(half.x, half.y, z), Point3(half.x, -half.y, z),
                                 Point3(-half.x, -half.y, z), Point3(-half.x, half.y, z)})
      points_.push_back(corner * frame.turn - frame.offset);
}

void LightDrawer::AddCloud(const TypeRef& type, TimeValue t, int firstSample) {
  const int count = d_.block->GetInt(Geo_PointCount, t, type.type);
  const int shown = CloudPoints(count, d_.block->GetInt(PointCloud, t));
  // The origin of the source's object space is where its object matrix takes it.
  const SourceFrame frame = FrameOf(d_.SourceNode(type), t, Point3(0, 0, 0));
  const std::span<const Point3> all = d_.block->Points(Geo_Points);
  for (const Point3& sample : all.subspan(size_t(firstSample), size_t(shown)))
    points_.push_back(sample * frame.turn - frame.offset);
}

}  // namespace sowfield
