#include "sowfield/display/displaymesh.h"

#include <algorithm>
#include <limits>
#include <map>

#include "host/core/parallel.h"
#include "host/interface.h"
#include "host/scene/triobject.h"
#include "sowfield/display/budgets.h"
#include "sowfield/display/exclusionseam.h"
#include "sowfield/display/figures.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/sceneproxy.h"

namespace sowfield {
namespace {

// What a type shows: vertices with the source's turn and pivot worked in, ready for a placement's
// matrix, and faces.
struct Shape {
  std::vector<Point3> verts;
  host::Buffer<Face> faces;
};

// The shapes of one type: one at the build's time, and others where an animation offset shows the
// source at times of its own.
class TypeShapes {
 public:
  TypeShapes() = default;
  TypeShapes(const Distribution& d, const TypeRef& type, int mode, TimeValue t)
      : node_(d.SourceNode(type)), time_(t) {
    if (type.HasNode() && !node_) return;  // shows nothing until its removal
    if (node_) {
      turn_ = node_->GetNodeTM(t);
      pivot_ = turn_.GetTrans();
      turn_.NoTrans();
    }
    const Point3 a = d.block->GetPoint3(Geo_BoxMax, d.curTime, type.type);
    const Point3 b = d.block->GetPoint3(Geo_BoxMin, d.curTime, type.type);
    if (mode == kShowOriginal) {
      animated_ = type.kind == 0;
      if (type.kind == 1) {
        base_ = ShapeOfMesh(ReadSceneProxyMesh(node_));
      } else if (node_) {
        base_ = ShapeAt(t, &valid_);
      } else {
        base_ = ShapeOfMesh(ReadMoksetMesh(d.block->GetStr(Proxy_Files, d.curTime, type.file)));
      }
    } else {
      base_ = FigureShape(mode, a, b);
    }
  }

  const Shape& Base() const { return base_; }
  // Whether the source looks different at other times.
  bool Moves() const { return animated_ && !(valid_ == FOREVER); }
  const Shape& At(TimeValue t) {
    if (!animated_ || t == time_ || valid_.InInterval(t)) return base_;
    const auto [found, isNew] = others_.try_emplace(t);
    if (isNew) found->second = ShapeAt(t, nullptr);
    return found->second;
  }

 private:
  // The figure stands on the floor of the source's box, centred on it.
  Shape FigureShape(int mode, const Point3& a, const Point3& b) const {
    const Point3 top = a * turn_, bottom = b * turn_;
    Mesh figure =
        mode == kShowPyramid ? MakePyramidMesh(top, bottom) : MakeSquirrelMesh(top.z - bottom.z);
    Point3 offset(0, 0, 0);
    if (node_) {
      const Matrix3 object = node_->GetObjectTM(time_);
      const Point3 p = a * object, q = b * object;
      offset = {pivot_.x - (p.x + q.x) * 0.5f, pivot_.y - (p.y + q.y) * 0.5f, pivot_.z - q.z};
    }
    Shape shape;
    for (const Point3& v : figure.verts) shape.verts.push_back(v - offset);
    shape.faces = std::move(figure.faces);
    return shape;
  }

  Shape ShapeAt(TimeValue t, Interval* valid) const {
    const ObjectState state = node_->EvalWorldState(t);
    if (valid) *valid = state.valid;
    const EvaluatedMesh source = MeshOf(state.obj, t);
    return source ? ShapeOfMesh(*source.mesh) : Shape();
  }

  // A file's mesh is in its own frame.
  Shape ShapeOfMesh(const Mesh& mesh) const {
    Shape shape;
    const Point3 offset = node_ ? pivot_ - node_->GetObjectTM(time_).GetTrans() : Point3(0, 0, 0);
    shape.verts.reserve(mesh.verts.size());
    for (const Point3& v : mesh.verts) shape.verts.push_back(v * turn_ - offset);
    shape.faces = mesh.faces;
    return shape;
  }

  INode* node_ = nullptr;
  TimeValue time_ = 0;
  Matrix3 turn_;  // rotation and scale of the source's node matrix
  Point3 pivot_{0, 0, 0};
  bool animated_ = false;
  Interval valid_ = FOREVER;
  Shape base_;
  std::map<TimeValue, Shape> others_;
};

// Placements are written in parts of this many, each with its own place in the mesh.
constexpr size_t kPart = 4096;
// Matrices worked out in one call.
constexpr size_t kRun = 256;

// A place in the mesh.
struct MeshPlace {
  size_t vert = 0, face = 0;
  MeshPlace& operator+=(const Shape& shape) {
    vert += shape.verts.size(), face += shape.faces.size();
    return *this;
  }
};

// The placements that a build shows, and their writing into the mesh.
class Placements {
 public:
  Placements(Distribution& d, TimeValue t)
      : mode_(d.block->GetInt(Display_Mode, t)),
        shownType_(d.block->GetInt(Display_Type, t) - 1),
        evaluator_(*d.block, t),
        batch_(evaluator_) {
    shapes_.resize(size_t(d.TypeCount()));
    for (const TypeRef& type : TypeWalk(*d.block))
      if (Shown(type.type)) shapes_[size_t(type.type)] = TypeShapes(d, type, mode_, t);
    if (ExclusionAsked(d))
      GetCOREInterface()->PrintToListener(
          L"Sowfield: exclusion splines don't take effect yet; all placements are shown.\n");
  }

