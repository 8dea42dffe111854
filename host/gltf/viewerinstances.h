#pragma once

#include <array>
#include <memory>
#include <vector>

#include "host/gltf/glb.h"
#include "host/math/buffer.h"
#include "host/scene/instancesource.h"

namespace host {

/// The extension by which viewers show instances.
inline constexpr const char* kInstancingExtension = "EXT_mesh_gpu_instancing";

/// The instances of a set as lists of scales, rotations and translations, two lists a group: the
/// plain instances, and the mirrored ones. Those are told with X turned round, for a mesh whose X
/// is turned round too, so that no scale is below 0. Instances with a scale of 0 (or one that
/// single precision can't tell from it) or a number that isn't finite are in no list. Lists keep
/// the order of the set.
class InstanceLists {
 public:
  /// Goes through all matrices once, to count.
  explicit InstanceLists(std::unique_ptr<InstanceSet> set);

  InstanceSet& Set() { return *set_; }
  size_t Count(size_t group, bool mirrored) const { return lists_[group * 2 + mirrored].count; }
  /// Of one instance in the file.
  static constexpr size_t kInstanceBytes = 44;

  /// The numbers of the pieces that get a list's translations (three floats an instance),
  /// quaternions (x, y, z, w), scales (three) and places in the set (one float, exact up to 2^24).
  /// All lists are worked out when the first piece is written and let go after the last one.
  using Pieces = std::array<size_t, 4>;
  static Pieces Add(const std::shared_ptr<InstanceLists>& lists, size_t group, bool mirrored,
                    BinaryParts& parts);

  /// Turns X round.
  static Matrix3 Mirror() { return {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}; }

 private:
  struct List {
    size_t count = 0;
    size_t at = 0;  // of its first float, once it was added
    bool added = false;
  };

  template <class Body>
  void ForEachShown(const Body& body) const;
  void Fill();
  bool Write(const List& list, size_t piece, const ByteSink& sink);

  std::unique_ptr<InstanceSet> set_;
  std::vector<List> lists_;
  std::vector<std::uint32_t> before_;  // instances of each list in the parts before, part by part
  Buffer<float> values_;               // of the lists that were added, piece after piece
  size_t size_ = 0;                    // floats of them
  size_t pieces_ = 0, written_ = 0;
};

}  // namespace host
