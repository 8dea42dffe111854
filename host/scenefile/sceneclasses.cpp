#include "host/scenefile/sceneclasses.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "host/exchange/importplan.h"
#include "host/scene/animatedmesh.h"
#include "host/scene/camera.h"
#include "host/scene/modifier.h"
#include "host/scene/node.h"
#include "host/scene/primitives.h"
#include "host/scene/shape.h"

namespace host {

using nlohmann::json;

namespace {

// A primitive is built when it is first shown: what it says is bounded like what is imported. Both
// ways, so that nothing is saved that can't be opened.
void CheckSegments(int segments) {
  constexpr int kMost = 10'000;
  if (segments > kMost)
    throw SceneFault("its sphere has " + std::to_string(segments) + " segments, allowed are " +
                     std::to_string(kMost));
}

void CheckCells(int x, int y) {
  if (double(x) * y * 2 > double(kMostImportedFaces))
    throw SceneFault("cells are " + std::to_string(x) + " by " + std::to_string(y) +
                     ", allowed are " + std::to_string(kMostImportedFaces / 2) + " in all");
}

void CheckChannels(size_t channels) {
  constexpr size_t kMost = 100;
  if (channels > kMost)
    throw SceneFault("its mesh has " + std::to_string(channels) + " map channels, allowed are " +
                     std::to_string(kMost));
}

}  // namespace

/// What a scene file keeps and nobody else sees.
struct SceneAccess {
  static Matrix3& Local(INode& node) { return node.local_; }
  static const Matrix3& Local(const INode& node) { return node.local_; }
  static void TakeChildren(INode& from, INode& to) {
    std::vector<Pin<INode>> children;
    for (INode* c : from.children_) children.emplace_back(c);
    for (size_t i = children.size(); i-- > 0;) from.RemoveChild(children[i].get());
    for (const Pin<INode>& c : children) to.InsertChild(c.get(), to.children_.size());
  }

  static json TrackValue(SceneOut& out, const Track& t) {
    return {{"shape", int(t.shape_)},
            {"rest", FloatList(t.rest_)},
            {"times", out.Table("int", std::span(t.times_))},
            {"values", out.Table("float", std::span(t.values_))}};
  }
  static Track ReadTrack(const SceneIn& in, const json& value, size_t width) {
    Track t(FloatsOf(MemberOf(value, "rest"), width, "a track's rest"));
    t.shape_ = KeyShape(IntOf(MemberOf(value, "shape"), 0, 2, "a track's shape"));
    t.times_ = in.Table<std::vector<TimeValue>>(MemberOf(value, "times"), "int", "a track's times");
    t.values_ =
        in.Table<std::vector<float>>(MemberOf(value, "values"), "float", "a track's values");
    for (size_t i = 1; i < t.times_.size(); ++i)
      if (t.times_[i] <= t.times_[i - 1])
        throw SceneFault("key " + std::to_string(i) + " of a track is at tick " +
                         std::to_string(t.times_[i]) + ", expected after " +
                         std::to_string(t.times_[i - 1]));
    if (t.values_.size() != t.times_.size() * t.Stride())
      throw SceneFault("a track has " + std::to_string(t.values_.size()) + " numbers, expected " +
                       std::to_string(t.times_.size() * t.Stride()));
    return t;
  }

  static json WriteTransform(SceneOut& out, const ReferenceTarget& thing) {
    const auto& s = static_cast<const TransformControl&>(thing).s_;
    return {{"still", MatrixValue(s.still)},           {"before", MatrixValue(s.before)},
            {"after", MatrixValue(s.after)},           {"position", TrackValue(out, s.position)},
            {"rotation", TrackValue(out, s.rotation)}, {"scale", TrackValue(out, s.scale)}};
  }
  static void ReadTransform(const SceneIn& in, ReferenceTarget& thing, const json& data) {
    auto& s = static_cast<TransformControl&>(thing).s_;
    s.still = MatrixOf(MemberOf(data, "still"), "the still matrix");
    s.before = MatrixOf(MemberOf(data, "before"), "the matrix before");
    s.after = MatrixOf(MemberOf(data, "after"), "the matrix after");
    s.position = ReadTrack(in, MemberOf(data, "position"), 3);
    s.rotation = ReadTrack(in, MemberOf(data, "rotation"), 4);
    s.scale = ReadTrack(in, MemberOf(data, "scale"), 3);
  }

