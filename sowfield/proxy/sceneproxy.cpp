#include "sowfield/proxy/sceneproxy.h"

#include <cmath>

#include "host/core/paramblock.h"
#include "host/interface.h"
#include "sowfield/model/classids.h"
#include "sowfield/proxy/moksetfile.h"

namespace sowfield {
namespace {

// False for what isn't an index below `count`.
bool ToIndices(const Point3& from, size_t count, std::uint32_t (&to)[3]) {
  for (int k = 0; k < 3; ++k) {
    if (!(from[k] > -1 && double(from[k]) < double(count))) return false;
    to[k] = std::uint32_t(from[k]);
  }
  return true;
}

bool MeshFromTables(const IParamBlock2& block, Mesh& mesh) {
  const std::span<const Point3> verts = block.Points(moksetproxy::kVertices);
  const std::span<const Point3> faces = block.Points(moksetproxy::kFaces);
  const std::span<const Point3> edges = block.Points(moksetproxy::kEdges);
  const std::span<const int> smoothing = block.Ints(moksetproxy::kSmoothing);
  const std::span<const int> ids = block.Ints(moksetproxy::kMaterialIds);
  mesh.verts.assign(verts.begin(), verts.end());
  mesh.setNumFaces(int(faces.size()));
  for (size_t i = 0; i < faces.size(); ++i) {
    Face& face = mesh.faces[i];
    if (!ToIndices(faces[i], verts.size(), face.v)) return false;
    const Point3 edge = i < edges.size() ? edges[i] : Point3(1, 1, 1);
    face.setEdgeVisFlags(edge.x != 0, edge.y != 0, edge.z != 0);
    face.smGroup = i < smoothing.size() ? std::uint32_t(smoothing[i]) : 0;
    face.setMatID(i < ids.size() ? MtlID(ids[i]) : MtlID(0));
  }
  mesh.InvalidateGeomCache();

  const std::span<const Point3> textureVerts = block.Points(moksetproxy::kTextureVertices);
  const std::span<const Point3> textureFaces = block.Points(moksetproxy::kTextureFaces);
  MeshMap& map = mesh.maps[1];
  map.verts.assign(textureVerts.begin(), textureVerts.end());
  if (textureVerts.empty() || textureFaces.empty()) return mesh.FirstFault().empty();
  mesh.setNumTVFaces(int(textureFaces.size()));
  for (size_t i = 0; i < textureFaces.size(); ++i)
    if (!ToIndices(textureFaces[i], textureVerts.size(), map.faces[i].t)) return false;
  return mesh.FirstFault().empty();
}

}  // namespace

void ReadSceneProxyMeshInto(INode* node, Mesh& mesh) {
  mesh = {};
  Object* object = node ? node->EvalWorldState(GetCOREInterface()->GetTime()).obj : nullptr;
  if (!object || object->ClassID() != kMoksetProxyClassID) return;
  const IParamBlock2* block = object->GetParamBlock(0);
  if (!block) return;
  if (block->GetInt(moksetproxy::kExternal) != 0) {
    ReadMoksetMeshInto(block->GetStr(moksetproxy::kPath), mesh);
  } else if (!MeshFromTables(*block, mesh)) {
    mesh = {};
  }
}

Mesh ReadSceneProxyMesh(INode* node) {
  Mesh mesh;
  ReadSceneProxyMeshInto(node, mesh);
  return mesh;
}

}  // namespace sowfield
