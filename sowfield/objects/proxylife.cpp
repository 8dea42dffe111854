#include "sowfield/objects/proxylife.h"

#include <algorithm>

#include "host/core/assets.h"
#include "host/core/classdesc.h"
#include "host/interface.h"
#include "host/scene/modifier.h"
#include "sowfield/model/listchange.h"
#include "sowfield/model/typerows.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/sources/proxyfiles.h"
#include "sowfield/sources/source.h"
#include "sowfield/sources/typemesh.h"

namespace sowfield {
namespace {

bool IsType(const Distribution& d, int type, int kind) {
  return type >= 0 && type < d.TypeCount() && d.FindType(type).kind == kind;
}

WStr FileOf(const Distribution& d, const TypeRef& type) {
  return d.block->GetStr(Proxy_Files, d.curTime, type.file);
}

TriObject* NewTriObject(Class_ID id = triObjectClassID) {
  return static_cast<TriObject*>(CreateInstance(GEOMOBJECT_CLASS_ID, id));
}

// A node that stands where the source does and may be changed: the source stays as it is.
INode* WorkingNode(INode* source, int kind, TimeValue t) {
  Interface* ip = GetCOREInterface();
  INode* node = nullptr;
  if (kind == kFromSceneProxy) {
    TriObject* made = NewTriObject();
    made->mesh = std::move(*MeshOfSource(source, kind, t).read);
    node = ip->CreateObjectNode(made);
  } else {
    node = ip->CreateObjectNode(source->GetObjectRef());
  }
  node->SetObjectOffset(source->GetObjectOffset());
  node->SetNodeTM(t, source->GetNodeTM(t));
  return node;
}

void MovePivotToFloor(INode* node, TimeValue t) {
  const Box3 box = TightWorldBox(node, t);
  if (box.IsEmpty()) return;
  const Point3 floor(box.Center().x, box.Center().y, box.Min().z);
  node->Move(t, Matrix3(), floor - node->GetNodeTM(t).GetTrans(), true, false, true);
}

void Collapse(INode* node, TimeValue t) {
  if (TriObject* flat = CollapseStack(node->GetObjectRef(), t)) node->SetObjectRef(flat);
}

// Works rotation, scale and object offset into the object: the node keeps its place alone.
void ResetTransform(INode* node, TimeValue t) {
  for (int i = node->NumberOfChildren(); i-- > 0;)
    GetCOREInterface()->GetRootNode()->AttachChild(node->GetChildNode(i), true);
  Collapse(node, t);
  const Matrix3 tm = node->GetNodeTM(t);
  Matrix3 turn = tm;
  turn.NoTrans();
  const Matrix3 worked = node->GetObjectOffset() * turn;
  node->SetNodeTM(t, TransMatrix(tm.GetTrans()));
  node->SetObjectOffset(Matrix3());
  auto* xform = new XFormModifier;
  xform->SetMatrix(worked);
  auto* stack = new DerivedObject(node->GetObjectRef());
  stack->AddModifier(xform);
  node->SetObjectRef(stack);
  Collapse(node, t);
}

Mesh MeshForFile(INode* source, int kind, TimeValue t) {
  INode* node = WorkingNode(source, kind, t);
  Mesh mesh;
  if (EvalMesh(node, t)) {
    MovePivotToFloor(node, t);
    ResetTransform(node, t);
    mesh = *EvalMesh(node, t).mesh;
  }
  GetCOREInterface()->DeleteNode(node, false, false);
  return mesh;
}

TypeData DataOfFile(const MoksetInfo& info) {
  TypeData data;
  data.vertices = info.vertices;
  data.faces = info.faces;
  data.samples = info.samples;
  data.box = info.box;
  return data;
}

TypeData StoredData(const Distribution& d, int type) {
  const IParamBlock2& b = *d.block;
  TypeData data;
  data.vertices = b.Ints(Geo_VertCount)[size_t(type)];
  data.faces = b.Ints(Geo_FaceCount)[size_t(type)];
  const std::span<const int> counts = b.Ints(Geo_PointCount);
  size_t first = 0;
  for (int i = 0; i < type; ++i) first += size_t(counts[size_t(i)]);
  const auto samples = b.Points(Geo_Points).subspan(first, size_t(counts[size_t(type)]));
  data.samples.assign(samples.begin(), samples.end());
  data.box = BoxOf(d, type);
  return data;
}

// The made node of a V-Ray proxy is replaced by one of the mesh as it is now.
TypeData DataOfVRayProxy(Distribution& d, const TypeRef& type) {
  INode* original = d.block->GetINode(Proxy_Nodes, d.curTime, type.original);
  if (!WhyNotASource(original, d.curTime).empty()) return StoredData(d, type.type);
  const Source source(original, d.curTime, SampleShuffle::File);
  INode* old = d.SourceNode(type);
  d.block->SetValue(Geo_Nodes, d.curTime, source.node, type.node);
  if (old && !IsInUse(old)) GetCOREInterface()->DeleteNode(old, false, false);
  return source.data;
}

TypeData FreshData(Distribution& d, const TypeRef& type) {
  if (type.kind == kFromVRayProxy) return DataOfVRayProxy(d, type);
  if (type.kind == kFromFile) {
    Mesh mesh;  // a file whose faces can't be read shows nothing: what it tells is no use
    const MoksetInfo info = ReadMoksetFile(FileOf(d, type), mesh);
    return info.generation < 1 || info.fault ? StoredData(d, type.type) : DataOfFile(info);
  }
  INode* node = d.SourceNode(type);
  return WhyNotASource(node, d.curTime).empty() ? Source(node, d.curTime, SampleShuffle::File).data
                                                : StoredData(d, type.type);
}

// What the file tells; of the mesh where it couldn't be written.
TypeData DataOfWritten(const Mesh& mesh, const WStr& path, bool written) {
  const MoksetInfo info = written ? ReadMoksetInfo(path) : MoksetInfo{};
  return info.generation < 1 || info.fault ? DataOfMesh(mesh, SampleShuffle::File)
                                           : DataOfFile(info);
}

// The first and the last table of every change of the list: undo and redo find their ends by them.
void TouchKind(Distribution& d, int type) {
  d.block->SetValue(Geo_Kind, d.curTime, d.block->GetInt(Geo_Kind, d.curTime, type), type);
}
void TouchName(Distribution& d, int type) {
  const WStr name = d.block->GetStr(Geo_Names, d.curTime, type);
  d.block->SetValue(Geo_Names, d.curTime, name, type);
}

Mtl* MaterialOf(const Distribution& d, const TypeRef& type) {
  const int index = d.block->GetInt(Proxy_MtlIndex, d.curTime, type.file);
  return index < 0 ? nullptr : d.block->GetMtl(Proxy_Mtls, d.curTime, index);
}

}  // namespace

std::string WhyNotConvertible(const Distribution& d, int type) {
  if (type < 0 || type >= d.TypeCount()) return "there is no such type";
  switch (d.FindType(type).kind) {
    case kFromFile:
      return "it lives in a file already";
    case kFromVRayProxy:
      return "a V-Ray proxy can't become a Mokset";
    default:
      break;
  }
  const TypeRef ref = d.FindType(type);
  const TypeMesh shown = MeshOfType(d, ref, d.curTime);
  if (!shown.Get()) return "its node gives no mesh";
  return ref.kind == kFromSceneProxy && shown.Get()->verts.empty()
             ? "the mesh of its proxy object can't be read"
             : "";
}

bool ConvertType(Distribution& d, int type, const WStr& path, bool& written, std::string* error) {
  written = false;
  if (!WhyNotConvertible(d, type).empty()) return false;
  IParamBlock2& block = *d.block;
  const TypeRef from = d.FindType(type);
  INode* node = d.SourceNode(from);

  ListChange change(d, L"Save Mokset Out");
  const Mesh mesh = MeshForFile(node, from.kind, d.curTime);
  const Box3 box = mesh.getBoundingBox();
  block.SetValue(Geo_Kind, d.curTime, kFromFile, type);
  block.SetValue(Geo_BoxMax, d.curTime, box.Max(), type);
  block.SetValue(Geo_BoxMin, d.curTime, box.Min(), type);
  written = WriteMoksetFile(mesh, path, d.rng, error);
  // The node's samples would lie beside the mesh that is shown, whose frame is the file's now.
  ReplaceSamples(d, type, DataOfWritten(mesh, path, written));
  block.Insert(Proxy_Files, from.file, 1, &path);
  using MaxSDK::AssetManagement::IAssetManager;
  if (IAssetManager* assets = IAssetManager::GetInstance())
    assets->GetAsset(path, MaxSDK::AssetManagement::kExternalLink);
  int index = -1;
  if (Mtl* material = node->GetMtl()) {
    index = block.Count(Proxy_Mtls);
    block.Append(Proxy_Mtls, 1, &material);
  }
  block.Insert(Proxy_MtlIndex, from.file, 1, &index);
  block.Delete(Geo_Nodes, from.node, 1);
  TakeBrushMinimum(d);
  TouchName(d, type);
  change.Accept();

  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  return true;
}

bool PointTypeAtFile(Distribution& d, int type, const WStr& path) {
  if (!IsType(d, type, kFromFile)) return false;
  Mesh mesh;  // only a whole file will do
  const MoksetInfo info = ReadMoksetFile(path, mesh);
  if (info.generation < 1 || info.fault) return false;

  {
    // Outside a step its tables would go into steps before it, whose undo would mix two sources.
    ListChange change(d, L"Load Mokset");
    TouchKind(d, type);
    d.block->SetValue(Proxy_Files, d.curTime, path, d.FindType(type).file);
    ReplaceTypeData(d, type, DataOfFile(info));
    RecomputeBrushMinimum(d);
    TouchName(d, type);
    change.Accept();
  }
  d.RefreshObject();
  return true;
}

bool ExportMoksetToObject(Distribution& d, int type) {
  if (!IsType(d, type, kFromFile)) return false;
  IParamBlock2& block = *d.block;
  const TypeRef from = d.FindType(type);
  const WStr path = FileOf(d, from);
  Interface* ip = GetCOREInterface();
  if (!MoksetFileExists(path)) {
    ip->Boxes().Show(L"Missing Mokset",
                     L"The Vorn File you tried to Export is missing. Please locate the file before "
                     L"Exporting.",
                     host::BoxKind::Warning);
    return false;
  }

  ListChange change(d, L"Export Mokset Out");
  block.SetValue(Geo_Kind, d.curTime, kFromNode, type);
  TriObject* object = NewTriObject(EditableMesh::kClassID);
  object->mesh = std::move(*MeshOfType(d, from, d.curTime).read);
  INode* node = ip->CreateObjectNode(object);
  node->SetName(block.GetStr(Geo_Names, d.curTime, type));
  if (INode* own = d.OwnNode()) {
    Matrix3 place = own->GetNodeTM(d.curTime);
    place.NoRot();
    node->SetNodeTM(d.curTime, place);
  }
  if (Mtl* material = MaterialOf(d, from)) node->SetMtl(material);
  RemoveProxyFile(d, from.file);
  block.Insert(Geo_Nodes, from.node, 1, &node);
  block.SetValue(Geo_Names, d.curTime, node->GetName(), type);
  change.Accept();

  d.Tell(Event::TypeListChanged);
  d.Tell(Event::PainterListChanged);
  return true;
}

void UpdateAllTypes(Distribution& d) {
  IParamBlock2& block = *d.block;
  // Nodes are exchanged, so it has to be undone as a whole.
  ListChange change(d, L"Update All");
  const bool any = d.TypeCount() > 0;
  if (any) TouchKind(d, 0);
  std::vector<TypeData> all;
  for (int type = 0; type < d.TypeCount(); ++type) all.push_back(FreshData(d, d.FindType(type)));
  for (const Param id :
       {Geo_BoxMax, Geo_BoxMin, Geo_Points, Geo_PointCount, Geo_VertCount, Geo_FaceCount})
    block.Delete(id, 0, block.Count(id));
  for (const TypeData& data : all) AppendTypeData(d, data);
  if (INode* own = d.OwnNode())
    own->SetNodeTM(d.curTime, TransMatrix(own->GetNodeTM(d.curTime).GetTrans()));
  RecomputeBrushMinimum(d);
  if (any) TouchName(d, 0);
  change.Accept();

  d.Tell(Event::StatsChanged);
}

std::vector<INode*> MakePreviewNodes(Distribution& d) {
  std::vector<INode*> nodes;
  for (const TypeRef& type : TypeWalk(*d.block)) {
    if (type.kind != kFromFile) continue;
    TriObject* object = NewTriObject();
    object->mesh = std::move(*MeshOfType(d, type, d.curTime).read);
    INode* node = GetCOREInterface()->CreateObjectNode(object);
    node->SetMtl(MaterialOf(d, type));
    node->Hide(true);
    nodes.push_back(node);
  }
  return nodes;
}

}  // namespace sowfield
