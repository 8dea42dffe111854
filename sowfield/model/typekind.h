#pragma once

namespace sowfield {

/// Values of Geo_Kind: where the mesh of an object type lies.
enum TypeKind : int {
  kFromNode = 0,        // a node of the scene
  kFromSceneProxy = 1,  // a node with a Mokset proxy object: its tables, or the file that it names
  kFromFile = 2,        // a Mokset file; no node
  kFromVRayProxy = 3,   // a hidden node with the mesh of a V-Ray proxy, which stands in Proxy_Nodes
  kTypeKinds
};

}  // namespace sowfield
