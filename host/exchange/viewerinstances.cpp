#include "host/exchange/viewerinstances.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "host/core/parallel.h"
#include "host/math/quat.h"

namespace host {

namespace {

constexpr size_t kFloats = 3 + 4 + 3 + 1;  // an instance

// Instances are gone through in parts of this many, on several threads.
constexpr size_t kPart = 4096;
// Matrices worked out in one call.
constexpr size_t kRun = 256;

enum class Kind { Plain, Mirrored, Lost };

// The lengths of the rows, which are the scales, and whether viewers can show it.
Kind KindOf(const Matrix3& m, float (&scale)[3]) {
  bool sound = IsFinite(m.GetTrans());
  for (int i = 0; i < 3; ++i) {
    const Point3& r = m.GetRow(i);
    const double x = r.x, y = r.y, z = r.z;
    scale[i] = float(std::sqrt(x * x + y * y + z * z));
    sound = sound && std::isnormal(scale[i]);
  }
  if (!sound) return Kind::Lost;
  return m.Determinant() < 0 ? Kind::Mirrored : Kind::Plain;
}

Point3 Times(const Point3& p, double factor) {
  return {float(p.x * factor), float(p.y * factor), float(p.z * factor)};
}

}  // namespace

// Calls body(part, list, place, matrix, scales) for each instance that can be shown: part by part
// in order, parts on several threads.
template <class Body>
void InstanceLists::ForEachShown(const Body& body) const {
  const std::span<const int> groups = set_->Groups();
  ParallelFor((groups.size() + kPart - 1) / kPart, 1, [&](size_t first, size_t last) {
    Matrix3 matrices[kRun];
    float scale[3];
    for (size_t part = first; part < last; ++part) {
      const size_t end = std::min(groups.size(), (part + 1) * kPart);
      for (size_t at = part * kPart; at < end; at += kRun) {
        const size_t run = std::min(kRun, end - at);
        set_->Matrices(at, run, matrices);
        for (size_t i = 0; i < run; ++i) {
          const Kind kind = KindOf(matrices[i], scale);
          if (kind == Kind::Lost) continue;
          const size_t list = size_t(groups[at + i]) * 2 + (kind == Kind::Mirrored);
          body(part, list, at + i, matrices[i], scale);
        }
      }
    }
  });
}

InstanceLists::InstanceLists(std::unique_ptr<InstanceSet> set) : set_(std::move(set)) {
  lists_.resize(set_->GroupCount() * 2);
  const size_t parts = (set_->Groups().size() + kPart - 1) / kPart;
  before_.resize(parts * lists_.size());
  ForEachShown([&](size_t part, size_t list, size_t, const Matrix3&, const float(&)[3]) {
    ++before_[part * lists_.size() + list];
  });
  for (size_t i = 0; i < before_.size(); ++i) {
    List& list = lists_[i % lists_.size()];
    list.count += std::exchange(before_[i], std::uint32_t(list.count));
  }
}

void InstanceLists::Ask(size_t group, bool mirrored) {
  List& list = lists_[group * 2 + mirrored];
  if (list.asked) return;
  list.at = size_;
  list.asked = true;
  size_ += list.count * kFloats;
  pieces_ += kWidths.size();
}

void InstanceLists::Fill() {
  values_.resize(size_);
  std::vector<std::uint32_t> next = before_;
  ForEachShown(
      [&](size_t part, size_t number, size_t place, const Matrix3& m, const float(&scale)[3]) {
        const List& list = lists_[number];
        if (!list.asked) return;
        const size_t i = next[part * lists_.size() + number]++;
        const double first = number % 2 == 1 ? -1.0 / scale[0] : 1.0 / scale[0];
        const Quat q({Times(m.GetRow(0), first),
                      Times(m.GetRow(1), 1.0 / scale[1]),
                      Times(m.GetRow(2), 1.0 / scale[2]),
                      {0, 0, 0}});
        float* at = values_.data() + list.at;
        std::copy_n(&m.GetTrans().x, 3, at + i * 3);
        at += list.count * 3;
        const float quaternion[] = {float(q.x), float(q.y), float(q.z), float(q.w)};
        std::copy_n(quaternion, 4, at + i * 4);
        at += list.count * 4;
        std::copy_n(scale, 3, at + i * 3);
        at[list.count * 3 + i] = float(place);
      });
}

bool InstanceLists::Write(size_t group, bool mirrored, Piece piece,
                          const std::function<bool(std::span<const std::byte>)>& sink) {
  if (values_.empty()) Fill();
  const List& list = lists_[group * 2 + mirrored];
  const size_t before = std::accumulate(kWidths.begin(), kWidths.begin() + piece, size_t(0));
  const bool taken = sink(std::as_bytes(
      std::span(values_).subspan(list.at + list.count * before, list.count * kWidths[piece])));
  if (!taken || ++written_ < pieces_) return taken;
  written_ = 0;
  Buffer<float>().swap(values_);
  return true;
}

}  // namespace host
