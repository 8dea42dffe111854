#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "host/exchange/importplan.h"

namespace host {

/// The bytes by which one process hands a plan to another of the same build: a magic, then all
/// members in their order; counts have 8 bytes, numbers stand as in memory. Not for files.
std::vector<std::byte> EncodePlan(const ImportPlan& plan);

/// Throws ImportFault unless the bytes are one whole plan: its meshes are sound, nodes come after
/// their parents, and indices of images, materials and meshes name what is there. Motion isn't
/// looked into. Takes no memory beyond what the bytes can fill.
ImportPlan DecodePlan(std::span<const std::byte> bytes);

}  // namespace host
