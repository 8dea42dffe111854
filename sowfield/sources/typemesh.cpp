#include "sowfield/sources/typemesh.h"

#include "host/scene/node.h"

#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/sceneproxy.h"

namespace sowfield {

TypeMesh MeshOfSource(INode* node, int kind, TimeValue t) {
  TypeMesh mesh;
  if (!node) return mesh;
  if (kind == kFromSceneProxy) {
    mesh.read = std::make_unique<Mesh>();
    ReadSceneProxyMeshInto(node, *mesh.read);
    return mesh;
  }
  const ObjectState state = node->EvalWorldState(t);
  mesh.valid = state.valid;
  mesh.evaluated = MeshOf(state.obj, t);
  return mesh;
}

TypeMesh MeshOfType(const Distribution& d, const TypeRef& type, TimeValue t) {
  if (type.HasNode()) return MeshOfSource(d.SourceNode(type), type.kind, t);
  TypeMesh mesh;
  mesh.read = std::make_unique<Mesh>();
  ReadMoksetMeshInto(d.block->GetStr(Proxy_Files, d.curTime, type.file), *mesh.read);
  return mesh;
}

}  // namespace sowfield
