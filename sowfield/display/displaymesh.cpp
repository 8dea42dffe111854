#include "sowfield/display/displaymesh.h"

#include <algorithm>
#include <limits>
#include <map>

#include "host/core/parallel.h"
#include "host/interface.h"
#include "sowfield/display/budgets.h"
#include "sowfield/display/figures.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/placementbatch.h"
#include "sowfield/model/typedata.h"
#include "sowfield/sources/sourceframe.h"
#include "sowfield/sources/typemesh.h"

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
      : node_(d.SourceNode(type)), kind_(type.kind), time_(t) {
    if (type.HasNode() && !node_) return;  // shows nothing until its removal
    if (mode == kShowOriginal) {
      frame_ = MeshFrame(node_, t);
      const TypeMesh mesh = MeshOfType(d, type, t);
      valid_ = mesh.valid;
      base_ = ShapeOf(mesh);
    } else {
      base_ = FigureShape(mode, BoxOf(d, type.type));
    }
  }

  const Shape& Base() const { return base_; }
  // Whether the source looks different at other times.
  bool Moves() const { return kind_ == kFromNode && !(valid_ == FOREVER); }
  const Shape& At(TimeValue t) {
    if (!Moves() || t == time_ || valid_.InInterval(t)) return base_;
    const auto [found, isNew] = others_.try_emplace(t);
    if (isNew) found->second = ShapeOf(MeshOfSource(node_, kind_, t));
    return found->second;
  }

 private:
  // The figure stands on the floor of the source's box, centred on it.
  Shape FigureShape(int mode, const Box3& box) const {
    const Matrix3 turn = SourceTurn(node_, time_);
    const Point3 top = box.pmax * turn, bottom = box.pmin * turn;
    Mesh figure =
        mode == kShowPyramid ? MakePyramidMesh(top, bottom) : MakeSquirrelMesh(top.z - bottom.z);
    const Point3 offset = FigureOffset(node_, time_, box.pmax, box.pmin);
    Shape shape;
    for (const Point3& v : figure.verts) shape.verts.push_back(v - offset);
    shape.faces = std::move(figure.faces);
    return shape;
  }

  Shape ShapeOf(const TypeMesh& source) const {
    Shape shape;
    const Mesh* mesh = source.Get();
    if (!mesh) return shape;
    shape.verts.reserve(mesh->verts.size());
    for (const Point3& v : mesh->verts) shape.verts.push_back(frame_(v));
    shape.faces = mesh->faces;
    return shape;
  }

  INode* node_ = nullptr;
  int kind_ = kFromNode;
  TimeValue time_ = 0;
  SourceFrame frame_;
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
  Placements(Distribution& d, TimeValue t) : evaluator_(*d.block, t), batch_(evaluator_) {
    const PlacementFilter filter(d, t, kSeen);
    shapes_.resize(size_t(d.TypeCount()));
    for (const TypeRef& type : TypeWalk(*d.block))
      if (filter.TakesType(type.type))
        shapes_[size_t(type.type)] = TypeShapes(d, type, d.block->GetInt(Display_Mode, t), t);
    places_ = filter.Passing();
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
  // Of entry i of the places.
  const Shape& ShapeOf(size_t i) const {
    return timed_.empty() ? shapes_[size_t(evaluator_.Type(places_[i]))].Base() : *timed_[i];
  }

  // Where each part begins; moves `end` behind the last. Shapes at times of their own are made
  // here, since only this thread may ask the sources.
  std::vector<MeshPlace> PlaceParts(MeshPlace& end) {
    if (std::any_of(shapes_.begin(), shapes_.end(), [](auto& s) { return s.Moves(); }))
      for (size_t i = 0; i < places_.size(); ++i)
        timed_.push_back(
            &shapes_[size_t(evaluator_.Type(places_[i]))].At(evaluator_.Time(places_[i])));
    std::vector<MeshPlace> parts;
    for (size_t i = 0; i < places_.size(); ++i) {
      if (i % kPart == 0) parts.push_back(end);
      end += ShapeOf(i);
    }
    return parts;
  }

  void WritePart(size_t part, MeshPlace at, Mesh& mesh, const Matrix3& worldToObject) const {
    Matrix3 matrices[kRun];
    const size_t last = std::min(places_.size(), (part + 1) * kPart);
    for (size_t i = part * kPart; i < last;) {
      const size_t end = std::min(last, i + kRun);
      batch_.Matrices(places_, i, end - i, matrices);
      for (const Matrix3* m = matrices; i < end; ++i, ++m) {
        const Shape& shape = ShapeOf(i);
        WriteVerts(shape, *m, worldToObject, mesh.verts.data() + at.vert);
        WriteFaces(shape, evaluator_.Type(places_[i]), std::uint32_t(at.vert),
                   mesh.faces.data() + at.face);
        at += shape;
      }
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

  PlacementEvaluator evaluator_;
  PlacementBatch batch_;
  std::vector<TypeShapes> shapes_;
  Places places_;
  std::vector<const Shape*> timed_;  // by place, where shapes have times of their own
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
