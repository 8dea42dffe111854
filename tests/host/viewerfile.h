#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

/// A .glb as a viewer reads it.
struct ViewerFile {
  nlohmann::json root;
  std::vector<std::byte> bin;

  explicit ViewerFile(std::span<const std::byte> file) {
    std::uint32_t size;
    std::memcpy(&size, &file[12], 4);
    const auto* text = reinterpret_cast<const char*>(&file[20]);
    root = nlohmann::json::parse(text, text + size);
    bin.assign(file.begin() + std::min<std::ptrdiff_t>(28 + size, std::ssize(file)), file.end());
  }

  /// The mesh's primitives of a node.
  const nlohmann::json& PartsAt(size_t node) const {
    return root["meshes"][root["nodes"][node]["mesh"].get<size_t>()]["primitives"];
  }

  /// Rows of an accessor of floats or, for indices, of 32-bit numbers.
  template <class T>
  std::vector<std::vector<T>> Rows(const nlohmann::json& index) const {
    const nlohmann::json& a = root["accessors"][index.get<size_t>()];
    EXPECT_EQ(a["componentType"], (std::is_same_v<T, float> ? 5126 : 5125));
    const std::string type = a["type"];
    const size_t width = type == "SCALAR" ? 1 : size_t(type.back() - '0'), bytes = width * 4;
    const nlohmann::json& view = root["bufferViews"][a["bufferView"].get<size_t>()];
    const size_t first = a.value("byteOffset", size_t(0)), count = a["count"];
    EXPECT_LE(first + count * bytes, view["byteLength"]);
    EXPECT_EQ(view.value("byteStride", bytes), bytes);
    std::vector<std::vector<T>> rows(count, std::vector<T>(width));
    const std::byte* from = &bin[view["byteOffset"].get<size_t>() + first];
    for (auto& row : rows) std::memcpy(row.data(), from, bytes), from += bytes;
    return rows;
  }
};
