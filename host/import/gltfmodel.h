#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "host/import/gltftextures.h"
#include "host/import/tinygltf.h"

namespace host {

/// A glTF with what an import looks at: everything has its right type, and the buffers have at
/// least their stated length. Indices may still point anywhere.
struct GltfModel {
  tinygltf::Model model;
  GltfPictures pictures;
  std::vector<std::string> warnings;
};

/// Takes GLB or JSON. Throws ImportFault for what isn't glTF 2, for required extensions that are
/// unknown here, and for buffers that are missing, short, or outside `folder` (empty: none there).
GltfModel LoadGltf(std::span<const std::byte> bytes, const std::string& folder);

/// What a URI of a glTF holds: base64 data, or the file that it names in `folder` (empty: none
/// there). Throws ImportFault; `where` begins its text.
std::vector<unsigned char> FetchGltfUri(const std::string& uri, const std::string& folder,
                                        const std::string& where);

}  // namespace host
