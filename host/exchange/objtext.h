#pragma once

#include <string>

#include "host/scene/mesh.h"

namespace host {

/// A mesh as a Wavefront OBJ: vertices and faces in mesh order, smoothing by the lowest group of
/// the mask, and the names material_ID for meshes with more ids than 0. Y points up; the texture is
/// map channel 1, whose coordinates become 0 where they aren't finite; corner normals are written
/// if any face is smoothed. What would reach beyond the line of the object's name becomes an
/// underscore: control characters and a backslash at the end.
std::string ObjOf(const Mesh& mesh, const std::string& name);

}  // namespace host
