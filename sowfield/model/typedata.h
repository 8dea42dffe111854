#pragma once

#include <vector>

#include "host/scene/mesh.h"
#include "sowfield/model/distribution.h"
#include "sowfield/model/sampleorder.h"

namespace sowfield {

/// What a type keeps of its source, so that display and strokes need the source for the mesh alone.
struct TypeData {
  int vertices = 0;
  int faces = 0;
  std::vector<Point3> samples;  // object space
  Box3 box;                     // of all vertices, object space
};

/// All vertices of a mesh up to 3000, a random choice of 3000 above, in shuffled order either way.
/// The shuffle draws from the system's `rand`, not from an object's generator.
TypeData DataOfMesh(const Mesh& mesh, SampleShuffle how = SampleShuffle::NewType);

/// Appends the data of a new type, from Geo_VertCount to the box corners.
void AppendTypeData(Distribution& d, const TypeData& data);

/// The stored box of a type, object space.
Box3 BoxOf(const Distribution& d, int type);

/// The size of a type's box as the brush sees it: |x| + |y| of its diagonal, turned by the source
/// node's matrix.
Point3 TurnedBoxSize(const Distribution& d, const TypeRef& type);

/// The smallest brush radius for the types: the least quarter of |x| + |y| over them, scene units.
/// A type whose box is empty, not finite or too large for any brush takes no part; 0 without one
/// that does.
///
/// Sets brushMinimum for the types as they are. The brush stays: undo and redo bring back its own.
void TakeBrushMinimum(Distribution& d);

/// The same, and raises both brush radii to it. With `leastBefore`, which KnownLeastRadius gave
/// before the last type was added, only that type is looked at: the others stand as they did.
void RecomputeBrushMinimum(Distribution& d, std::optional<float> leastBefore = std::nullopt);

/// What the present types give for the minimum, infinite without one; none if a change has come
/// between, and all of them must be looked at.
std::optional<float> KnownLeastRadius(const Distribution& d);

/// Whether a change of a parameter, or of the nodes that it holds, may change that.
bool IsOfSources(ParamID id);

/// Puts a node on the layer of the object and its sources, which is made if it doesn't exist; the
/// current layer stays. Not part of any undo step's data.
void AddToObjectsLayer(INode* node);

}  // namespace sowfield