  // Appends all shapes to the mesh, which holds the logo or nothing.
  void WriteTo(Mesh& mesh, const Matrix3& worldToObject) {
    MeshPlace end{mesh.verts.size(), mesh.faces.size()};
    const std::vector<MeshPlace> parts = PlaceParts(end);
    const auto most = size_t(std::numeric_limits<int>::max());
    if (end.vert > most || end.face > most) {
      GetCOREInterface()->PrintToListener(
          L"Sowfield: the placements are too many for one display mesh; none is shown.\n");
      return;
    }
    mesh.verts.resize(end.vert);
    mesh.faces.resize(end.face);
    host::ParallelFor(parts.size(), 1, [&](size_t first, size_t last) {
      for (size_t part = first; part < last; ++part)
        WritePart(part, parts[part], mesh, worldToObject);
    });
  }

 private:
  bool Shown(int type) const { return shownType_ < 0 || type == shownType_; }
  const Shape& ShapeOf(size_t p) const {
    return timed_.empty() ? shapes_[size_t(evaluator_.Type(p))].Base() : *timed_[p];
  }

  // Where each part begins; moves `end` behind the last. Shapes at times of their own are made
  // here, since only this thread may ask the sources.
  std::vector<MeshPlace> PlaceParts(MeshPlace& end) {
    const bool timed = mode_ == kShowOriginal && std::any_of(shapes_.begin(), shapes_.end(),
                                                             [](auto& s) { return s.Moves(); });
    if (timed) timed_.resize(evaluator_.Count(), nullptr);
    std::vector<MeshPlace> parts;
    for (size_t p = 0; p < evaluator_.Count(); ++p) {
      if (p % kPart == 0) parts.push_back(end);
      const int type = evaluator_.Type(p);
      if (!Shown(type)) continue;
      if (timed) timed_[p] = &shapes_[size_t(type)].At(evaluator_.Time(p));
      end += ShapeOf(p);
    }
    return parts;
  }

  void WritePart(size_t part, MeshPlace at, Mesh& mesh, const Matrix3& worldToObject) const {
    Matrix3 matrices[kRun];
    const size_t last = std::min(evaluator_.Count(), (part + 1) * kPart);
    for (size_t p = part * kPart; p < last;) {
      size_t end = p;
      while (end < last && end - p < kRun && Shown(evaluator_.Type(end))) ++end;
      batch_.Matrices(p, end - p, matrices);
      for (const Matrix3* m = matrices; p < end; ++p, ++m) {
        const Shape& shape = ShapeOf(p);
        WriteVerts(shape, *m, worldToObject, mesh.verts.data() + at.vert);
        WriteFaces(shape, evaluator_.Type(p), std::uint32_t(at.vert), mesh.faces.data() + at.face);
        at += shape;
      }
      while (p < last && !Shown(evaluator_.Type(p))) ++p;
    }
  }

  static void WriteVerts(const Shape& shape, const Matrix3& m, const Matrix3& worldToObject,
                         Point3* out) {
    if (worldToObject.IsIdentity()) {
      for (const Point3& v : shape.verts) *out++ = v * m;
    } else {
      for (const Point3& v : shape.verts) *out++ = (v * m) * worldToObject;
    }
  }

  static void WriteFaces(const Shape& shape, int type, std::uint32_t first, Face* out) {
    const std::uint32_t id = std::uint32_t(type + 1) << 16;
    for (const Face& f : shape.faces)
      *out++ = {{f.v[0] + first, f.v[1] + first, f.v[2] + first}, f.smGroup, f.edgeVisFlags() | id};
  }

  int mode_;
  int shownType_;
  PlacementEvaluator evaluator_;
  PlacementBatch batch_;
  std::vector<TypeShapes> shapes_;
  std::vector<const Shape*> timed_;  // by placement, where shapes have times of their own
};

}  // namespace

bool DisplayBuilder::ShowsLogo() const {
  const IParamBlock2& block = *d_.block;
  return d_.TypeCount() == 0 || block.GetInt(Show_Logo, d_.curTime) ||
         block.GetInt(Display_Mode, d_.curTime) == kShowNone;
}

float DisplayBuilder::LogoSize() {
  float size = 0;
  Interval valid = FOREVER;
  d_.block->GetValue(Logo_size, d_.curTime, size, valid);
  if (size < kSmallestLogo) {
    size = kSmallestLogo;
    d_.block->SetValue(Logo_size, d_.curTime, size);
  }
  return size;
}

void DisplayBuilder::Build(TimeValue t, Mesh& mesh) {
  d_.curTime = t;
  // A lowered mode refreshes the object, which builds at the host's time inside this build. What
  // it left is what this one would make, unless the times differ.
  const unsigned before = builds_;
  if (!d_.block->GetInt(ForceDisplay, t)) ApplyBudgets(d_, t);
  d_.curTime = t;
  if (builds_ != before && lastBuilt_ == t) return;

  mesh.setNumTVerts(0);
  mesh.setNumTVFaces(0);
  if (ShowsLogo()) {
    MakeLogoMesh(LogoSize(), mesh);
  } else {
    mesh.setNumVerts(0);
    mesh.setNumFaces(0);
  }
  INode* own = d_.OwnNode();
  const bool heavy = !IsLightMode(d_.block->GetInt(Display_Mode, t)) && d_.TypeCount() > 0;
  if (heavy && own) Placements(d_, t).WriteTo(mesh, Inverse(own->GetNodeTM(t)));
  waitsForNode_ = heavy && !own;
  mesh.InvalidateGeomCache();
  mesh.InvalidateTopologyCache();
  ++builds_;
  lastBuilt_ = t;
}

}  // namespace sowfield
