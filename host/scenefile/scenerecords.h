#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <span>
#include <string>
#include <string_view>

#include "host/gltf/glb.h"

namespace host {

/// What the bytes of a scene tell of themselves, so that it comes back where its text is damaged:
/// records, each with some of the nodes and things as the text describes them, and with the places
/// of their tables. They lie behind all else, in any number, and nothing in the text names them.
///
/// | mark    | what is new |
/// |---------|-------------|
/// | SOWREC1 | the first   |
inline constexpr std::string_view kRecordMark = "SOWREC1\n";

/// Stands before each record's text. Numbers are little-endian.
struct RecordHead {
  char mark[8];
  std::uint32_t crc;           // CRC-32C of this head, with 0 here, and of what follows it
  std::uint32_t tag;           // CRC-32C of all texts: the same for all records of a file
  std::uint32_t index, count;  // of the file's records
  std::uint32_t nodes;         // in the scene
  std::uint32_t size,
      packed;  // bytes of the text, and as it stands there; equal if it isn't packed
  std::uint32_t none;
  std::uint64_t offset;  // of the head, in the bytes of the file
};
static_assert(sizeof(RecordHead) == 48);

/// The checksum that a record should have.
std::uint32_t RecordCrc(RecordHead head, std::span<const std::byte> packed);

/// Adds the records of a scene, whose tables are among the parts, behind them.
void AddRecords(const nlohmann::json& scene, BinaryParts& parts);

/// A scene as records describe it.
struct RecordedScene {
  /// To be read as a text is, with places counted from the source's beginning; null if there is no
  /// record.
  std::shared_ptr<nlohmann::json> root;
  std::string lack;  // which records are missing, and what stands for their nodes
};

/// Whether there is any record that is whole.
bool HasRecords(const ByteSource& source);
/// Looks through all of a source. Where records are missing, nodes are made up in place of those
/// that they told of, so that what refers to them stays.
RecordedScene FindRecords(const ByteSource& source);

}  // namespace host
