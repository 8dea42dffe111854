#pragma once

#include <assimp/matrix4x4.h>
#include <assimp/types.h>

#include <string>

#include "host/math/matrix3.h"

namespace host {

inline std::string NameOf(const aiString& s) { return {s.data, s.length}; }

inline Point3 PointOf(const aiVector3D& v) { return {v.x, v.y, v.z}; }

/// The library's matrices act on columns, so their columns are our rows. The last row, which an
/// affine one doesn't need, is passed over.
inline Matrix3 MatrixOf(const aiMatrix4x4& m) {
  return {{m.a1, m.b1, m.c1}, {m.a2, m.b2, m.c2}, {m.a3, m.b3, m.c3}, {m.a4, m.b4, m.c4}};
}

}  // namespace host
