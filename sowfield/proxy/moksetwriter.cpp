#include <algorithm>
#include <climits>
#include <cstring>

#include "host/files/file.h"
#include "host/interface.h"
#include "sowfield/model/sampleorder.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/moksetlayout.h"

namespace sowfield {
namespace {

constexpr MoksetLayout kLayout = kMoksetLayouts[2];

// The largest multiplier up to the one drawn with which every product is kept: counts and indices
// as they are, smoothing masks as signed numbers.
std::int32_t FittingMultiplier(const Mesh& mesh, std::int64_t drawn) {
  std::int64_t highest = std::max<std::int64_t>(mesh.getNumVerts() - 1, mesh.getNumFaces());
  std::int64_t lowest = 0;
  for (const Face& face : mesh.faces) {
    const std::int64_t mask = std::int32_t(face.smGroup);
    highest = std::max(highest, mask);
    lowest = std::min(lowest, mask);
  }
  if (highest > 0) drawn = std::min(drawn, INT_MAX / highest);
  if (lowest < 0) drawn = std::min(drawn, INT_MIN / lowest);
  return std::int32_t(drawn);
}

// No reader looks at it.
std::string FillerText() {
  std::string text;
  while (text.size() < 256) text += "0123456789ABCDEF";
  return text;
}

/// The bytes of a file whose size is known before.
class Out {
 public:
  explicit Out(size_t size) : bytes_(size), at_(bytes_.data()) {}
  void Put(const void* from, size_t size) {
    if (size > 0) std::memcpy(at_, from, size);
    at_ += size;
  }
  template <class T>
  void Put(T value) {
    Put(&value, sizeof value);
  }
  void Text(std::string_view text) { Put(text.data(), text.size()); }
  void Zeroes(size_t count) {
    std::memset(at_, 0, count);
    at_ += count;
  }
  const host::Buffer<std::byte>& Bytes() const { return bytes_; }

 private:
  host::Buffer<std::byte> bytes_;
  std::byte* at_;
};

void PutPoints(Out& out, size_t count, const Point3* points) {
  out.Put(std::int32_t(count));
  out.Put(points, count * kMoksetPointBytes);
}

void PutFaces(Out& out, const Mesh& mesh, std::int32_t m) {
  const auto product = [m](std::uint32_t value) { return std::int32_t(value) * m; };
  out.Put(std::int64_t(product(std::uint32_t(mesh.faces.size()))));
  for (const Face& face : mesh.faces) {
    for (const std::uint32_t v : face.v) out.Put(std::int64_t(product(v)));
    for (const std::uint32_t edge : {EDGE_A, EDGE_B, EDGE_C}) out.Put(face.flags & edge);
    out.Put(product(face.smGroup));
    out.Put(product(face.getMatID()));
  }
}

// Channel 1 if it fits the mesh. A mesh without faces keeps its texture vertices.
const MeshMap* TextureOf(const Mesh& mesh) {
  if (mesh.getNumMaps() < 2 || mesh.maps[1].verts.empty()) return nullptr;
  const MeshMap& map = mesh.maps[1];
  if (map.faces.size() != mesh.faces.size()) return nullptr;
  for (const TVFace& face : map.faces)
    for (const std::uint32_t t : face.t)
      if (t >= map.verts.size()) return nullptr;
  return &map;
}

}  // namespace

bool WriteMoksetFile(const Mesh& mesh, const WStr& path, Generator& random, std::string* error) {
  const int drawn = random.RandomInt(kMostMultiplier, 1);
  std::string why = mesh.FirstFault();
  if (error) *error = why;
  if (!why.empty()) return false;
  const std::int32_t m = FittingMultiplier(mesh, drawn);
  const MeshMap* texture = TextureOf(mesh);
  const size_t textureVerts = texture ? texture->verts.size() : 0;
  const size_t textureFaces = texture ? texture->faces.size() : 0;
  const std::vector<std::uint32_t> samples = SampleOrder(mesh.verts.size(), SampleShuffle::File);
  int unit = 0;
  float scale = 1;
  GetMasterUnitInfo(&unit, &scale);

  // 15 bytes of magic and version, 24 of box, 20 of unit, counts and multiplier.
  Out out(59 + (mesh.verts.size() + textureVerts) * kMoksetPointBytes +
          samples.size() * kLayout.sampleBytes + kLayout.gapBytes + kLayout.countBytes +
          mesh.faces.size() * kLayout.faceBytes + textureFaces * kMoksetTexFaceBytes);
  out.Text(kMoksetMagic);
  out.Text(kMoksetVersion);
  const Box3 box = mesh.getBoundingBox();
  out.Put(box.pmax);
  out.Put(box.pmin);
  out.Put(std::int32_t(unit));
  PutPoints(out, mesh.verts.size(), mesh.verts.data());
  PutPoints(out, textureVerts, texture ? texture->verts.data() : nullptr);
  out.Put(m);
  out.Put(std::int32_t(samples.size()) * m);
  for (const std::uint32_t i : samples) out.Put(std::int64_t(std::int32_t(i) * m));
  out.Zeroes(kReservedBytes);
  const std::string filler = FillerText();
  out.Text(filler);
  out.Zeroes(kFillerBytes - filler.size());
  PutFaces(out, mesh, m);
  if (textureFaces > 0) out.Put(texture->faces.data(), textureFaces * kMoksetTexFaceBytes);

  const bool written = host::WriteFileSafely(NativePathOf(path), out.Bytes(), why);
  if (error) *error = why;
  return written;
}

}  // namespace sowfield
