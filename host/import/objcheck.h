#pragma once

#include <cstddef>
#include <span>

namespace host {

/// Throws ImportFault, with the line, for an OBJ whose faces name vertices, texture vertices or
/// normals that aren't there, and for text that isn't UTF-8.
void CheckObjIndices(std::span<const std::byte> bytes);

}  // namespace host
