#include "host/gltf/gltfarrays.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/exchange/bytehash.h"

namespace host {

namespace {

constexpr int kUshort = 5123, kUint = 5125, kFloat = 5126;
constexpr int kVertices = 34962, kTriangles = 34963;  // targets of buffer views

// How the arrays of a kind stand in the file. Vertices alone have a stride: those of several
// meshes share a view.
struct Form {
  const char* type;
  int component;
  int numbers;  // an element
  size_t bytes;
  int target;
};
constexpr Form kForms[GltfArrays::kKinds] = {
    {"VEC3", kFloat, 3, 12, kVertices},  {"VEC2", kFloat, 2, 8, kVertices},
    {"VEC4", kUshort, 4, 8, kVertices},  {"VEC4", kFloat, 4, 16, kVertices},
    {"SCALAR", kUint, 1, 4, kTriangles}, {"SCALAR", kFloat, 1, 4, 0},
    {"VEC3", kFloat, 3, 12, 0},          {"VEC4", kFloat, 4, 16, 0},
    {"MAT4", kFloat, 16, 64, 0}};

}  // namespace

GltfArrays::GltfArrays(BinaryParts& parts, std::shared_ptr<const ExportPlan> plan)
    : parts_(parts), bytes_(std::make_shared<Bytes>()) {
  bytes_->plan = std::move(plan);
}

size_t GltfArrays::Add(Kind kind, std::span<const std::byte> bytes, bool bounded) {
  const std::uint64_t hash = HashBytes(bytes, size_t(kind) * 2 + bounded);
  const auto [first, last] = byHash_.equal_range(hash);
  for (auto at = first; at != last; ++at) {
    const Accessor& known = accessors_[at->second];
    if (known.kind == kind && known.bounded == bounded && known.bytes.size() == bytes.size() &&
        std::memcmp(known.bytes.data(), bytes.data(), bytes.size()) == 0)
      return at->second;
  }
  const Form& form = kForms[kind];
  Accessor made;
  made.kind = kind;
  made.type = form.type;
  made.component = form.component;
  made.count = bytes.size() / form.bytes;
  made.bytes = bytes;
  made.bounded = bounded;
  if (bounded) {
    const auto numbers = size_t(form.numbers);
    const auto value = [&](size_t i) {
      float v;
      std::memcpy(&v, bytes.data() + i * sizeof v, sizeof v);
      return v;
    };
    for (size_t k = 0; k < numbers; ++k) made.low[k] = made.high[k] = value(k);
    for (size_t i = numbers; i < bytes.size() / sizeof(float); ++i) {
      float &low = made.low[i % numbers], &high = made.high[i % numbers];
      low = std::min(low, value(i)), high = std::max(high, value(i));
    }
  }
  Pool& pool = bytes_->pools[kind];
  made.offset = pool.size;
  pool.size += bytes.size();
  pool.pieces.push_back(bytes);
  accessors_.push_back(made);
  byHash_.emplace(hash, accessors_.size() - 1);
  return accessors_.size() - 1;
}

std::array<size_t, 4> GltfArrays::Instances(const ExportInstances& shown) {
  shown.lists->Ask(shown.group, shown.mirrored);
  std::array<size_t, 4> made{};
  for (size_t k = 0; k < made.size(); ++k) {
    const auto piece = InstanceLists::Piece(k);
    Accessor accessor;
    accessor.view =
        parts_.Make(shown.lists->Bytes(shown.group, shown.mirrored, piece),
                    [shown, piece](const ByteSink& sink) {
                      return shown.lists->Write(shown.group, shown.mirrored, piece, sink);
                    });
    accessor.isOwnView = true;
    accessor.count = shown.lists->Count(shown.group, shown.mirrored);
    constexpr const char* kTypes[] = {"VEC3", "VEC4", "VEC3", "SCALAR"};
    accessor.type = kTypes[k];
    accessor.component = kFloat;
    made[k] = accessors_.size();
    accessors_.push_back(accessor);
  }
  return made;
}

// Arrays may be small: many of them are handed on at once.
bool GltfArrays::WritePool(const Pool& pool, const ByteSink& sink) {
  constexpr size_t kAtOnce = size_t(1) << 16;
  std::vector<std::byte> held;
  held.reserve(std::min(kAtOnce, pool.size));
  const auto flush = [&] {
    const bool taken = held.empty() || sink(held);
    held.clear();
    return taken;
  };
  for (const std::span<const std::byte> piece : pool.pieces) {
    if (held.size() + piece.size() > kAtOnce && !flush()) return false;
    if (piece.size() < kAtOnce) {
      held.insert(held.end(), piece.begin(), piece.end());
    } else if (!sink(piece)) {
      return false;
    }
  }
  return flush();
}

void GltfArrays::Put(JsonOut& out) {
  std::array<size_t, kKinds> views{};
  for (size_t k = 0; k < kKinds; ++k) {
    const Pool& pool = bytes_->pools[k];
    if (pool.size == 0) continue;
    const Form& form = kForms[k];
    const bool strided = form.target == kVertices;
    views[k] = parts_.Make(
        pool.size,
        [bytes = bytes_, k](const ByteSink& sink) { return WritePool(bytes->pools[k], sink); },
        form.target, strided ? int(form.bytes) : 0);
  }
  out.BeginList();
  for (const Accessor& a : accessors_) {
    out.BeginObject().Key("bufferView").Int((long long)(a.isOwnView ? a.view : views[a.kind]));
    if (a.offset > 0) out.Key("byteOffset").Int((long long)(a.offset));
    out.Key("componentType").Int(a.component).Key("count").Int((long long)(a.count));
    out.Key("type").Text(a.type);
    const auto numbers = [&](const char* name, const std::array<float, 3>& values) {
      out.Key(name).BeginList();
      for (int i = 0; i < kForms[a.kind].numbers; ++i) out.Float(values[size_t(i)]);
      out.End();
    };
    if (a.bounded) numbers("min", a.low), numbers("max", a.high);
    out.End();
  }
  out.End();
}

}  // namespace host
