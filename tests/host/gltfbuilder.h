#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

inline std::string Raw(const auto& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(values[0])};
}

/// A glTF under construction; each list of numbers becomes a view and an accessor of its own.
struct Gltf {
  nlohmann::json root = {
      {"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", {0}}}}}};
  std::string data;

  int Add(const std::string& bytes, int componentType, const char* type, size_t count) {
    const size_t at = (data.size() + 3) / 4 * 4;
    data.resize(at);
    data += bytes;
    root["bufferViews"].push_back(
        {{"buffer", 0}, {"byteOffset", at}, {"byteLength", bytes.size()}});
    root["accessors"].push_back({{"bufferView", root["bufferViews"].size() - 1},
                                 {"componentType", componentType},
                                 {"type", type},
                                 {"count", count}});
    return int(root["accessors"].size()) - 1;
  }
  int Floats(const std::vector<float>& v, const char* type, size_t components) {
    return Add(Raw(v), 5126, type, v.size() / components);
  }
  std::string Glb() {
    root["buffers"] = {{{"byteLength", data.size()}}};
    std::string text = root.dump(), binary = data;
    text.resize((text.size() + 3) / 4 * 4, ' ');
    binary.resize((binary.size() + 3) / 4 * 4);
    const auto word = [](size_t n) { return Raw(std::vector<std::uint32_t>{std::uint32_t(n)}); };
    return "glTF" + word(2) + word(28 + text.size() + binary.size()) + word(text.size()) + "JSON" +
           text + word(binary.size()) + std::string("BIN\0", 4) + binary;
  }
};
