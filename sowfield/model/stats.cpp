#include "sowfield/model/stats.h"

#include "sowfield/model/placementfilter.h"

namespace sowfield {

Stats ComputeStats(const Distribution& d) {
  const std::span<const int> vertices = d.block->Ints(Geo_VertCount);
  const std::span<const int> faces = d.block->Ints(Geo_FaceCount);
  Stats s;
  const std::span<const int> types = d.block->Ints(Ins_Type);
  const Places counted = PlacementFilter(d, d.curTime, kExclusion).Passing();
  for (size_t i = 0; i < counted.size(); ++i) {
    const auto t = size_t(types[counted[i]]);
    ++s.placements;
    s.vertices += vertices[t];
    s.faces += faces[t];
  }
  return s;
}

}  // namespace sowfield
