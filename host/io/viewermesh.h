#pragma once

#include <cstdint>
#include <vector>

#include "host/core/track.h"
#include "host/math/matrix3.h"
#include "host/scene/mesh.h"

namespace host {

/// The faces of one material id as viewers want them: a vertex has one normal and one texture
/// coordinate. Lists have one entry a vertex.
struct ViewerPart {
  int materialId = 0;
  std::vector<Point3> positions, normals;  // normals have unit length
  std::vector<Point3> uvs;                 // v from the top down; none without map channel 1
  std::vector<std::uint32_t> indices;      // three a face
};

/// The parts of a sound mesh, by rising material id. With `baked` its vertices are taken through
/// that matrix first, and a mirrored mesh keeps its faces the right way round.
std::vector<ViewerPart> ViewerParts(const Mesh& mesh, const Matrix3* baked);

/// The keys of a track as viewers take them: from time 0 on, seconds that rise in single precision
/// too, unit quaternions where it `turns`. A cubic track keeps its tangents unless it begins before
/// time 0: then it is sampled once a frame. False where nothing moves, or a value isn't finite.
bool ViewerKeys(const Track& track, bool turns, std::vector<TimeValue>& times,
                std::vector<float>& values);

}  // namespace host
