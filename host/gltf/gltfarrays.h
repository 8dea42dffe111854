#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/exchange/exportplan.h"
#include "host/files/jsonout.h"
#include "host/gltf/glb.h"

namespace host {

/// The accessors of a document. Arrays of a kind lie behind one another in one buffer view, and
/// those of equal bytes are one.
class GltfArrays {
 public:
  enum Kind : size_t {
    kPoints,   // positions, normals and moves of vertices
    kUvs,      // two floats
    kJoints,   // four of 16 bits
    kWeights,  // four floats
    kIndices,  // 32 bits
    kScalars,  // the rest are of motion
    kVectors,
    kTurns,     // four floats
    kMatrices,  // sixteen
    kKinds
  };

  GltfArrays(BinaryParts& parts, std::shared_ptr<const ExportPlan> plan);

  /// Give the number of an accessor. Borrowed values must be the plan's. `bounded` ones tell the
  /// least and the greatest of their floats; there is at least one then.
  template <class T>
  size_t Borrow(Kind kind, const std::vector<T>& values, bool bounded = false) {
    return Add(kind, std::as_bytes(std::span(values)), bounded);
  }
  template <class T>
  size_t Own(Kind kind, const std::vector<T>& values, bool bounded = false) {
    const auto bytes = std::as_bytes(std::span(values));
    const size_t before = accessors_.size();
    bytes_->owned.emplace_back(bytes.begin(), bytes.end());
    const size_t index = Add(kind, bytes_->owned.back(), bounded);
    if (accessors_.size() == before) bytes_->owned.pop_back();
    return index;
  }
  /// The four accessors of a list of instances.
  std::array<size_t, 4> Instances(const ExportInstances& instances);

  /// The list of all accessors, to `out`, and their bytes to the parts. Once, after all were added.
  void Put(JsonOut& out);

 private:
  struct Accessor {
    Kind kind{};
    size_t view = 0;  // of instances
    bool isOwnView = false;
    size_t offset = 0, count = 0;
    const char* type = nullptr;
    int component = 0;
    bool bounded = false;
    std::array<float, 3> low{}, high{};
    std::span<const std::byte> bytes;
  };
  struct Pool {
    std::vector<std::span<const std::byte>> pieces;
    size_t size = 0;
  };
  // What is there until the file is written.
  struct Bytes {
    std::shared_ptr<const ExportPlan> plan;
    std::vector<std::vector<std::byte>> owned;
    std::array<Pool, kKinds> pools;
  };

  size_t Add(Kind kind, std::span<const std::byte> bytes, bool bounded);
  static bool WritePool(const Pool& pool, const ByteSink& sink);

  BinaryParts& parts_;
  std::shared_ptr<Bytes> bytes_;
  std::vector<Accessor> accessors_;
  std::unordered_multimap<std::uint64_t, size_t> byHash_;
};

}  // namespace host
