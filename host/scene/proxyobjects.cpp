#include "host/scene/proxyobjects.h"

#include <algorithm>

#include "host/core/builtinclass.h"
#include "host/scene/primitives.h"

namespace {

constexpr size_t kMostSamples = 3000;

ParamBlockDesc2& MoksetDesc() {
  using P = MoksetProxyObject;
  using enum ParamType;
  static ParamBlockDesc2 desc(0, L"Mokset", nullptr,
                              {{P::kBoxMax, L"Box Max", Point3},
                               {P::kBoxMin, L"Box Min", Point3},
                               {P::kVertices, L"Vertices", Point3, true},
                               {P::kTexVertices, L"Texture Vertices", Point3, true},
                               {P::kFaces, L"Faces", Point3, true},
                               {P::kEdges, L"Edges", Point3, true},
                               {P::kSmoothing, L"Smoothing", Int, true},
                               {P::kTexFaces, L"Texture Faces", Point3, true},
                               {P::kMaterialIds, L"Material Ids", Int, true},
                               {P::kDisplay, L"Display", Int, false, false, 6},
                               {P::kSamples, L"Samples", Int, true},
                               {P::kExternal, L"External", Int},
                               {P::kPath, L"Path", Filename}});
  return desc;
}

ParamBlockDesc2& VRayDesc() {
  static ParamBlockDesc2 desc(0, L"V-Ray Proxy", nullptr,
                              {{VRayProxyObject::kFile, L"File", ParamType::Filename},
                               {VRayProxyObject::kDisplay, L"Display", ParamType::Int}});
  return desc;
}

ParamBlockDesc2& CoronaDesc() {
  static ParamBlockDesc2 desc(0, L"Corona Proxy", nullptr,
                              {{CoronaProxyObject::kDisplay, L"Display", ParamType::Int}});
  return desc;
}

template <class T>
void Refill(IParamBlock2& block, ParamID id, const std::vector<T>& values) {
  block.Delete(id, 0, block.Count(id));
  block.Append(id, int(values.size()), values.data());
}

// False if one of the three isn't an index below `count`.
bool Indices(const Point3& p, size_t count, std::uint32_t (&out)[3]) {
  for (int c = 0; c < 3; ++c) {
    if (!(p[c] >= 0 && double(p[c]) < double(count))) return false;
    out[c] = std::uint32_t(p[c]);
  }
  return true;
}

Point3 PointOf(const std::uint32_t (&v)[3]) { return {float(v[0]), float(v[1]), float(v[2])}; }

bool ReadFaces(const IParamBlock2& block, Mesh& mesh) {
  using P = MoksetProxyObject;
  const auto faces = block.Points(P::kFaces), edges = block.Points(P::kEdges);
  const auto groups = block.Ints(P::kSmoothing), ids = block.Ints(P::kMaterialIds);
  mesh.setNumFaces(int(faces.size()));
  for (size_t f = 0; f < faces.size(); ++f) {
    Face& face = mesh.faces[f];
    face.flags = 0;
    if (!Indices(faces[f], mesh.verts.size(), face.v)) return false;
    const Point3 edge = f < edges.size() ? edges[f] : Point3(1, 1, 1);
    face.setEdgeVisFlags(edge.x != 0, edge.y != 0, edge.z != 0);
    face.smGroup = f < groups.size() ? std::uint32_t(groups[f]) : 0;
    face.setMatID(f < ids.size() ? MtlID(ids[f]) : MtlID(0));
  }
  return true;
}

bool ReadTexture(const IParamBlock2& block, Mesh& mesh) {
  using P = MoksetProxyObject;
  const auto verts = block.Points(P::kTexVertices), faces = block.Points(P::kTexFaces);
  mesh.maps.assign(2, {});
  if (verts.empty()) return true;
  if (faces.size() != mesh.faces.size()) return false;
  mesh.setMapSupport(1, true);
  mesh.maps[1].verts.assign(verts.begin(), verts.end());
  for (size_t f = 0; f < faces.size(); ++f)
    if (!Indices(faces[f], verts.size(), mesh.maps[1].faces[f].t)) return false;
  return true;
}

Mesh BoxMesh(const Box3& box) {
  if (box.IsEmpty()) return {};
  BoxObject block;
  const Point3 size = box.Width();
  block.SetSize(size.x, size.y, size.z);
  block.BuildMesh(0);
  const Point3 center = box.Center(), floor(center.x, center.y, box.Min().z);
  for (Point3& v : block.mesh.verts) v = v + floor;
  return block.mesh;
}

}  // namespace

RefResult ProxyObject::NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) {
  ivalid.SetEmpty();
  return REF_SUCCEED;
}

ReferenceTarget* ProxyObject::Clone(RemapDir& remap) {
  ProxyObject* copy = MakeAnother();
  remap.AddMapping(this, copy);
  for (int i = 0; i < NumRefs(); ++i) copy->ReplaceReference(i, remap.CloneRef(GetReference(i)));
  BaseClone(this, copy, remap);
  return copy;
}

void ProxyObject::SetReference(int i, ReferenceTarget* t) {
  if (i != 0) return;
  if (pblock2) pblock2->SetOwner(nullptr);
  pblock2 = static_cast<IParamBlock2*>(t);
  if (pblock2) pblock2->SetOwner(this);
  ivalid.SetEmpty();
}

MoksetProxyObject::MoksetProxyObject() {
  ReplaceReference(0, new IParamBlock2(MoksetDesc(), this));
}

