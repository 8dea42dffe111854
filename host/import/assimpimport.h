#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "host/exchange/importplan.h"

namespace host {

/// Whether assimp names a reader for this extension ("." first, lower case).
bool IsAssimpExtension(const std::string& extension);

/// Reads a model by assimp, which chooses its reader by the extension of `fileName` (the file's own
/// name, without folders) and by the content. Files that the model names are looked for in and
/// below `folder` alone, nowhere if it is empty. Throws ImportFault or bad_alloc.
ImportPlan ReadAssimp(std::span<const std::byte> bytes, const std::string& folder,
                      const std::string& fileName);

}  // namespace host
