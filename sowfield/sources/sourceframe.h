#pragma once

#include "host/math/interval.h"
#include "host/math/matrix3.h"

class INode;

namespace sowfield {

// How what a type shows is brought from its source's object space under a placement's matrix. The
// frames agree on the node's rotation and scale and differ in the point that comes to stand on the
// placement. Without a node, for a type that lives in a file, points stay as they are.

/// Rotation and scale of a source's node.
Matrix3 SourceTurn(const INode* node, TimeValue t);

/// A turn, and then an offset that is taken away.
struct SourceFrame {
  Matrix3 turn;
  Point3 offset{0, 0, 0};
  Point3 operator()(const Point3& p) const { return p * turn - offset; }
};

/// Of the source's own points, its mesh and its samples: the pivot comes to the placement.
SourceFrame MeshFrame(const INode* node, TimeValue t);

/// Of a box round the Z axis on Z = 0: the middle of the source box's floor, `floor` in object
/// space, stands where it does relative to the pivot.
SourceFrame BoxFrame(const INode* node, TimeValue t, const Point3& floor);

/// The offset of a figure whose size holds the turn already, with `high` and `low` the corners of
/// the source's box: it stands on the floor and round the middle of the box that the two corners
/// make in the world, which for a turned node isn't the one of BoxFrame.
Point3 FigureOffset(const INode* node, TimeValue t, const Point3& high, const Point3& low);

/// MeshFrame as one matrix, with the way from the pivot to the object as translation, for those who
/// multiply matrices. The identity without a node.
Matrix3 SourceMatrix(const INode* node, TimeValue t);

}  // namespace sowfield
