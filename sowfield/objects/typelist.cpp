#include "sowfield/objects/typelist.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/scene/triobject.h"
#include "sowfield/model/classids.h"
#include "sowfield/model/typedata.h"
#include "sowfield/model/typerows.h"

namespace sowfield {
namespace {

// The brush of an object's first type: a line as wide as the source, a stroke of a few widths.
void SizeBrush(Distribution& d, const TypeData& data, const INode* node) {
  const Point3 s = VectorTransform(data.box.Width(), node->GetNodeTM(d.curTime));
  const float x = std::fabs(s.x), y = std::fabs(s.y);
  d.block->SetValue(Brush_LineSize, d.curTime, (x + y) * 0.5f);
  d.block->SetValue(Brush_Size, d.curTime, (x + y) * 1.75f);
  d.block->SetValue(Brush_Collision, d.curTime, std::max(x, y));
  d.Tell(Event::BrushSizeChanged);
  d.Tell(Event::CollisionChanged);
}

// A placement stands on its position with the bottom centre of the source's world box.
void MovePivotToFloor(INode* node, TimeValue t) {
  Box3 box;
  node->EvalWorldState(t).obj->GetWorldBoundBox(t, node, nullptr, box);
  node->CenterPivot(t, false);
  const Point3 center = box.Center();
  const Point3 floor(center.x, center.y, box.Min().z);
  node->Move(t, Matrix3(), floor - node->GetNodeTM(t).GetTrans(), true, false, true);
}

}  // namespace

std::string WhyNotASource(INode* node, TimeValue t) {
  if (!node) return "there is no such node";
  Object* object = node->EvalWorldState(t).obj;
  if (!object) return "it holds no object";
  if (object->SuperClassID() != GEOMOBJECT_CLASS_ID) return "it isn't a geometry object";
  const Class_ID id = object->ClassID();
  if (id == kSowfieldClassID) return "a Sowfield object can't be a source";
  if (id == kForeignClassA || id == kForeignClassB) return "objects of its class can't be sources";
  if (id == kMoksetProxyClassID || id == kVRayProxyClassID)
    return "proxy objects are not available as sources yet";
  const EvaluatedMesh source = MeshOf(object, t);
  if (!source) return "its object gives no mesh";
  if (source.mesh->verts.empty()) return "its mesh has no vertices";
  if (const std::string fault = source.mesh->FirstFault(); !fault.empty()) return fault;
  if (!node->GetNodeTM(t).IsInvertible()) return "its matrix flattens space or isn't finite";
  // Coordinates near the end of single precision: the brush and the pivot are made from both boxes.
  Box3 box;
  object->GetWorldBoundBox(t, node, nullptr, box);
  for (const Box3& b : {box, source.mesh->getBoundingBox()})
    if (!IsFinite(b.Width()) || !IsFinite(b.Center())) return "its size isn't a finite number";
  return {};
}

bool AddType(Distribution& d, INode* node) {
  if (!WhyNotASource(node, d.curTime).empty()) return false;
  IParamBlock2& block = *d.block;
  d.SetListReady(0);
  AddToObjectsLayer(node);

  theHold.Begin();
  const bool first = d.TypeCount() == 0;
  const int kind = 0;
  block.Append(Geo_Kind, 1, &kind);
  const TypeData data = DataOfMesh(*EvalMesh(node, d.curTime).mesh);
  AppendTypeData(d, data);
  if (first) SizeBrush(d, data, node);
  MovePivotToFloor(node, d.curTime);
  block.Append(Geo_Nodes, 1, &node);
  RecomputeBrushMinimum(d);
  AppendTypeRows(d);
  block.Append(Geo_Names, 1, &node->GetName());
  theHold.Accept(L"Adding Geo");

  d.lists.SelectObjectRows({});
  d.lists.SelectPainterRows({});
  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  if (!block.GetInt(List_Locked, d.curTime))
    block.SetValue(Paint_ListExtra, d.curTime, std::max(0, d.TypeCount() - 6));
  d.Tell(Event::VariationsDropped);
  d.SetListReady(1);
  return true;
}

int AddTypesByName(Distribution& d, std::span<INode* const> nodes) {
  if (nodes.empty()) return 0;
  int added = 0;
  for (INode* n : nodes) added += AddType(d, n);
  d.RefreshObject();
  return added;
}

}  // namespace sowfield
