#pragma once

#include <cstring>
#include <string>

#include "host/gltf/glb.h"
#include "host/scenefile/scenerecords.h"
#include "host/scenefile/scenevalues.h"

inline std::string Raw(const auto& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(values[0])};
}

/// A scene's text with its checksum set right.
inline std::string Sealed(std::string text) {
  const size_t at = text.find(host::kCrcMark) + host::kCrcMark.size();
  text.replace(at, 8, "00000000");
  return text.replace(at, 8, host::CrcText(host::Crc32c(std::as_bytes(std::span(text)))));
}

/// The text of a .glb, with its padding.
inline std::string GlbText(const std::string& glb) {
  std::uint32_t size;
  std::memcpy(&size, &glb[12], 4);
  return glb.substr(20, size);
}

/// A file as it was before there were records: none can be found.
inline std::string WithoutRecords(std::string file) {
  for (size_t at; (at = file.find(host::kRecordMark)) != std::string::npos;) file[at] = 's';
  return file;
}

/// A .glb of a text and the chunks behind it.
inline std::string GlbOf(std::string text, const std::string& chunks) {
  text.resize((text.size() + 3) / 4 * 4, ' ');
  const std::uint32_t sizes[] = {2, std::uint32_t(20 + text.size() + chunks.size()),
                                 std::uint32_t(text.size())};
  return "glTF" + std::string(reinterpret_cast<const char*>(sizes), 12) + "JSON" + text + chunks;
}
