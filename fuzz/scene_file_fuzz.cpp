// Opens any bytes as a scene. What opens must save, and open and save again to the same bytes. The
// text's checksum, and those of records, are set right first, so that what lies behind is reached.
// Then what can be read of the bytes is recovered, which finds no damage where there is none, and
// its objects are sound.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "host/gltf/glb.h"
#include "host/host.h"
#include "host/scenefile/scenefile.h"
#include "host/scenefile/scenerecords.h"
#include "sowfield/plugin/entry.h"

namespace {

constexpr std::string_view kMark = "\"jsonCrc\":\"";

std::vector<std::byte> WithChecksum(const std::uint8_t* data, std::size_t size) {
  std::string bytes(reinterpret_cast<const char*>(data), size);
  std::uint32_t length = 0;
  if (size >= 20) std::memcpy(&length, &bytes[12], 4);
  const std::size_t mark = bytes.find(kMark);
  if (length <= size - std::min<std::size_t>(size, 20) && mark != std::string::npos &&
      mark + kMark.size() + 8 <= 20 + std::size_t(length)) {
    bytes.replace(mark + kMark.size(), 8, "00000000");
    const auto text = std::as_bytes(std::span(bytes)).subspan(20, length);
    bytes.replace(mark + kMark.size(), 8, host::CrcText(host::Crc32c(text)));
  }
  for (std::size_t at = 0; (at = bytes.find(host::kRecordMark, at)) != std::string::npos; ++at) {
    host::RecordHead head;
    if (bytes.size() - at < sizeof head) break;
    std::memcpy(&head, &bytes[at], sizeof head);
    const auto rest = std::as_bytes(std::span(bytes)).subspan(at + sizeof head);
    if (head.packed > rest.size()) continue;
    head.crc = host::RecordCrc(head, rest.first(head.packed));
    std::memcpy(&bytes[at], &head, sizeof head);
  }
  const auto all = std::as_bytes(std::span(bytes));
  return {all.begin(), all.end()};
}

std::vector<std::byte> Save(host::Host& host) {
  std::vector<std::byte> bytes;
  std::string error;
  if (!host::SaveSceneBytes(host.Services(), "/scene.glb", bytes, error)) std::abort();
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  host::Host host;
  std::string error;
  if (!host.Classes().AddPlugin(sowfield::Entries(), error)) std::abort();
  std::vector<std::string> lost;
  const auto open = [&](const std::vector<std::byte>& bytes, bool recover) {
    error.clear();
    const bool opened =
        host::OpenSceneBytes(host.Services(), bytes, "it", {recover ? &lost : nullptr}, error);
    if (opened != error.empty()) std::abort();
    return opened;
  };
  const std::vector<std::byte> bytes = WithChecksum(data, size);
  const bool sound = open(bytes, false);
  std::vector<std::byte> saved;
  if (sound) {
    saved = Save(host);
    if (!open(saved, false) || Save(host) != saved) std::abort();
  }
  if (!open(bytes, true)) {
    if (sound) std::abort();
    return 0;
  }
  for (const std::string& line : lost)
    if (line.find(host::kBeyondRepair) != std::string::npos) std::abort();
  const std::vector<std::byte> recovered = Save(host);
  if (sound != lost.empty() || (sound && recovered != saved)) std::abort();
  if (!open(recovered, false) || Save(host) != recovered) std::abort();
  return 0;
}
