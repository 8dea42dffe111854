#include "host/scene/join.h"

#include <algorithm>
#include <limits>

#include "host/scene/triobject.h"

namespace host {
namespace {

// Collects parts into one mesh in world space.
class Joiner {
 public:
  // False if the mesh would grow beyond what its indices can tell apart.
  bool Add(INode* node, TimeValue t) {
    const EvaluatedMesh source = EvalMesh(node, t);
    if (!source) return true;
    const Mesh& from = *source.mesh;
    const auto most = size_t(std::numeric_limits<int>::max());
    if (from.verts.size() > most - mesh_.verts.size() ||
        from.faces.size() > most - mesh_.faces.size())
      return false;

    const Matrix3 tm = node->GetObjectTM(t);
    const bool mirrored = tm.Determinant() < 0;
    const auto firstVert = std::uint32_t(mesh_.verts.size());
    for (const Point3& v : from.verts) mesh_.verts.push_back(v * tm);
    AddMap(from, mirrored);
    for (Face face : from.faces) {
      for (std::uint32_t& v : face.v) v += firstVert;
      if (mirrored) Turn(face);
      face.setMatID(SlotOf(MtlOfFace(node->GetMtl(), face.getMatID())));
      mesh_.faces.push_back(face);
    }
    return true;
  }

  const Mesh& Result() const { return mesh_; }
  Mesh& Result() { return mesh_; }

  Mtl* MakeMaterial() const {
    auto* multi = new MultiMtl;
    for (size_t i = 0; i < slots_.size(); ++i)
      multi->SetSubMtl(int(i), const_cast<Mtl*>(slots_[i]));
    return multi;
  }

 private:
  // The other way round: edges a and b change places, c stays.
  static void Turn(Face& face) {
    const std::uint32_t edges = face.edgeVisFlags();
    std::swap(face.v[0], face.v[2]);
    face.setEdgeVisFlags(edges & EDGE_B, edges & EDGE_A, edges & EDGE_C);
  }

  // A part without texture faces gets them all on one vertex, so that counts stay equal.
  void AddMap(const Mesh& from, bool mirrored) {
    MeshMap& map = mesh_.maps[1];
    const auto first = std::uint32_t(map.verts.size());
    if (from.mapSupport(1)) {
      map.verts.insert(map.verts.end(), from.maps[1].verts.begin(), from.maps[1].verts.end());
      for (TVFace f : from.maps[1].faces) {
        for (std::uint32_t& v : f.t) v += first;
        if (mirrored) std::swap(f.t[0], f.t[2]);
        map.faces.push_back(f);
      }
      map.used = true;
    } else if (!from.faces.empty()) {
      map.verts.push_back({0, 0, 0});
      map.faces.insert(map.faces.end(), from.faces.size(), TVFace{{first, first, first}});
    }
  }

  MtlID SlotOf(const Mtl* material) {
    const auto found = std::find(slots_.begin(), slots_.end(), material);
    if (found == slots_.end()) slots_.push_back(material);
    return MtlID(std::find(slots_.begin(), slots_.end(), material) - slots_.begin());
  }

  Mesh mesh_;
  std::vector<const Mtl*> slots_;
};

}  // namespace

INode* JoinNodes(Scene& scene, std::span<INode* const> parts, const WStr& name, TimeValue t) {
  Joiner joiner;
  for (INode* part : parts)
    if (!joiner.Add(part, t)) return nullptr;
  Mesh& mesh = joiner.Result();
  if (mesh.verts.empty()) return nullptr;
  if (!mesh.maps[1].used) mesh.maps[1] = {};

  const Box3 box = mesh.getBoundingBox();
  const Point3 foot(box.Center().x, box.Center().y, box.Min().z);
  for (Point3& v : mesh.verts) v -= foot;
  auto* object = new TriObject;
  object->mesh = std::move(mesh);
  object->mesh.InvalidateGeomCache();

  INode* node = scene.CreateObjectNode(object);
  node->SetName(name);
  node->SetNodeTM(t, TransMatrix(foot));
  node->SetMtl(joiner.MakeMaterial());
  scene.DeleteNodes(parts);
  return node;
}

}  // namespace host
