#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/exchange/importplan.h"

namespace host {

/// Reads GLB or JSON of glTF 2. `folder` is where files named by the model lie, empty for none.
/// Throws ImportFault.
ImportPlan ReadGltf(std::span<const std::byte> bytes, const std::string& folder);

}  // namespace host