void MoksetProxyObject::SetMesh(const Mesh& source) {
  const size_t n = source.faces.size();
  std::vector<Point3> faces(n), edges(n), texFaces;
  std::vector<int> groups(n), ids(n), samples(std::min(source.verts.size(), kMostSamples));
  for (size_t f = 0; f < n; ++f) {
    const Face& face = source.faces[f];
    faces[f] = PointOf(face.v);
    const std::uint32_t visible = face.edgeVisFlags();
    edges[f] = Point3((visible & EDGE_A) != 0, (visible & EDGE_B) != 0, (visible & EDGE_C) != 0);
    groups[f] = int(face.smGroup);
    ids[f] = face.getMatID();
  }
  for (size_t i = 0; i < samples.size(); ++i)
    samples[i] = int(i * source.verts.size() / samples.size());
  if (source.mapSupport(1))
    for (const TVFace& f : source.maps[1].faces) texFaces.push_back(PointOf(f.t));

  const Box3 box = source.getBoundingBox();
  const bool empty = box.IsEmpty();
  pblock2->SetValue(kBoxMax, 0, empty ? Point3(0, 0, 0) : box.Max());
  pblock2->SetValue(kBoxMin, 0, empty ? Point3(0, 0, 0) : box.Min());
  Refill(*pblock2, kVertices, std::vector<Point3>(source.verts.begin(), source.verts.end()));
  Refill(*pblock2, kTexVertices, texFaces.empty() ? std::vector<Point3>() : source.maps[1].verts);
  Refill(*pblock2, kFaces, faces);
  Refill(*pblock2, kEdges, edges);
  Refill(*pblock2, kSmoothing, groups);
  Refill(*pblock2, kTexFaces, texFaces);
  Refill(*pblock2, kMaterialIds, ids);
  Refill(*pblock2, kSamples, samples);
  pblock2->SetValue(kExternal, 0, 0);
}

void* MoksetProxyObject::GetInterface(Interface_ID id) {
  if (id == kID) return static_cast<MoksetProxyInterface*>(this);
  return ProxyObject::GetInterface(id);
}

void MoksetProxyObject::SetProxyFile(const WStr& path) {
  if (pblock2->GetInt(kExternal) == 0) {
    const std::span<const Point3> verts = pblock2->Points(kVertices);
    std::vector<Point3> samples;
    for (const int i : pblock2->Ints(kSamples))
      if (i >= 0 && size_t(i) < verts.size()) samples.push_back(verts[size_t(i)]);
    Refill(*pblock2, kVertices, samples);
    for (const ParamID id :
         {kTexVertices, kFaces, kEdges, kSmoothing, kTexFaces, kMaterialIds, kSamples})
      pblock2->Delete(id, 0, pblock2->Count(id));
  }
  pblock2->SetValue(kPath, 0, path);
  pblock2->SetValue(kExternal, 0, 1);
}

void MoksetProxyObject::GetLocalBoundBox(TimeValue, INode*, ViewExp*, Box3& box) {
  box = {};
  if (pblock2->Count(kVertices) == 0) return;
  box += pblock2->GetPoint3(kBoxMin);
  box += pblock2->GetPoint3(kBoxMax);
}

void MoksetProxyObject::BuildMesh(TimeValue) {
  mesh = {};
  if (pblock2->GetInt(kExternal) == 0) {
    const std::span<const Point3> verts = pblock2->Points(kVertices);
    mesh.setNumVerts(int(verts.size()));
    std::copy(verts.begin(), verts.end(), mesh.verts.begin());
    if (!ReadFaces(*pblock2, mesh) || !ReadTexture(*pblock2, mesh)) mesh = {};
  }
  ivalid = FOREVER;
}

RendererProxyObject::RendererProxyObject(ParamBlockDesc2& desc, ParamID display, int whole)
    : display_(display), showsWhole_(whole) {
  ReplaceReference(0, new IParamBlock2(desc, this));
}

void RendererProxyObject::SetMesh(const Mesh& given) {
  auto* holder = new TriObject;
  holder->mesh = given;
  RecordReference(this, 1);
  ReplaceReference(1, holder);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

ReferenceTarget* RendererProxyObject::GetReference(int i) const {
  return i == 1 ? whole_ : ProxyObject::GetReference(i);
}

void RendererProxyObject::SetReference(int i, ReferenceTarget* t) {
  if (i != 1) return ProxyObject::SetReference(i, t);
  whole_ = static_cast<TriObject*>(t);
  ivalid.SetEmpty();
}

void RendererProxyObject::BuildMesh(TimeValue) {
  const bool shown = pblock2->GetInt(display_) == showsWhole_;
  mesh = !whole_ ? Mesh() : shown ? whole_->mesh : BoxMesh(whole_->mesh.getBoundingBox());
  ivalid = FOREVER;
}

VRayProxyObject::VRayProxyObject() : RendererProxyObject(VRayDesc(), kDisplay, kWholeMesh) {}
CoronaProxyObject::CoronaProxyObject() : RendererProxyObject(CoronaDesc(), kDisplay, kFullMesh) {}

namespace host {

void RegisterProxyClasses(ClassRegistry& classes) {
  static BuiltinClass<MoksetProxyObject> mokset(GEOMOBJECT_CLASS_ID, MoksetProxyObject::kClassID,
                                                L"Mokset Proxy");
  static BuiltinClass<VRayProxyObject> vray(GEOMOBJECT_CLASS_ID, VRayProxyObject::kClassID,
                                            L"V-Ray Proxy");
  static BuiltinClass<CoronaProxyObject> corona(GEOMOBJECT_CLASS_ID, CoronaProxyObject::kClassID,
                                                L"Corona Proxy");
  classes.Add(&mokset);
  classes.Add(&vray);
  classes.Add(&corona);
}

}  // namespace host
