#include <algorithm>

#include "host/scene/mesh.h"
#include "host/viewport/graphicswindow.h"

int Mesh::select(GraphicsWindow* gw, Mtl*, HitRegion* region, int) const {
  if (faces.empty()) return 0;
  const host::PickVolume volume(gw->GetProjection(), gw->Transform(), *region, 0);
  const auto usable = [&](const Face& f) {
    return std::all_of(f.v, f.v + 3,
                       [&](std::uint32_t v) { return v < verts.size() && IsFinite(verts[v]); });
  };
  if (region->crossing)
    return std::any_of(faces.begin(), faces.end(), [&](const Face& f) {
      return usable(f) && volume.MeetsTriangle(verts[f.v[0]], verts[f.v[1]], verts[f.v[2]]);
    });
  return std::all_of(faces.begin(), faces.end(), [&](const Face& f) {
    return usable(f) &&
           std::all_of(f.v, f.v + 3, [&](std::uint32_t v) { return volume.Contains(verts[v]); });
  });
}
