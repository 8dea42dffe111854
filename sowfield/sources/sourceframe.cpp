#include "sowfield/sources/sourceframe.h"

#include "host/scene/node.h"

namespace sowfield {

Matrix3 SourceTurn(const INode* node, TimeValue t) {
  if (!node) return {};
  Matrix3 turn = node->GetNodeTM(t);
  turn.NoTrans();
  return turn;
}

SourceFrame MeshFrame(const INode* node, TimeValue t) {
  if (!node) return {};
  return {SourceTurn(node, t), node->GetNodeTM(t).GetTrans() - node->GetObjectTM(t).GetTrans()};
}

SourceFrame BoxFrame(const INode* node, TimeValue t, const Point3& floor) {
  if (!node) return {};
  return {SourceTurn(node, t), node->GetNodeTM(t).GetTrans() - floor * node->GetObjectTM(t)};
}

Point3 FigureOffset(const INode* node, TimeValue t, const Point3& high, const Point3& low) {
  if (!node) return {0, 0, 0};
  const Point3 pivot = node->GetNodeTM(t).GetTrans();
  const Matrix3 object = node->GetObjectTM(t);
  const Point3 p = high * object, q = low * object;
  return {pivot.x - (p.x + q.x) * 0.5f, pivot.y - (p.y + q.y) * 0.5f, pivot.z - q.z};
}

Matrix3 SourceMatrix(const INode* node, TimeValue t) {
  if (!node) return {};
  Matrix3 m = node->GetNodeTM(t);
  m.SetTrans(node->GetObjectTM(t).GetTrans() - m.GetTrans());
  return m;
}

}  // namespace sowfield
