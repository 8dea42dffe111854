#pragma once

#include <memory>
#include <span>

#include "host/math/color.h"
#include "host/math/interval.h"
#include "host/math/matrix3.h"
#include "host/math/wstr.h"

class Mesh;
class Mtl;

/// What an object shows many times, at one time: instances, each of a group that shares a mesh. It
/// stands as long as neither the scene nor its files change.
class InstanceSet {
 public:
  struct Group {
    WStr name;
    /// From the mesh to where an instance's matrix takes it from.
    Matrix3 meshToInstance;
    const Mtl* material = nullptr;
    ColorRef wireColor = 0;  // of faces without a material
  };
  virtual ~InstanceSet() = default;

  /// From the space that the instances stand in to object space.
  virtual Matrix3 ToObject() const = 0;
  virtual size_t GroupCount() const = 0;
  virtual Group GetGroup(size_t group) const = 0;
  /// Null or empty for a group that has none; good until the next call. It may read a file.
  virtual const Mesh* GetMesh(size_t group) = 0;

  /// The group of each instance.
  virtual std::span<const int> Groups() const = 0;
  /// Writes the matrices of `count` instances from `first`; from any number of threads.
  virtual void Matrices(size_t first, size_t count, Matrix3* out) const = 0;
};

/// An object that shows instances.
class InstanceSource {
 public:
  virtual ~InstanceSource() = default;
  /// Null if there are none. Nothing in it depends on how views show the object.
  virtual std::unique_ptr<InstanceSet> InstancesAt(TimeValue t) = 0;
};
