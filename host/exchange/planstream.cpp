#include "host/exchange/planstream.h"

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace host {

namespace {

constexpr std::uint64_t kMagic = 0x314E414C50574F53;  // "SOWPLAN1"

// Copied as they stand: without padding, and any bits make a value.
template <class T>
inline constexpr bool kIsPlain =
    (std::is_arithmetic_v<T> && !std::is_same_v<T, bool>) || std::is_same_v<T, std::byte> ||
    std::is_same_v<T, Point3> || std::is_same_v<T, Color> || std::is_same_v<T, Matrix3> ||
    std::is_same_v<T, Face> || std::is_same_v<T, TVFace> || std::is_same_v<T, VertexBones>;
static_assert(sizeof(Matrix3) == 48 && sizeof(VertexBones) == 24 && sizeof(Face) == 20);

class Encoder {
 public:
  std::vector<std::byte> bytes;

  template <class T>
  requires kIsPlain<T>
  void operator()(T& value) { Append(&value, sizeof value); }
  void operator()(bool& value) { bytes.push_back(std::byte(value)); }
  template <class T>
  std::uint64_t Count(T& list, size_t) {
    std::uint64_t count = list.size();
    (*this)(count);
    return count;
  }
  void Append(const void* from, size_t size) {
    const auto* first = static_cast<const std::byte*>(from);
    bytes.insert(bytes.end(), first, first + size);
  }
  template <class T>
  void Bulk(T& list) {
    if (!list.empty()) Append(list.data(), list.size() * sizeof(list[0]));
  }
};

class Decoder {
 public:
  explicit Decoder(std::span<const std::byte> bytes) : left_(bytes) {}
  size_t Left() const { return left_.size(); }

  template <class T>
  requires kIsPlain<T>
  void operator()(T& value) { Take(&value, sizeof value); }
  void operator()(bool& value) {
    std::uint8_t byte = 0;
    (*this)(byte);
    if (byte > 1) Fail();
    value = byte == 1;
  }
  // Each element takes at least `least` bytes, so no count can ask for more than there is.
  template <class T>
  std::uint64_t Count(T& list, size_t least) {
    std::uint64_t count = 0;
    (*this)(count);
    if (count > left_.size() / least) Fail();
    list.resize(size_t(count));
    return count;
  }
  template <class T>
  void Bulk(T& list) {
    Take(list.data(), list.size() * sizeof(list[0]));
  }
  [[noreturn]] static void Fail() {
    throw ImportFault("cannot be read: what the reader handed over is broken");
  }

 private:
  void Take(void* to, size_t size) {
    if (size > left_.size()) Fail();
    if (size > 0) std::memcpy(to, left_.data(), size);
    left_ = left_.subspan(size);
  }
  std::span<const std::byte> left_;
};

// One list of members serves both ways.

template <class S, class T>
void Pass(S& s, T& list);

template <class S, class T>
requires kIsPlain<T>
void Pass(S& s, T& value) { s(value); }
template <class S>
void Pass(S& s, bool& value) {
  s(value);
}
template <class S, class T>
void Pass(S& s, std::optional<T>& value) {
  bool there = value.has_value();
  s(there);
  if (there && !value) value.emplace();
  if (there) Pass(s, *value);
}
template <class S>
void Pass(S& s, PlannedImage& image) {
  Pass(s, image.name), Pass(s, image.path), Pass(s, image.bytes);
}
template <class S>
void Pass(S& s, PlannedMtl& mtl) {
  Pass(s, mtl.name), Pass(s, mtl.diffuse), Pass(s, mtl.image);
}
template <class S>
void Pass(S& s, PlannedTrack& track) {
  auto shape = std::uint8_t(track.shape);
  Pass(s, shape);
  if (shape > std::uint8_t(KeyShape::Cubic)) Decoder::Fail();
  track.shape = KeyShape(shape);
  Pass(s, track.times), Pass(s, track.values);
}
template <class S>
void Pass(S& s, PlannedSkin& skin) {
  Pass(s, skin.nodes), Pass(s, skin.inverseBind), Pass(s, skin.vertices);
}
template <class S>
void Pass(S& s, MeshMap& map) {
  Pass(s, map.verts), Pass(s, map.faces), Pass(s, map.used);
}
template <class S>
void Pass(S& s, PlannedMesh& mesh) {
  Pass(s, mesh.mesh.verts), Pass(s, mesh.mesh.faces), Pass(s, mesh.mesh.maps);
  Pass(s, mesh.slots), Pass(s, mesh.targets), Pass(s, mesh.weights), Pass(s, mesh.skin);
  Pass(s, mesh.frameTimes), Pass(s, mesh.frames);
}
template <class S>
void Pass(S& s, PlannedNode& node) {
  Pass(s, node.name), Pass(s, node.local), Pass(s, node.parent), Pass(s, node.mesh);
  Pass(s, node.fov), Pass(s, node.position), Pass(s, node.rotation), Pass(s, node.scale);
  Pass(s, node.weights);
}
template <class S>
void Pass(S& s, ImportPlan& plan) {
  std::uint64_t magic = kMagic;
  Pass(s, magic);
  if (magic != kMagic) Decoder::Fail();
  Pass(s, plan.zUp), Pass(s, plan.metres), Pass(s, plan.images), Pass(s, plan.materials);
  Pass(s, plan.meshes), Pass(s, plan.nodes), Pass(s, plan.warnings);
}

// Texts and lists of anything.
template <class S, class T>
void Pass(S& s, T& list) {
  using Element = typename T::value_type;
  if constexpr (kIsPlain<Element>) {
    s.Count(list, sizeof(Element));
    s.Bulk(list);
  } else {
    s.Count(list, sizeof(std::uint64_t));
    for (Element& element : list) Pass(s, element);
  }
}

void Check(const ImportPlan& plan) {
  const auto within = [](int i, size_t count) { return i >= -1 && (i < 0 || size_t(i) < count); };
  for (const PlannedMtl& mtl : plan.materials)
    if (!within(mtl.image, plan.images.size())) Decoder::Fail();
  for (const PlannedMesh& mesh : plan.meshes) {
    for (const int slot : mesh.slots)
      if (!within(slot, plan.materials.size())) Decoder::Fail();
    if (mesh.mesh.maps.size() < 2 || !mesh.mesh.FirstFault().empty()) Decoder::Fail();
  }
  for (size_t i = 0; i < plan.nodes.size(); ++i)
    if (!within(plan.nodes[i].parent, i) || !within(plan.nodes[i].mesh, plan.meshes.size()))
      Decoder::Fail();
}

}  // namespace

std::vector<std::byte> EncodePlan(const ImportPlan& plan) {
  Encoder encoder;
  Pass(encoder, const_cast<ImportPlan&>(plan));  // this way nothing is written to
  return std::move(encoder.bytes);
}

ImportPlan DecodePlan(std::span<const std::byte> bytes) {
  Decoder decoder(bytes);
  ImportPlan plan;
  Pass(decoder, plan);
  if (decoder.Left() > 0) Decoder::Fail();
  for (PlannedMesh& mesh : plan.meshes) mesh.mesh.InvalidateGeomCache();
  Check(plan);
  return plan;
}

}  // namespace host
