#include "host/exchange/meshpool.h"

#include <cstring>
#include <span>
#include <utility>

#include "host/exchange/bytehash.h"

namespace host {

namespace {

// Goes through all that a mesh holds, piece by piece; `take` gets bytes.
template <class Take>
void Pieces(const ExportMesh& mesh, const Take& take) {
  const auto list = [&](const auto& values) { take(std::as_bytes(std::span(values))); };
  const auto number = [&](auto value) { take(std::as_bytes(std::span(&value, 1))); };
  for (const TrianglePart& part : mesh.parts) {
    number(part.material);
    list(part.corners), list(part.positions), list(part.normals), list(part.uvs), list(part.bones);
    number(part.targets.size());
    for (const std::vector<Point3>& target : part.targets) list(target);
  }
  for (const ExportLine& line : mesh.lines) {
    number(line.material);
    number(int(line.closed));
    list(line.points);
  }
  list(mesh.weights);
}

std::uint64_t HashOf(const ExportMesh& mesh) {
  std::uint64_t hash = mesh.parts.size() << 32 ^ mesh.lines.size();
  Pieces(mesh, [&](std::span<const std::byte> bytes) { hash = HashBytes(bytes, hash); });
  return hash;
}

// With the length before each piece, so that no bytes move from one to the next.
std::vector<std::byte> BytesOf(const ExportMesh& mesh) {
  std::vector<std::byte> all;
  Pieces(mesh, [&](std::span<const std::byte> bytes) {
    const size_t size = bytes.size();
    const auto head = std::as_bytes(std::span(&size, 1));
    all.insert(all.end(), head.begin(), head.end());
    all.insert(all.end(), bytes.begin(), bytes.end());
  });
  return all;
}

bool Same(const ExportMesh& a, const ExportMesh& b) {
  return a.parts.size() == b.parts.size() && a.lines.size() == b.lines.size() &&
         BytesOf(a) == BytesOf(b);
}

}  // namespace

int MeshPool::IndexOf(ExportMesh mesh) {
  const std::uint64_t hash = HashOf(mesh);
  const auto [first, last] = byHash_.equal_range(hash);
  for (auto at = first; at != last; ++at)
    if (Same(meshes_[size_t(at->second)], mesh)) return at->second;
  const int index = int(meshes_.size());
  byHash_.emplace(hash, index);
  meshes_.push_back(std::move(mesh));
  return index;
}

}  // namespace host
