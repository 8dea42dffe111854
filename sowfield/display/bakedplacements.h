#pragma once

#include <vector>

#include "host/math/buffer.h"
#include "sowfield/display/listedits.h"
#include "sowfield/display/typeshapes.h"
#include "sowfield/model/placementkernel.h"

namespace sowfield {

/// A place in a mesh, or a part of one.
struct MeshPlace {
  size_t vert = 0, face = 0;
  MeshPlace& operator+=(const Shape& shape) {
    vert += shape.verts.size(), face += shape.faces.size();
    return *this;
  }
  bool operator==(const MeshPlace&) const = default;
};

/// How the placements of a build come to lie in the display mesh.
struct BakeTask {
  TimeValue time = 0;
  int mode = 0;           // one of the heavy ones
  Matrix3 worldToObject;  // the object's own space
  MeshPlace base;         // where the placements begin
};

/// The placements in the display mesh, one behind the other in the order of the tables. It keeps
/// what each was made from, 32 bytes, and makes only those anew that have come since; the others
/// move together with their indices. All are made anew where anything else has changed that they
/// depend on. Either way the mesh is the same bit for bit.
class BakedPlacements {
 public:
  explicit BakedPlacements(Distribution& d) : d_(d) {}

  /// Brings the part of the mesh from the base on up to date and tells the mesh what has changed:
  /// it must be as it was left, or Forget be called before.
  void Update(const BakeTask& task, Mesh& mesh);
  /// Forgets what the mesh holds, and the memory.
  void Forget();

 private:
  // What a vertex depends on but for its type's shape and forms.
  struct Laid {
    Point3 position, angles;
    int type, row;
  };
  struct Edits {
    std::vector<ListEdit> placements, verts, faces;
  };
  class Bake;

  bool CanKeep(const BakeTask& task, const Bake& bake) const;
  Edits FindEdits(const BakeTask& task, const Bake& bake) const;
  void Keep(const BakeTask& task, Bake& bake);
  void WriteNew(const Edits& edits, const Bake& bake, Mesh& mesh);

  Distribution& d_;
  bool known_ = false;  // what follows is that of the mesh
  BakeTask task_;
  host::Buffer<Laid> laid_;
  std::vector<Shape> shapes_;      // by type
  std::vector<KernelForm> forms_;  // by type and row
};

}  // namespace sowfield
