#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "host/exchange/importplan.h"
#include "host/import/tinygltf.h"

namespace host {

/// The pictures that a glTF's materials show as their base colour.
struct GltfPictures {
  std::vector<PlannedImage> images;
  std::vector<int> imageOf;  // one a material, -1 for none
  std::vector<std::string> warnings;
};

/// `root` is the whole document, `model` has its buffers, buffer views and materials; files are
/// looked for from `folder` (empty: nowhere). What doesn't fit together is a warning and shows
/// nothing; nothing is thrown but bad_alloc.
GltfPictures ReadGltfPictures(const nlohmann::json& root, const tinygltf::Model& model,
                              const std::string& folder);

}  // namespace host
