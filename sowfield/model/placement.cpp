#include "sowfield/model/placement.h"

#include <cmath>

#include "host/interface.h"
#include "host/math/quat.h"
#include "sowfield/model/units.h"

namespace sowfield {
namespace {

// Truncates towards zero; what a time can't hold goes to its nearer end.
TimeValue ToTime(float ticks) {
  if (!(ticks > -2147483648.0f)) return TIME_NegInfinity;
  if (ticks >= 2147483648.0f) return TIME_PosInfinity;
  return TimeValue(ticks);
}

}  // namespace

PlacementEvaluator::PlacementEvaluator(const IParamBlock2& b, TimeValue time)
    : zPos_{b.Floats(Tr_ZPos_Min), b.Floats(Tr_ZPos_Max), b.Floats(Rnd_ZPos)},
      normal_{b.Floats(Tr_Normal_Min), b.Floats(Tr_Normal_Max), b.Floats(Rnd_Normal)},
      xRot_{b.Floats(Tr_XRot_Min), b.Floats(Tr_XRot_Max), b.Floats(Rnd_XRot)},
      yRot_{b.Floats(Tr_YRot_Min), b.Floats(Tr_YRot_Max), b.Floats(Rnd_YRot)},
      zRot_{b.Floats(Tr_ZRot_Min), b.Floats(Tr_ZRot_Max), b.Floats(Rnd_ZRot)},
      xScale_{b.Floats(Tr_XScale_Min), b.Floats(Tr_XScale_Max), b.Floats(Rnd_XScale)},
      yScale_{b.Floats(Tr_YScale_Min), b.Floats(Tr_YScale_Max), b.Floats(Rnd_YScale)},
      zScale_{b.Floats(Tr_ZScale_Min), b.Floats(Tr_ZScale_Max), b.Floats(Rnd_ZScale)},
      random_(b.Ints(Tr_Random)),
      unify_(b.Ints(Tr_Unify)),
      animOn_(b.Ints(Tr_AnimOn)),
      animMin_(b.Ints(Tr_AnimMin)),
      animMax_(b.Ints(Tr_AnimMax)),
      animRandom_(b.Floats(Rnd_Anim)),
      positions_(b.Points(Ins_Pos)),
      normals_(b.Points(Ins_Normal)),
      types_(b.Ints(Ins_Type)),
      rands_(b.Ints(Ins_Rand)),
      animRands_(b.Ints(Ins_AnimRand)),
      time_(time),
      animStart_(GetCOREInterface()->GetAnimRange().Start()),
      ticksPerFrame_(float(GetTicksPerFrame())) {}

float PlacementEvaluator::Row::Value(int slot, bool ranged, int index, float unit,
                                     float rangeUnit) const {
  const float low = min[size_t(slot)];
  if (!ranged) return low * unit;
  return low * unit + (max[size_t(slot)] - low) * rangeUnit * random[size_t(index)];
}

PlacementEvaluator::RowValues PlacementEvaluator::Values(int slot, int own, int shared) const {
  const bool ranged = random_[size_t(slot)] != 0;
  return {zPos_.Value(slot, ranged, shared, 1.0f, kPercent),
          normal_.Value(slot, ranged, shared, 1.0f, kPercent),
          xRot_.Value(slot, ranged, own, kRadians, kPercentOfRadians),
          yRot_.Value(slot, ranged, shared, kRadians, kPercentOfRadians),
          zRot_.Value(slot, ranged, shared, kRadians, kPercentOfRadians),
          xScale_.Value(slot, ranged, own, kPercent, kPercentOfPercent),
          yScale_.Value(slot, ranged, own, kPercent, kPercentOfPercent),
          zScale_.Value(slot, ranged, own, kPercent, kPercentOfPercent)};
}

PlacementForm PlacementEvaluator::Form(int type, int row) const {
  const RowValues g = Values(0, row, row);
  RowValues t = Values(type + 1, (type + 1) * kBlockSize + row, row + kBlockSize + type);
  // The type's scale is a difference from 100 percent: the rows add, they do not multiply.
  t.xScale -= 1.0f;
  t.yScale -= 1.0f;
  t.zScale -= 1.0f;

  const bool unifyGlobal = unify_[0] != 0;
  const bool unifyType = unify_[size_t(type) + 1] != 0;
  PlacementForm f;
  f.scale = {t.xScale + g.xScale,
             (unifyType ? t.xScale : t.yScale) + (unifyGlobal ? g.xScale : g.yScale),
             (unifyType ? t.xScale : t.zScale) + (unifyGlobal ? g.xScale : g.zScale)};
  f.xAngle = t.xAngle + g.xAngle;
  f.yAngle = t.yAngle + g.yAngle;
  f.zAngle = t.zAngle + g.zAngle;
  f.zOffset = t.z + g.z;
  f.n = t.n + g.n;
  return f;
}

Matrix3 PlacementEvaluator::ApplyForm(const Matrix3& start, const PlacementForm& form) {
  Matrix3 m = start;
  m.Scale(form.scale);
  m.RotateX(form.xAngle);
  m.RotateY(form.yAngle);
  m.RotateZ(form.zAngle);
  m.SetTrans({0, 0, form.zOffset});
  return m;
}

Matrix3 PlacementEvaluator::Apply(const Matrix3& start, const PlacementForm& form,
                                  const Point3& angles, const Point3& position) {
  Matrix3 m = ApplyForm(start, form);
  m.RotateX(angles.x * kPercent * form.n);
  m.RotateY(angles.y * kPercent * form.n);
  m.RotateZ(angles.z);
  m.Translate(position);
  return m;
}

TimeValue PlacementEvaluator::Time(size_t p) const {
  const auto type = size_t(types_[p]);
  if (!animOn_[type] || animRandom_.empty()) return time_;
  const float random = animRandom_[size_t(animRands_[p] % kAnimTableSize)];
  const float low = float(animMin_[type]), high = float(animMax_[type]);
  const float frames = low + (high - low) * kPercent * random;
  const float offset = std::round(ticksPerFrame_ * frames);
  return ToTime(offset - float(animStart_) + float(time_));
}

Point3 StoredAngles(float spin, const Point3& normal, Matrix3* base) {
  Matrix3 m;
  m.RotateZ(spin);
  m = m * MatrixFromNormal(normal);
  float angles[3];
  QuatToEuler(Quat(m), angles);
  if (base) *base = m;
  return {angles[0], angles[1], angles[2]};
}

}  // namespace sowfield
