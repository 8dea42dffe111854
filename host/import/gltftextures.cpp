#include "host/import/gltftextures.h"

#include <nlohmann/json.hpp>
#include <optional>

#include "host/import/gltfmodel.h"
#include "host/import/picturelist.h"

namespace host {

namespace {

using nlohmann::json;

const json* Member(const json* from, const char* name) {
  if (!from || !from->is_object()) return nullptr;
  const auto found = from->find(name);
  return found == from->end() ? nullptr : &*found;
}

const json* Entry(const json& root, const char* list, std::optional<size_t> index) {
  const json* entries = Member(&root, list);
  return entries && entries->is_array() && index && *index < entries->size() ? &(*entries)[*index]
                                                                             : nullptr;
}

std::optional<size_t> Index(const json* from, const char* name) {
  const json* value = Member(from, name);
  if (!value || !value->is_number_unsigned()) return std::nullopt;
  return size_t(*value);
}

std::string Text(const json* from, const char* name) {
  const json* value = Member(from, name);
  return value && value->is_string() ? value->get<std::string>() : std::string();
}

std::vector<std::byte> BytesOfView(const tinygltf::Model& model, size_t index) {
  if (index >= model.bufferViews.size()) return {};
  const tinygltf::BufferView& view = model.bufferViews[index];
  if (view.buffer < 0 || size_t(view.buffer) >= model.buffers.size()) return {};
  const auto& data = model.buffers[size_t(view.buffer)].data;
  if (view.byteOffset > data.size() || view.byteLength > data.size() - view.byteOffset) return {};
  const auto* first = reinterpret_cast<const std::byte*>(data.data()) + view.byteOffset;
  return {first, first + view.byteLength};
}

int PictureOf(const json& root, const tinygltf::Model& model, size_t image, PictureList& pictures) {
  const json* entry = Entry(root, "images", image);
  const std::string uri = Text(entry, "uri"), name = Text(entry, "name");
  const std::string number = "images[" + std::to_string(image) + "]";
  // The name leads the number, so that two images of one name are not taken for one.
  const std::string label = name.empty() ? number : name + ", " + number;
  if (uri.rfind("data:", 0) == 0) {
    std::vector<std::byte> bytes;
    try {
      const std::vector<unsigned char> data = FetchGltfUri(uri, "", number);
      const auto* first = reinterpret_cast<const std::byte*>(data.data());
      bytes.assign(first, first + data.size());
    } catch (const ImportFault&) {
      bytes.clear();  // told of as a picture that can't be read
    }
    return pictures.FromBytes(label, std::move(bytes));
  }
  if (!uri.empty()) return pictures.FromFile(DecodePercent(uri));
  const std::optional<size_t> view = Index(entry, "bufferView");
  return pictures.FromBytes(label, view ? BytesOfView(model, *view) : std::vector<std::byte>());
}

}  // namespace

GltfPictures ReadGltfPictures(const json& root, const tinygltf::Model& model,
                              const std::string& folder) {
  ImportPlan plan;
  ModelFolder files(folder);
  PictureList pictures(files, plan);
  GltfPictures found;
  for (size_t i = 0; i < model.materials.size(); ++i) {
    const json* shader = Member(Entry(root, "materials", i), "pbrMetallicRoughness");
    const json* use = Member(shader, "baseColorTexture");
    found.imageOf.push_back(-1);
    if (!use) continue;
    const std::optional<size_t> source =
        Index(Entry(root, "textures", Index(use, "index")), "source");
    const std::string who =
        "material \"" + model.materials[i].name + "\": its base colour texture ";
    if (Index(use, "texCoord").value_or(0) != 0) {
      plan.warnings.push_back(who + "is not on the first texture coordinates; it is not shown");
    } else if (!source) {
      plan.warnings.push_back(who + "names no picture that is there");
    } else {
      found.imageOf.back() = PictureOf(root, model, *source, pictures);
    }
  }
  found.images = std::move(plan.images);
  found.warnings = std::move(plan.warnings);
  return found;
}

}  // namespace host
