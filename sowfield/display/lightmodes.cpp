#include "sowfield/display/lightmodes.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/viewport/graphicswindow.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/palette.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/sources/sourceframe.h"

namespace sowfield {
namespace {

constexpr int kAlwaysAll = 25, kFewest = 10;
constexpr float kPercentAboveFirst = 0.01010101f;  // one of the 99 steps from 1 to 100 percent

// Few enough for the caches, many enough for the bulk kernel.
constexpr size_t kBlock = 256;

// Brings blocks of stored positions into the object's own space.
class ObjectSpace {
 public:
  ObjectSpace(std::span<const Point3> stored, const Places& places, const Matrix3& objectTM)
      : stored_(stored),
        places_(places),
        toObject_(Inverse(objectTM)),
        same_(toObject_.IsIdentity()) {}
  const Point3* Block(size_t first, size_t count) {
    if (same_ && places_.AreAll()) return &stored_[first];
    for (size_t i = 0; i < count; ++i) {
      const Point3& p = stored_[places_[first + i]];
      block_[i] = same_ ? p : p * toObject_;
    }
    return block_;
  }

 private:
  std::span<const Point3> stored_;
  const Places& places_;
  Matrix3 toObject_;
  bool same_;
  Point3 block_[kBlock];
};

void DrawDots(const PlacementBatch& batch, const PlacementEvaluator& placements,
              const Places& places, ObjectSpace& positions, GraphicsWindow& gw) {
  std::vector<std::uint32_t> colors;
  for (int type = 0; type < placements.TypeCount(); ++type)
    colors.push_back(GraphicsWindow::PackedColor(UnpackColor(TypeColor(type))));
  Point3 buffer[kBlock];
  std::uint32_t rgba[kBlock];
  for (size_t first = 0; first < places.size(); first += kBlock) {
    const size_t count = std::min(kBlock, places.size() - first);
    const Point3* at = batch.Origins(places, first, count, positions.Block(first, count), buffer);
    for (size_t i = 0; i < count; ++i) rgba[i] = colors[size_t(placements.Type(places[first + i]))];
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

void LightDrawer::Draw(TimeValue t, GraphicsWindow& gw) {
  const int mode = d_.block->GetInt(Display_Mode, t);
  if (!IsLightMode(mode)) return;
  const INode* own = d_.OwnNode();
  if (!own || d_.TypeCount() == 0 || !TablesAgree(d_)) return;
  PlacementFilter filter(d_, t, kSeen);
  if (mode == kShowNone) return;

  MakeFigures(mode, t, filter);
  const Places places = filter.Passing();
  const PlacementEvaluator placements(*d_.block, t);
  const PlacementBatch batch(placements);
  ObjectSpace positions(placements.Positions(), places, own->GetObjectTM(t));
  if (mode == kShowDot) {
    DrawDots(batch, placements, places, positions, gw);
    return;
  }
  Matrix3 matrices[kBlock];
  int colored = -1;
  for (size_t first = 0; first < places.size(); first += kBlock) {
    const size_t count = std::min(kBlock, places.size() - first);
    batch.Matrices(places, first, count, positions.Block(first, count), matrices);
    for (size_t i = 0; i < count; ++i) {
      const int type = placements.Type(places[first + i]);
      const LightFigure& figure = figures_[size_t(type)];
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

// A type whose source is gone shows nothing.
void LightDrawer::MakeFigures(int mode, TimeValue t, PlacementFilter& filter) {
  const IParamBlock2& block = *d_.block;
  const std::span<const int> samples = block.Ints(Geo_PointCount);
  figures_.assign(size_t(d_.TypeCount()), {});
  points_.clear();
  int firstSample = 0;
  for (const TypeRef& type : TypeWalk(block)) {
    LightFigure& figure = figures_[size_t(type.type)];
    if (type.HasNode() && !d_.SourceNode(type)) filter.LeaveOut(type.type);
    const bool shown = filter.TakesType(type.type);
    figure.first = points_.size();
    if (shown && mode == kShowBox) AddBox(type, t);
    if (shown && mode == kShowCloud) AddCloud(type, t, firstSample);
    figure.count = points_.size() - figure.first;
    firstSample += samples[size_t(type.type)];
  }
}

// The box stands on the middle of its floor.
void LightDrawer::AddBox(const TypeRef& type, TimeValue t) {
  const Point3 a = d_.block->GetPoint3(Geo_BoxMax, t, type.type);
  const Point3 b = d_.block->GetPoint3(Geo_BoxMin, t, type.type);
  const Point3 floor((b.x + a.x) / 2, (b.y + a.y) / 2, b.z);
  const SourceFrame frame = BoxFrame(d_.SourceNode(type), t, floor);
  const Point3 half = (a - b) * 0.5f;
  for (const float z : {0.0f, a.z - b.z})
    for (const Point3& corner : {Point3(half.x, half.y, z), Point3(half.x, -half.y, z),
                                 Point3(-half.x, -half.y, z), Point3(-half.x, half.y, z)})
      points_.push_back(frame(corner));
}

void LightDrawer::AddCloud(const TypeRef& type, TimeValue t, int firstSample) {
  const int count = d_.block->GetInt(Geo_PointCount, t, type.type);
  const int shown = CloudPoints(count, d_.block->GetInt(PointCloud, t));
  const SourceFrame frame = MeshFrame(d_.SourceNode(type), t);
  const std::span<const Point3> all = d_.block->Points(Geo_Points);
  for (const Point3& sample : all.subspan(size_t(firstSample), size_t(shown)))
    points_.push_back(frame(sample));
}

}  // namespace sowfield