  static json WriteBox(SceneOut&, const ReferenceTarget& thing) {
    const auto& b = static_cast<const BoxObject&>(thing);
    return {{"size", FloatList(std::array{b.width_, b.length_, b.height_})}};
  }
  static json WriteSphere(SceneOut&, const ReferenceTarget& thing) {
    const auto& s = static_cast<const SphereObject&>(thing);
    CheckSegments(s.segments_);
    return {{"radius", FloatValue(s.radius_)}, {"segments", s.segments_}};
  }
  static json WritePlane(SceneOut&, const ReferenceTarget& thing) {
    const auto& p = static_cast<const PlaneObject&>(thing);
    CheckCells(p.cellsX_, p.cellsY_);
    return {{"size", FloatList(std::array{p.width_, p.length_})},
            {"cells", {p.cellsX_, p.cellsY_}}};
  }
};

namespace {

std::string Sound(const Mesh& mesh) {
  // Numbers that aren't finite do no harm and stay; indices must lie in their tables.
  Mesh indices;
  indices.verts.assign(mesh.verts.size(), Point3(0, 0, 0));
  indices.faces = mesh.faces;
  indices.maps = mesh.maps;
  return indices.FirstFault();
}

// The type of the table tells what the numbers are; a face is five of them.
json MeshValue(SceneOut& out, const Mesh& mesh) {
  if (const std::string fault = Sound(mesh); !fault.empty())
    throw SceneFault("its mesh can't be kept: " + fault);
  CheckChannels(mesh.maps.size());
  json maps = json::array();
  for (const MeshMap& m : mesh.maps)
    maps.push_back({{"used", m.used},
                    {"verts", out.Table("point3", std::span(m.verts))},
                    {"faces", out.Table("uint32", std::span(m.faces))}});
  return {{"verts", out.Table("point3", std::span(mesh.verts))},
          {"faces", out.Table("uint32", std::span(mesh.faces))},
          {"maps", std::move(maps)}};
}

Mesh ReadMesh(const SceneIn& in, const json& value) {
  static_assert(sizeof(Face) == 20 && sizeof(TVFace) == 12);
  Mesh mesh;
  mesh.verts = in.Table<Buffer<Point3>>(MemberOf(value, "verts"), "point3", "the table verts");
  mesh.faces = in.Table<Buffer<Face>>(MemberOf(value, "faces"), "uint32", "the table faces");
  const json& maps = ListOf(value, "maps");
  CheckChannels(maps.size());
  mesh.maps.clear();
  for (const json& m : maps) {
    MeshMap map;
    map.used = FlagOf(MemberOf(m, "used"), "used");
    map.verts = in.Table<std::vector<Point3>>(MemberOf(m, "verts"), "point3", "map vertices");
    map.faces = in.Table<std::vector<TVFace>>(MemberOf(m, "faces"), "uint32", "map faces");
    mesh.maps.push_back(std::move(map));
  }
  if (const std::string fault = Sound(mesh); !fault.empty())
    throw SceneFault("its mesh is damaged: " + fault);
  return mesh;
}

json WriteTri(SceneOut& out, const ReferenceTarget& thing) {
  return {{"mesh", MeshValue(out, static_cast<const TriObject&>(thing).mesh)}};
}
void ReadTri(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  static_cast<TriObject&>(thing).mesh = ReadMesh(in, MemberOf(data, "mesh"));
}

void ReadBox(const SceneIn&, ReferenceTarget& thing, const json& data) {
  const std::vector<float> s = FloatsOf(MemberOf(data, "size"), 3, "the size");
  static_cast<BoxObject&>(thing).SetSize(s[0], s[1], s[2]);
}

void ReadSphere(const SceneIn&, ReferenceTarget& thing, const json& data) {
  const int segments = IntOf(MemberOf(data, "segments"), 3, INT_MAX, "segments");
  CheckSegments(segments);
  static_cast<SphereObject&>(thing).SetSize(FloatOf(MemberOf(data, "radius"), "the radius"),
                                            segments);
}

void ReadPlane(const SceneIn&, ReferenceTarget& thing, const json& data) {
  const std::vector<float> s = FloatsOf(MemberOf(data, "size"), 2, "the size");
  const json& cells = ListOf(data, "cells");
  if (cells.size() != 2)
    throw SceneFault("cells has " + std::to_string(cells.size()) + " numbers, expected 2");
  const int x = IntOf(cells[0], 1, INT_MAX, "cells"), y = IntOf(cells[1], 1, INT_MAX, "cells");
  CheckCells(x, y);
  static_cast<PlaneObject&>(thing).SetSize(s[0], s[1], x, y);
}

json ShapesValue(SceneOut& out, const std::vector<std::vector<Point3>>& shapes) {
  json list = json::array();
  for (const auto& s : shapes) list.push_back(out.Table("point3", std::span(s)));
  return list;
}

std::vector<std::vector<Point3>> ReadShapes(const SceneIn& in, const json& list, size_t verts) {
  std::vector<std::vector<Point3>> shapes;
  for (const json& s : list) {
    shapes.push_back(in.Table<std::vector<Point3>>(s, "point3", "a shape"));
    if (shapes.back().size() != verts)
      throw SceneFault("a shape has " + std::to_string(shapes.back().size()) +
                       " vertices, expected " + std::to_string(verts));
  }
  return shapes;
}

json WriteAnimated(SceneOut& out, const ReferenceTarget& thing) {
  static_assert(sizeof(Matrix3) == 48 && sizeof(VertexBones) == 24);
  const auto& a = static_cast<const AnimatedMesh&>(thing);
  const MeshMotion& m = a.Motion();
  json bones = json::array();
  for (int i = 1; i < a.NumRefs(); ++i) bones.push_back(out.Ref(a.GetReference(i)));
  return {{"mesh", MeshValue(out, m.base)},
          {"frameTimes", out.Table("int", std::span(m.frameTimes))},
          {"frames", ShapesValue(out, m.frames)},
          {"targets", ShapesValue(out, m.targets)},
          {"inverseBind", out.Table("float", std::span(m.inverseBind))},
          {"vertexBones", out.Table("byte", std::span(m.vertexBones))},
          {"weights", SceneAccess::TrackValue(out, a.Weights())},
          {"bones", std::move(bones)}};
}

void CheckFrames(const MeshMotion& m) {
  if (m.frameTimes.size() != m.frames.size())
    throw SceneFault(std::to_string(m.frameTimes.size()) + " times of frames, expected " +
                     std::to_string(m.frames.size()));
  for (size_t i = 1; i < m.frameTimes.size(); ++i)
    if (m.frameTimes[i] <= m.frameTimes[i - 1])
      throw SceneFault("frame " + std::to_string(i) + " is not later than the one before");
}

void CheckBones(const MeshMotion& m) {
  if (m.inverseBind.empty()) return;
  if (m.vertexBones.size() != m.base.verts.size())
    throw SceneFault(std::to_string(m.vertexBones.size()) + " vertices with bones, expected " +
                     std::to_string(m.base.verts.size()));
  for (const VertexBones& v : m.vertexBones)
    for (const std::uint16_t b : v.bone)
      if (b >= m.inverseBind.size())
        throw SceneFault("a vertex hangs on bone " + std::to_string(b) + ", but there are only " +
                         std::to_string(m.inverseBind.size()));
}

void ReadAnimated(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  auto motion = std::make_shared<MeshMotion>();
  MeshMotion& m = *motion;
  m.base = ReadMesh(in, MemberOf(data, "mesh"));
  const size_t verts = m.base.verts.size();
  m.frameTimes =
      in.Table<std::vector<TimeValue>>(MemberOf(data, "frameTimes"), "int", "frameTimes");
  m.frames = ReadShapes(in, ListOf(data, "frames"), verts);
  m.targets = ReadShapes(in, ListOf(data, "targets"), verts);
  m.inverseBind =
      in.Table<std::vector<Matrix3>>(MemberOf(data, "inverseBind"), "float", "inverseBind");
  m.vertexBones =
      in.Table<std::vector<VertexBones>>(MemberOf(data, "vertexBones"), "byte", "vertexBones");
  CheckFrames(m);
  CheckBones(m);
  const size_t width = m.targets.size();
  const Track weights = SceneAccess::ReadTrack(in, MemberOf(data, "weights"), width);
  std::vector<INode*> bones;
  for (const json& b : ListOf(data, "bones")) bones.push_back(in.RefTo<INode>(b, "a bone"));
  auto& a = static_cast<AnimatedMesh&>(thing);
  a.SetMotion(std::move(motion), weights);
  a.SetBones(bones);
}

// The mesh that was made last is made anew.
json WriteDerived(SceneOut& out, const ReferenceTarget& thing) {
  const auto& d = static_cast<const DerivedObject&>(thing);
  json modifiers = json::array();
  for (int i = 0; i < d.NumModifiers(); ++i) modifiers.push_back(out.Ref(d.GetModifier(i)));
  return {{"base", out.Ref(d.GetObjRef())}, {"modifiers", std::move(modifiers)}};
}
void ReadDerived(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  auto& d = static_cast<DerivedObject&>(thing);
  d.ReplaceReference(DerivedObject::kBaseRef, in.RefTo<Object>(MemberOf(data, "base"), "the base"));
  for (const json& m : ListOf(data, "modifiers")) {
    if (auto* modifier = in.RefTo<Modifier>(m, "a modifier")) {
      d.AddModifier(modifier);
    } else {
      in.Fault("a modifier is missing");
    }
  }
}
ReferenceTarget* MakeDerived() { return new DerivedObject(nullptr); }

json WriteXForm(SceneOut&, const ReferenceTarget& thing) {
  return {{"matrix", MatrixValue(static_cast<const XFormModifier&>(thing).GetMatrix())}};
}
void ReadXForm(const SceneIn&, ReferenceTarget& thing, const json& data) {
  static_cast<XFormModifier&>(thing).SetMatrix(MatrixOf(MemberOf(data, "matrix"), "the matrix"));
}

json WriteCamera(SceneOut&, const ReferenceTarget& thing) {
  return {{"fov", FloatValue(static_cast<const CameraObject&>(thing).GetFOV(0))}};
}
void ReadCamera(const SceneIn&, ReferenceTarget& thing, const json& data) {
  static_cast<CameraObject&>(thing).SetFOV(0, FloatOf(MemberOf(data, "fov"), "fov"));
}

json WriteShape(SceneOut& out, const ReferenceTarget& thing) {
  json splines = json::array();
  for (const Spline3D& s : static_cast<const SplineShape&>(thing).GetShape().splines)
    splines.push_back({{"closed", s.Closed()}, {"knots", out.Table("point3", s.Knots())}});
  return {{"splines", std::move(splines)}};
}

void ReadShape(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  BezierShape shape;
  const json& splines = ListOf(data, "splines");
  for (size_t i = 0; i < splines.size(); ++i)
    in.Try([&] {
      const std::string of = " of spline " + std::to_string(i);
      const bool closed = FlagOf(MemberOf(splines[i], "closed"), ("closed" + of).c_str());
      shape.splines.emplace_back(
          in.Table<std::vector<Point3>>(MemberOf(splines[i], "knots"), "point3",
                                        ("the table knots" + of).c_str()),
          closed);
    });
  static_cast<SplineShape&>(thing).SetShape(std::move(shape));
}

json WriteStdMtl(SceneOut& out, const ReferenceTarget& thing) {
  const auto& m = static_cast<const StdMtl&>(thing);
  const Color c = m.GetDiffuse();
  json maps = json::array();
  for (int i = 0; i < m.NumSubTexmaps(); ++i) maps.push_back(out.Ref(m.GetSubTexmap(i)));
  return {{"name", ToUtf8(m.GetName())},
          {"diffuse", FloatList(std::array{c.r, c.g, c.b})},
          {"maps", std::move(maps)}};
}

void ReadStdMtl(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  auto& m = static_cast<StdMtl&>(thing);
  m.SetName(TextOf(MemberOf(data, "name"), "the name"));
  const std::vector<float> c = FloatsOf(MemberOf(data, "diffuse"), 3, "the diffuse colour");
  m.SetDiffuse({c[0], c[1], c[2]}, 0);
  const json& maps = ListOf(data, "maps");
  for (size_t i = 0; i < maps.size() && i < size_t(m.NumSubTexmaps()); ++i)
    m.SetSubTexmap(int(i), in.RefTo<Texmap>(maps[i], "a map"));
}

json WriteMultiMtl(SceneOut& out, const ReferenceTarget& thing) {
  const auto& m = static_cast<const MultiMtl&>(thing);
  json slots = json::array();
  for (int i = 0; i < m.NumSubMtls(); ++i) slots.push_back(out.Ref(m.GetSubMtl(i)));
  return {{"name", ToUtf8(m.GetName())}, {"slots", std::move(slots)}};
}

void ReadMultiMtl(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  auto& m = static_cast<MultiMtl&>(thing);
  m.SetName(TextOf(MemberOf(data, "name"), "the name"));
  const json& slots = ListOf(data, "slots");
  for (size_t i = 0; i < slots.size(); ++i) m.SetSubMtl(int(i), in.RefTo<Mtl>(slots[i], "a slot"));
}

json WriteBitmap(SceneOut& out, const ReferenceTarget& thing) {
  const auto& b = static_cast<const BitmapTex&>(thing);
  const WStr picture = b.GetBytes() ? b.GetMapName() : out.paths.Stored(b.GetMapName());
  json data = {{"name", ToUtf8(b.GetName())}, {"picture", ToUtf8(picture)}};
  if (b.GetBytes()) data["bytes"] = out.Table("byte", std::span(*b.GetBytes()));
  return data;
}

void ReadBitmap(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  auto& b = static_cast<BitmapTex&>(thing);
  b.SetName(TextOf(MemberOf(data, "name"), "the name"));
  BitmapTex::Bytes bytes;
  if (data.contains("bytes"))
    bytes = std::make_shared<const std::vector<std::byte>>(
        in.Table<std::vector<std::byte>>(data["bytes"], "byte", "the picture"));
  const WStr picture = TextOf(MemberOf(data, "picture"), "the picture's name");
  b.SetPicture(bytes ? picture : in.paths.InMemory(picture), std::move(bytes));
}

json WriteFloat(SceneOut& out, const ReferenceTarget& thing) {
  return {
      {"track", SceneAccess::TrackValue(out, static_cast<const FloatControl&>(thing).GetTrack())}};
}
void ReadFloat(const SceneIn& in, ReferenceTarget& thing, const json& data) {
  static_cast<FloatControl&>(thing).SetTrack(
      SceneAccess::ReadTrack(in, MemberOf(data, "track"), 1));
}

template <class T>
ReferenceTarget* Make() {
  return new T;
}

constexpr SceneClass kClasses[] = {
    {GEOMOBJECT_CLASS_ID, triObjectClassID, Make<TriObject>, WriteTri, ReadTri},
    {GEOMOBJECT_CLASS_ID, polyObjectClassID, Make<PolyObject>, WriteTri, ReadTri},
    {GEOMOBJECT_CLASS_ID, EditableMesh::kClassID, Make<EditableMesh>, WriteTri, ReadTri},
    {GEN_DERIVOB_CLASS_ID, DerivedObject::kClassID, MakeDerived, WriteDerived, ReadDerived},
    {OSM_CLASS_ID, XFormModifier::kClassID, Make<XFormModifier>, WriteXForm, ReadXForm},
    {GEOMOBJECT_CLASS_ID, BoxObject::kClassID, Make<BoxObject>, SceneAccess::WriteBox, ReadBox},
    {GEOMOBJECT_CLASS_ID, SphereObject::kClassID, Make<SphereObject>, SceneAccess::WriteSphere,
     ReadSphere},
    {GEOMOBJECT_CLASS_ID, PlaneObject::kClassID, Make<PlaneObject>, SceneAccess::WritePlane,
     ReadPlane},
    {GEOMOBJECT_CLASS_ID, AnimatedMesh::kClassID, Make<AnimatedMesh>, WriteAnimated, ReadAnimated},
    {SHAPE_CLASS_ID, splineShapeClassID, Make<SplineShape>, WriteShape, ReadShape},
    {CAMERA_CLASS_ID, CameraObject::kClassID, Make<CameraObject>, WriteCamera, ReadCamera},
    {MATERIAL_CLASS_ID, StdMtl::kClassID, Make<StdMtl>, WriteStdMtl, ReadStdMtl},
    {MATERIAL_CLASS_ID, MultiMtl::kClassID, Make<MultiMtl>, WriteMultiMtl, ReadMultiMtl},
    {TEXMAP_CLASS_ID, BitmapTex::kClassID, Make<BitmapTex>, WriteBitmap, ReadBitmap},
    {FLOAT_CONTROL_CLASS_ID, FloatControl::kClassID, Make<FloatControl>, WriteFloat, ReadFloat},
    {TRANSFORM_CONTROL_CLASS_ID, TransformControl::kClassID, Make<TransformControl>,
     SceneAccess::WriteTransform, SceneAccess::ReadTransform}};

}  // namespace

const SceneClass* FindSceneClass(SClass_ID super, Class_ID id) {
  for (const SceneClass& c : kClasses)
    if (c.super == super && c.id == id) return &c;
  return nullptr;
}

Matrix3 StillMatrixOf(const INode& node) { return SceneAccess::Local(node); }

void SetStillMatrix(INode& node, const Matrix3& still, ReferenceTarget* control) {
  node.ReplaceReference(INode::kTMRef, control);
  SceneAccess::Local(node) = still;
}

void TakeChildren(INode& from, INode& to) { SceneAccess::TakeChildren(from, to); }

}  // namespace host
