#pragma once

#include "host/math/elementary.h"
#include "sowfield/display/figures.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {

/// A placement told step by step from the tables, one call of the block per number: the judge of
/// the evaluator and of the display mesh. Ids are written as numbers on purpose.
class PlacementTwin {
 public:
  PlacementTwin(const IParamBlock2& block, int p) : b_(block), p_(p), t_(b_.GetInt(89, 0, p)) {
    const int r = b_.GetInt(90, 0, p), own = (t_ + 1) * 100 + r, shared = r + 100 + t_;
    const auto sum = [&](ParamID low, ParamID high, ParamID random, int index, float unit) {
      return Value(low, high, random, t_ + 1, index, unit) + Value(low, high, random, 0, r, unit);
    };
    const float rad = 0.017453292f;
    z_ = sum(12, 13, 8, shared, 1), n_ = sum(101, 102, 100, shared, 1);
    turn_ = {sum(58, 59, 54, own, rad), sum(60, 61, 55, shared, rad), sum(14, 15, 9, shared, rad)};
    const auto sizes = [&](int slot, int i) {
      const float x = Value(16, 17, 10, slot, i, 0.01f), y = Value(63, 64, 56, slot, i, 0.01f);
      return b_.GetInt(62, 0, slot) ? Point3(x, x, x)
                                    : Point3(x, y, Value(65, 66, 57, slot, i, 0.01f));
    };
    scale_ = sizes(t_ + 1, own) - Point3(1, 1, 1) + sizes(0, r);
  }

  Matrix3 Matrix() const {
    std::array<Point3, 4> m = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};
    for (Point3& row : m) row = {row.x * scale_.x, row.y * scale_.y, row.z * scale_.z};
    for (int i = 0; i < 3; ++i) Turn(m, i, turn_[i]);
    m[3] = {0, 0, z_};
    const Point3 stored = b_.GetPoint3(88, 0, p_);
    for (int i = 0; i < 3; ++i) Turn(m, i, i == 2 ? stored.z : stored[i] * 0.01f * n_);
    return {m[0], m[1], m[2], m[3] + b_.GetPoint3(87, 0, p_)};
  }

  TimeValue Time(TimeValue now) const {
    if (!b_.GetInt(70, 0, t_)) return now;
    const float low = float(b_.GetInt(71, 0, t_)), range = float(b_.GetInt(72, 0, t_)) - low;
    const float frames = low + range * 0.01f * b_.GetFloat(69, 0, b_.GetInt(73, 0, p_));
    const TimeValue start = GetCOREInterface()->GetAnimRange().Start();
    return int(std::round(160 * frames) - float(start) + float(now));
  }

 private:
  float Value(ParamID low, ParamID high, ParamID random, int slot, int index, float unit) const {
    const float a = b_.GetFloat(low, 0, slot), b = b_.GetFloat(high, 0, slot);
    if (!b_.GetInt(11, 0, slot)) return a * unit;
    const float percent = unit == 1 ? 0.01f : unit == 0.01f ? 0.0001f : 0.00017453292f;
    return a * unit + (b - a) * percent * b_.GetFloat(random, 0, index);
  }
  static void Turn(std::array<Point3, 4>& m, int axis, float angle) {
    const auto s = float(host::Sin(angle)), c = float(host::Cos(angle));
    const int i = (axis + 1) % 3, j = (axis + 2) % 3;
    for (Point3& row : m) {
      const float u = row[i], v = row[j];
      row[i] = u * c - v * s, row[j] = u * s + v * c;
    }
  }

  const IParamBlock2& b_;
  int p_, t_;
  float z_, n_;
  Point3 turn_, scale_;
};

/// The display mesh as its rules tell it: figure by figure, number by number.
struct PlainMesh {
  std::vector<Point3> verts;
  std::vector<Face> faces;

