#pragma once

#include <random>
#include <vector>

#include "host/scene/mesh.h"

/// A mesh of parts that share no vertices: fans of 3 to 6 corners round a random place, within 4 of
/// the origin, smoothed or not, in one of four materials.
class Parts {
 public:
  explicit Parts(unsigned seed) : random_(seed) {}

  size_t Count() const { return parts_.size(); }
  /// Puts `come` new parts in the place of up to `go`, from the part `at` on, and tells the mesh.
  void Replace(size_t at, size_t go, size_t come) {
    at = std::min(at, parts_.size()), go = std::min(go, parts_.size() - at);
    MeshSplice told;
    for (size_t i = 0; i < at + go; ++i) {
      (i < at ? told.verts.first : told.verts.removed) += parts_[i].size();
      (i < at ? told.faces.first : told.faces.removed) += parts_[i].size() - 2;
    }
    const auto place = parts_.erase(parts_.begin() + long(at), parts_.begin() + long(at + go));
    std::vector<std::vector<Point3>> fresh(come);
    for (std::vector<Point3>& part : fresh) {
      part = Fan();
      told.verts.added += part.size(), told.faces.added += part.size() - 2;
    }
    parts_.insert(place, fresh.begin(), fresh.end());
    Fill();
    mesh.Spliced(told);
  }
  /// Any change.
  void Change() { Replace(random_() % (Count() + 1), random_() % 4, random_() % 4); }

  Mesh mesh;

 private:
  float Uniform(float low, float high) {
    return low + (high - low) * float(random_() >> 8) * 0x1p-24f;
  }
  std::vector<Point3> Fan() {
    const Point3 middle(Uniform(-3, 3), Uniform(-3, 3), Uniform(-3, 3));
    std::vector<Point3> fan(3 + random_() % 4);
    for (Point3& p : fan) p = middle + Point3(Uniform(-1, 1), Uniform(-1, 1), Uniform(-1, 1));
    return fan;
  }
  // Straight into the tables: sizes set through the mesh would tell that all has changed.
  void Fill() {
    mesh.verts.clear(), mesh.faces.clear();
    for (const std::vector<Point3>& part : parts_) {
      const auto first = std::uint32_t(mesh.verts.size()), n = std::uint32_t(part.size());
      for (std::uint32_t k = 2; k < n; ++k)
        mesh.faces.push_back({{first, first + k - 1, first + k}, n % 2, (n % 4) << 16 | EDGE_ALL});
      mesh.verts.insert(mesh.verts.end(), part.begin(), part.end());
    }
  }

  std::mt19937 random_;
  std::vector<std::vector<Point3>> parts_;
};
