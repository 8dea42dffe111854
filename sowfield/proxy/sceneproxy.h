#pragma once

#include "host/core/paramdesc.h"
#include "host/scene/mesh.h"

class INode;

namespace sowfield {

/// Parameters of block 0 of a Mokset proxy object. The tables of points hold what they name,
/// indices and flags as floats.
namespace moksetproxy {
enum : ParamID {
  kBoxMax = 1,
  kBoxMin = 2,
  kVertices = 3,  // with kExternal set: the sample points of the file
  kTextureVertices = 4,
  kFaces = 5,
  kEdges = 6,
  kSmoothing = 7,
  kTextureFaces = 8,
  kMaterialIds = 9,
  kSamples = 46,  // indices into kVertices
  kExternal = 50,
  kPath = 51,
};
}  // namespace moksetproxy

/// The mesh of a node with a Mokset proxy object, evaluated at the current time: from its tables,
/// or from the file that it names. Faces without an entry in the other tables have all edges
/// visible, no smoothing and material 0. Empty for any other node, for an index outside its table,
/// and for what ReadMoksetMesh finds at fault.
Mesh ReadSceneProxyMesh(INode* node);
void ReadSceneProxyMeshInto(INode* node, Mesh& mesh);

}  // namespace sowfield
