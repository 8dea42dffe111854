#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/exchange/planparts.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/mesh.h"
#include "host/scene/shape.h"

namespace host {

/// The faces of one material as viewers want them: a vertex has one normal, of unit length, and one
/// texture coordinate.
struct ViewerPart {
  TrianglePart triangles;
  std::vector<std::uint32_t> vertices;  // of the mesh, where the positions come from
};

/// The parts of a sound mesh, one for each material that `materialOf` gives. That is asked once for
/// each material id that a face has, by rising id. With `baked` vertices are taken through that
/// matrix first, and a mirrored mesh keeps its faces the right way round.
std::vector<ViewerPart> ViewerParts(const Mesh& mesh, const Matrix3* baked,
                                    const std::function<int(int id)>& materialOf);

/// The knots of a spline, through `baked` where it is given. None for a spline that is no line:
/// with less than two knots, or with one that isn't finite then.
std::vector<Point3> ViewerLine(const Spline3D& spline, const Matrix3* baked);

/// The shape that morph targets and bones start from, at time 0.
Mesh StartOf(const MeshMotion& motion);

/// The bones of each vertex as viewers take them: each bone once, weights that sum to 1, bone 0
/// where a weight is 0. None if weights are below 0 or don't sum to 1, or bones are missing.
std::optional<std::vector<VertexBones>> ViewerBones(const MeshMotion& motion);

/// The keys of a track as viewers take them: from time 0 on, seconds that rise in single precision
/// too, unit quaternions where it `turns`. A cubic track keeps its tangents unless it begins before
/// time 0: then it is sampled once a frame. Empty where nothing moves, or a value isn't finite.
PlannedTrack ViewerKeys(const Track& track, bool turns);

}  // namespace host
