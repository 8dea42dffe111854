#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "host/scene/mesh.h"

namespace studio {

// A mesh as files that other programs open. Y points up in them, as those programs expect; the
// texture is map channel 1. Corner normals are written if any face is smoothed. Texture coordinates
// that aren't finite become 0.

/// Wavefront OBJ: vertices and faces in mesh order, smoothing by the lowest group of the mask, and
/// the names material_ID for meshes with more ids than 0. What would reach beyond the line of the
/// object's name becomes an underscore: control characters and a backslash at the end.
std::string ObjOf(const Mesh& mesh, const std::string& name);

enum class GltfForm { Json, Binary };

/// glTF 2, whole in one file, with one primitive for each material id. The node turns Z to Y and
/// brings scene units to metres; its vertices are those of the mesh. False, with `error` told, for
/// a mesh without faces and one that is too large for the format.
bool GltfOf(const Mesh& mesh, const std::string& name, double metresPerUnit, GltfForm form,
            std::string& bytes, std::string& error);

}  // namespace studio
