#pragma once

#include "host/scene/mesh.h"

namespace sowfield {

/// The logo: flat in the XY plane, centred on the origin, about 1.45 by 1.08 units at size 1, its
/// interior diagonals hidden. Replaces what the mesh held. Material id 0, one smoothing group.
void MakeLogoMesh(float size, Mesh& mesh);

/// The squirrel: standing on Z = 0, centred on X and Y, 1.05303 * height tall, one smoothing group.
/// Height 0 puts all vertices at the origin, a negative one hangs the figure below the floor.
Mesh MakeSquirrelMesh(float height);

/// Three sides over a triangular base on Z = 0, no bottom, the apex over the origin; as wide, deep
/// and high as the box between the two corners, in whatever order they are given.
Mesh MakePyramidMesh(const Point3& a, const Point3& b);

inline constexpr float kSmallestLogo = 0.5f;

}  // namespace sowfield
