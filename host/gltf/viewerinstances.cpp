#include "host/gltf/viewerinstances.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "host/core/parallel.h"
#include "host/math/quat.h"

namespace host {

namespace {

// Floats an instance in each piece.
constexpr std::array<size_t, 4> kWidths = {3, 4, 3, 1};
static_assert(InstanceLists::kInstanceBytes == 11 * sizeof(float));

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

InstanceLists::Pieces InstanceLists::Add(const std::shared_ptr<InstanceLists>& lists, size_t group,
                                         bool mirrored, BinaryParts& parts) {
  List& list = lists->lists_[group * 2 + mirrored];
  list.at = lists->size_;
  list.added = true;
  lists->size_ += list.count * (kInstanceBytes / sizeof(float));
  Pieces pieces;
  for (size_t k = 0; k < pieces.size(); ++k) {
    ++lists->pieces_;
    pieces[k] =
        parts.Make(list.count * kWidths[k] * sizeof(float),
                   [lists, &list, k](const ByteSink& sink) { return lists->Write(list, k, sink); });
  }
  return pieces;
}

void InstanceLists::Fill() {
  values_.resize(size_);
  std::vector<std::uint32_t> next = before_;
  ForEachShown(
      [&](size_t part, size_t number, size_t place, const Matrix3& m, const float(&scale)[3]) {
        const List& list = lists_[number];
        if (!list.added) return;
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

bool InstanceLists::Write(const List& list, size_t piece, const ByteSink& sink) {
  if (values_.empty()) Fill();
  const size_t before = std::accumulate(kWidths.begin(), kWidths.begin() + piece, size_t(0));
  const bool taken = sink(std::as_bytes(
      std::span(values_).subspan(list.at + list.count * before, list.count * kWidths[piece])));
  if (!taken || ++written_ < pieces_) return taken;
  written_ = 0;
  Buffer<float>().swap(values_);
  return true;
}

}  // namespace host