  static Mesh FigureOf(const IParamBlock2& b, int mode, int type, INode* node, TimeValue now,
                       TimeValue own) {
    Matrix3 turn = node->GetNodeTM(now);
    turn.NoTrans();
    const Point3 top = b.GetPoint3(Geo_BoxMax, 0, type), low = b.GetPoint3(Geo_BoxMin, 0, type);
    const Point3 pivot = node->GetNodeTM(now).GetTrans();
    const Matrix3 object = node->GetObjectTM(now);
    const Point3 p = top * object, q = low * object, middle = (p + q) * 0.5f;
    const Point3 offset = pivot - (mode == 6 ? object.GetTrans() : Point3(middle.x, middle.y, q.z));
    Mesh mesh = mode == 4   ? MakePyramidMesh(top * turn, low * turn)
                : mode == 5 ? MakeSquirrelMesh((top * turn).z - (low * turn).z)
                            : *EvalMesh(node, own).mesh;
    for (Point3& v : mesh.verts) v = (mode == 6 ? v * turn : v) - offset;
    return mesh;
  }
  /// Of all types, or of one.
  PlainMesh(SowfieldScene& s, int mode, int only = -1, TimeValue now = 0) {
    const IParamBlock2& b = s.Block();
    for (int p = 0; p < b.Count(Ins_Pos); ++p) {
      const int type = b.GetInt(Ins_Type, 0, p);
      if (only >= 0 && type != only) continue;
      const PlacementTwin twin(b, p);
      const Mesh figure =
          FigureOf(b, mode, type, b.GetINode(Geo_Nodes, 0, type), now, twin.Time(now));
      const auto first = std::uint32_t(verts.size());
      for (const Point3& v : figure.verts) verts.push_back(v * twin.Matrix());
      for (Face f : figure.faces) {
        for (std::uint32_t& v : f.v) v += first;
        f.setMatID(MtlID(type + 1));
        faces.push_back(f);
      }
    }
  }
};

/// Numbers of a plain linear congruence, so that a distribution can be made again anywhere.
struct Draws {
  explicit Draws(std::uint32_t seed) : state(seed) {}
  std::uint32_t Bits() { return (state = state * 1664525u + 1013904223u) >> 8; }
  int Int(int low, int high) { return low + int(Bits() % std::uint32_t(high - low + 1)); }
  float Float(float low, float high) {
    return low + (high - low) * (float(Bits()) * (1.0f / 16777216.0f));
  }
  Point3 Point(float low, float high) {
    const float x = Float(low, high), y = Float(low, high), z = Float(low, high);
    return {x, y, z};
  }
  std::uint32_t state;
};

inline void ScrambleRows(SowfieldScene& s, Draws& draw, int types) {
  EnsureAnimTable(s.D());
  const auto floats = [&](std::initializer_list<int> ids, float low, float high, int slot) {
    for (const int id : ids) s.Set(Param(id), draw.Float(low, high), slot);
  };
  for (int slot = 0; slot <= types; ++slot) {
    for (const Param id : {Tr_Random, Tr_Unify}) s.Set(id, draw.Int(0, 1), slot);
    floats({12, 13}, -5, 5, slot), floats({101, 102}, -30, 130, slot);
    floats({58, 59, 60, 61, 14, 15}, -360, 360, slot);
    floats({16, 17, 63, 64, 65, 66}, 0, 300, slot);
  }
  for (int t = 0; t < types; ++t) {
    s.Set(Tr_AnimOn, draw.Int(0, 1), t);
    for (const Param id : {Tr_AnimMin, Tr_AnimMax}) s.Set(id, draw.Int(-500, 500), t);
  }
}

inline void ScatterPlacements(SowfieldScene& s, Draws& draw, int types, int count) {
  for (int p = 0; p < count; ++p) {
    const Point3 position = draw.Point(-1000, 1000), angles = draw.Point(-3.1f, 3.1f);
    const int type = draw.Int(0, types - 1);
    s.AppendPlacements({{position, angles, type, p % 100, draw.Int(0, 9999)}});
  }
}

}  // namespace sowfield
