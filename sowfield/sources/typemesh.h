#pragma once

#include <memory>

#include "host/scene/triobject.h"
#include "sowfield/model/distribution.h"

namespace sowfield {

/// The mesh of an object type, in its source's object space or its file's own.
struct TypeMesh {
  std::unique_ptr<Mesh> read;  // from a file or the tables of a proxy
  EvaluatedMesh evaluated;     // of a node
  Interval valid = FOREVER;    // how long it looks as at the time asked

  /// Null while the node is gone or gives no mesh; empty for a file or proxy that can't be read.
  const Mesh* Get() const { return read ? read.get() : evaluated.mesh; }
};

/// What a type shows at t. Proxies and files look the same at all times.
TypeMesh MeshOfType(const Distribution& d, const TypeRef& type, TimeValue t);

/// What the node of a type of that kind shows at t; the node may be null.
TypeMesh MeshOfSource(INode* node, int kind, TimeValue t);

}  // namespace sowfield
