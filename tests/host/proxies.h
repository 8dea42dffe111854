#pragma once

#include "host/scene/primitives.h"
#include "host/scene/proxyobjects.h"

/// The mesh of a box standing on its base.
inline Mesh BoxMeshOf(float w, float l, float h) {
  BoxObject box;
  box.SetSize(w, l, h);
  box.BuildMesh(0);
  return box.mesh;
}

template <class Proxy>
Proxy* ProxyOf(const Mesh& mesh) {
  auto* proxy = new Proxy;
  proxy->SetMesh(mesh);
  return proxy;
}
