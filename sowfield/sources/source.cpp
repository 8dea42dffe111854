#include "sowfield/sources/source.h"

#include <algorithm>

#include "host/core/classdesc.h"
#include "host/interface.h"
#include "host/scene/triobject.h"
#include "sowfield/model/classids.h"
#include "sowfield/proxy/sceneproxy.h"
#include "sowfield/sources/typemesh.h"

namespace sowfield {
namespace {

constexpr ParamID kVRayDisplay = 1;  // in its block 0
constexpr int kVRayWholeMesh = 4;

IParamBlock2* BlockOf(INode* node, TimeValue t) {
  return node->EvalWorldState(t).obj->GetParamBlock(0);
}

int KindOf(const Object* object) {
  if (object->ClassID() == kMoksetProxyClassID) return kFromSceneProxy;
  return object->ClassID() == kVRayProxyClassID ? kFromVRayProxy : kFromNode;
}

// Sets what a V-Ray proxy shows; returns what it showed.
int ShowVRay(INode* node, TimeValue t, int display) {
  IParamBlock2* block = BlockOf(node, t);
  const int before = block->GetInt(kVRayDisplay, t);
  block->SetValue(kVRayDisplay, t, display);
  return before;
}

bool IsSoundBox(const Box3& box) { return IsFinite(box.Width()) && IsFinite(box.Center()); }

std::string WhyNotAMesh(Object* object, TimeValue t) {
  const EvaluatedMesh source = MeshOf(object, t);
  if (!source) return "its object gives no mesh";
  if (source.mesh->verts.empty()) return "its mesh has no vertices";
  if (const std::string fault = source.mesh->FirstFault(); !fault.empty()) return fault;
  // Coordinates near the end of single precision: the brush and the pivot are made from the box.
  return IsSoundBox(source.mesh->getBoundingBox()) ? "" : "its size isn't a finite number";
}

std::string WhyNotAWholeMesh(INode* node, Object* object, TimeValue t) {
  const IParamBlock2* block = object->GetParamBlock(0);
  if (!block || !block->GetDesc()->Find(kVRayDisplay)) return "its proxy object has no parameters";
  const int shown = ShowVRay(node, t, kVRayWholeMesh);
  std::string why = WhyNotAMesh(object, t);
  ShowVRay(node, t, shown);
  return why;
}

std::string WhyNotTables(const IParamBlock2* block) {
  const ParamID needed[] = {moksetproxy::kBoxMax, moksetproxy::kBoxMin,  moksetproxy::kVertices,
                            moksetproxy::kFaces,  moksetproxy::kSamples, moksetproxy::kExternal};
  for (const ParamID id : needed)
    if (!block || !block->GetDesc()->Find(id)) return "its proxy object has no mesh parameters";
  const std::span<const Point3> points = block->Points(moksetproxy::kVertices);
  if (points.empty()) return "its mesh has no vertices";
  if (!std::all_of(points.begin(), points.end(), IsFinite))
    return "its mesh has a vertex that isn't finite";
  const Box3 box(block->GetPoint3(moksetproxy::kBoxMin), block->GetPoint3(moksetproxy::kBoxMax));
  if (box.IsEmpty() || !IsSoundBox(box)) return "its box isn't one";
  const std::span<const int> samples = block->Ints(moksetproxy::kSamples);
  const auto beyond = [&](int i) { return i < 0 || size_t(i) >= points.size(); };
  if (block->GetInt(moksetproxy::kExternal) == 0 &&
      std::any_of(samples.begin(), samples.end(), beyond))
    return "its sample list names a vertex that isn't there";
  return {};
}

TypeData DataOfMoksetProxy(const IParamBlock2& proxy) {
  TypeData data;
  data.vertices = proxy.Count(moksetproxy::kVertices);
  data.faces = proxy.Count(moksetproxy::kFaces);
  data.box = Box3(proxy.GetPoint3(moksetproxy::kBoxMin), proxy.GetPoint3(moksetproxy::kBoxMax));
  const std::span<const Point3> points = proxy.Points(moksetproxy::kVertices);
  if (proxy.GetInt(moksetproxy::kExternal)) {
    data.samples.assign(points.begin(), points.end());
  } else {
    for (const int i : proxy.Ints(moksetproxy::kSamples)) data.samples.push_back(points[size_t(i)]);
  }
  return data;
}

// A hidden node that stands and moves as the proxy does and holds its mesh.
INode* MakeMeshNode(INode* proxy, const Mesh& mesh, TimeValue t) {
  Interface* ip = GetCOREInterface();
  auto* object = static_cast<TriObject*>(CreateInstance(GEOMOBJECT_CLASS_ID, triObjectClassID));
  object->mesh = mesh;
  INode* node = ip->CreateObjectNode(object);
  node->SetName(ip->GetScene().UniqueName(proxy->GetName()));
  auto* motion = static_cast<TransformControl*>(
      CreateInstance(TRANSFORM_CONTROL_CLASS_ID, proxy->GetTMController()->ClassID()));
  motion->Copy(proxy->GetTMController());
  node->SetTMController(motion);
  node->SetNodeTM(t, proxy->GetNodeTM(t));
  node->SetObjectOffset(proxy->GetObjectOffset());
  node->SetWireColor(proxy->GetWireColor());
  node->SetMtl(proxy->GetMtl());
  node->Hide(true);
  AddToObjectsLayer(node);
  return node;
}

// Around the mesh that placements show. Where a Mokset proxy has none that can be read, around the
// box that it tells.
Box3 SeenBox(INode* node, TimeValue t, int kind) {
  const Matrix3 tm = node->GetObjectTM(t);
  Box3 box = kind == kFromSceneProxy ? MeshOfSource(node, kind, t).Get()->getBoundingBox(&tm)
                                     : TightWorldBox(node, t);
  if (box.IsEmpty()) node->EvalWorldState(t).obj->GetWorldBoundBox(t, node, nullptr, box);
  return box;
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
  const int kind = KindOf(object);
  const std::string why = kind == kFromSceneProxy  ? WhyNotTables(object->GetParamBlock(0))
                          : kind == kFromVRayProxy ? WhyNotAWholeMesh(node, object, t)
                                                   : WhyNotAMesh(object, t);
  if (!why.empty()) return why;
  if (!node->GetNodeTM(t).IsInvertible()) return "its matrix flattens space or isn't finite";
  Box3 box;
  object->GetWorldBoundBox(t, node, nullptr, box);
  return IsSoundBox(box) ? "" : "its size isn't a finite number";
}

bool IsInUse(const INode* node) {
  const auto& holders = node->Dependents();
  return std::any_of(holders.begin(), holders.end(), [](const ReferenceTarget* t) {
    return t->SuperClassID() == PARAMETER_BLOCK2_CLASS_ID;
  });
}

Source::Source(INode* asked, TimeValue t, SampleShuffle how)
    : kind(KindOf(asked->EvalWorldState(t).obj)), node(asked), picked(asked), t_(t) {
  if (kind == kFromSceneProxy) {
    data = DataOfMoksetProxy(*BlockOf(picked, t));
    return;
  }
  if (kind == kFromVRayProxy) shown_ = ShowVRay(picked, t, kVRayWholeMesh);
  const EvaluatedMesh whole = EvalMesh(picked, t);
  if (kind == kFromVRayProxy) node = MakeMeshNode(picked, *whole.mesh, t);
  data = DataOfMesh(*whole.mesh, how);
}

Source::~Source() {
  if (shown_) ShowVRay(picked, t_, *shown_);
}

void Source::MovePivotToFloor(Before ofKind3) const {
  const Box3 box = SeenBox(node, t_, kind);
  const auto prepare = [&](INode* n) {
    const bool reset = kind == kFromVRayProxy && ofKind3 == Before::Reset;
    reset ? n->ResetPivot(t_) : n->CenterPivot(t_, false);
  };
  prepare(node);
  if (kind == kFromVRayProxy) prepare(picked);
  const Point3 center = box.Center();
  const Point3 offset = Point3(center.x, center.y, box.Min().z) - node->GetNodeTM(t_).GetTrans();
  node->Move(t_, Matrix3(), offset, true, false, true);
  if (kind == kFromVRayProxy) picked->Move(t_, Matrix3(), offset, true, false, true);
}

}  // namespace sowfield
