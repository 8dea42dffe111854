#include "sowfield/model/stats.h"

namespace sowfield {

Stats ComputeStats(const Distribution& d) {
  const std::span<const int> vertices = d.block->Ints(Geo_VertCount);
  const std::span<const int> faces = d.block->Ints(Geo_FaceCount);
  Stats s;
  for (const int t : d.block->Ints(Ins_Type)) {
    ++s.placements;
    s.vertices += vertices[size_t(t)];
    s.faces += faces[size_t(t)];
  }
  return s;
}

}  // namespace sowfield
