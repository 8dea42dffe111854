#pragma once

#include <cstdint>

namespace host {

/// Up to four bones move a vertex; weights sum to 1, unused ones are 0.
struct VertexBones {
  std::uint16_t bone[4];
  float weight[4];
  bool operator==(const VertexBones&) const = default;
};

}  // namespace host
