#include "host/gltf/glb.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace host {

static_assert(std::endian::native == std::endian::little, "files hold numbers as memory does");

namespace {

constexpr std::uint32_t kMagic = 0x46546C67, kVersion = 2;  // "glTF"
constexpr std::uint32_t kJsonChunk = 0x4E4F534A, kBinChunk = 0x004E4942;
constexpr size_t kHeader = 12, kChunkHeader = 8;

constexpr size_t Padded(size_t n) { return (n + 3) & ~size_t(3); }

// Eight tables, so that eight bytes are taken at once. Kounavis and Berry, "A systematic approach
// to building high performance, software-based, CRC generators", 2005.
using Tables = std::array<std::array<std::uint32_t, 256>, 8>;

constexpr Tables MakeTables() {
  Tables t{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = c & 1 ? 0x82F63B78u ^ c >> 1 : c >> 1;
    t[0][i] = c;
  }
  for (size_t k = 1; k < 8; ++k)
    for (size_t i = 0; i < 256; ++i) t[k][i] = t[0][t[k - 1][i] & 255] ^ t[k - 1][i] >> 8;
  return t;
}

std::span<const std::byte> BytesOf(const std::uint32_t* words, size_t count) {
  return std::as_bytes(std::span(words, count));
}

std::string Hex(std::uint32_t value) {
  char text[11];
  std::snprintf(text, sizeof text, "0x%08x", value);
  return text;
}

bool WritePadded(const ByteSink& sink, std::span<const std::byte> bytes, char filler) {
  const std::array<char, 4> fill = {filler, filler, filler, filler};
  const size_t missing = Padded(bytes.size()) - bytes.size();
  return (bytes.empty() || sink(bytes)) &&
         (missing == 0 || sink(std::as_bytes(std::span(fill)).first(missing)));
}

}  // namespace

#ifdef __x86_64__
namespace {

__attribute__((target("sse4.2"))) std::uint32_t Crc32cFast(std::span<const std::byte> bytes,
                                                           std::uint32_t before) {
  std::uint64_t crc = ~before;
  const std::byte* p = bytes.data();
  size_t n = bytes.size();
  for (; n >= 8; n -= 8, p += 8) {
    std::uint64_t word;
    std::memcpy(&word, p, 8);
    crc = __builtin_ia32_crc32di(crc, word);
  }
  auto low = std::uint32_t(crc);
  for (; n > 0; --n, ++p) low = __builtin_ia32_crc32qi(low, static_cast<unsigned char>(*p));
  return ~low;
}

}  // namespace
#endif

std::uint32_t Crc32c(std::span<const std::byte> bytes, std::uint32_t before) {
#ifdef __x86_64__
  static const bool fast = __builtin_cpu_supports("sse4.2");
  if (fast) return Crc32cFast(bytes, before);
#endif
  return Crc32cPlain(bytes, before);
}

std::uint32_t Crc32cPlain(std::span<const std::byte> bytes, std::uint32_t before) {
  static constexpr Tables t = MakeTables();
  std::uint32_t crc = ~before;
  const std::byte* p = bytes.data();
  size_t n = bytes.size();
  for (; n >= 8; n -= 8, p += 8) {
    std::uint32_t low, high;
    std::memcpy(&low, p, 4);
    std::memcpy(&high, p + 4, 4);
    low ^= crc;
    crc = t[7][low & 255] ^ t[6][low >> 8 & 255] ^ t[5][low >> 16 & 255] ^ t[4][low >> 24] ^
          t[3][high & 255] ^ t[2][high >> 8 & 255] ^ t[1][high >> 16 & 255] ^ t[0][high >> 24];
  }
  for (; n > 0; --n, ++p) crc = t[0][(crc ^ std::uint32_t(*p)) & 255] ^ crc >> 8;
  return ~crc;
}

std::string CrcText(std::uint32_t crc) { return Hex(crc).substr(2); }

size_t BinaryParts::Add(Part part) {
  part.offset = size_;
  size_ += Padded(part.size);
  parts_.push_back(std::move(part));
  return parts_.size() - 1;
}

size_t BinaryParts::Borrow(std::span<const std::byte> bytes, int target) {
  Part part;
  part.size = bytes.size();
  part.target = target;
  part.borrowed = bytes;
  return Add(std::move(part));
}

size_t BinaryParts::Own(std::vector<std::byte> bytes, int target) {
  Part part;
  part.size = bytes.size();
  part.target = target;
  part.owned = std::move(bytes);
  return Add(std::move(part));
}

void BinaryParts::OwnUnseen(std::vector<std::byte> bytes) {
  parts_[Own(std::move(bytes))].unseen = true;
}

size_t BinaryParts::Make(size_t size, std::function<bool(const ByteSink&)> made, int target,
                         int stride) {
  Part part;
  part.size = size;
  part.target = target;
  part.stride = stride;
  part.made = std::move(made);
  return Add(std::move(part));
}

size_t GlbSize(const std::string& json, const BinaryParts& parts) {
  return kHeader + kChunkHeader + Padded(json.size()) +
         (parts.Size() > 0 ? kChunkHeader + parts.Size() : 0);
}

bool WriteParts(const BinaryParts& parts, const ByteSink& sink) {
  for (const BinaryParts::Part& part : parts.All()) {
    if (!part.made) {
      if (!WritePadded(sink, part.owned.empty() ? part.borrowed : part.owned, '\0')) return false;
      continue;
    }
    size_t given = 0;
    const auto counting = [&](std::span<const std::byte> bytes) {
      given += bytes.size();
      return given <= part.size && sink(bytes);
    };
    const std::array<std::byte, 3> zeros{};
    const size_t missing = Padded(part.size) - part.size;
    if (!part.made(counting) || given != part.size ||
        (missing > 0 && !sink(std::span(zeros).first(missing))))
      return false;
  }
  return true;
}

bool WriteGlb(const std::string& json, const BinaryParts& parts, const ByteSink& sink) {
  const std::uint32_t head[5] = {kMagic, kVersion, std::uint32_t(GlbSize(json, parts)),
                                 std::uint32_t(Padded(json.size())), kJsonChunk};
  if (!sink(BytesOf(head, 5)) || !WritePadded(sink, std::as_bytes(std::span(json)), ' '))
    return false;
  if (parts.Size() == 0) return true;
  const std::uint32_t chunk[2] = {std::uint32_t(parts.Size()), kBinChunk};
  return sink(BytesOf(chunk, 2)) && WriteParts(parts, sink);
}

bool ReadGlb(const ByteSource& source, GlbContent& content, std::string& why) {
  const size_t size = source.Size();
  const auto refuse = [&](const std::string& text) {
    why = text;
    return false;
  };
  const auto read = [&](size_t offset, std::uint32_t* words, size_t count) {
    return source.Read(offset, std::as_writable_bytes(std::span(words, count)));
  };
  std::uint32_t head[5] = {};
  if (size < sizeof head)
    return refuse("it has " + std::to_string(size) + " bytes, too few for a scene");
  if (!read(0, head, 5)) return refuse(std::strerror(errno));
  if (head[0] != kMagic)
    return refuse("it begins with " + Hex(head[0]) + ", expected " + Hex(kMagic) + " (\"glTF\")");
  if (head[1] != kVersion)
    return refuse("its container has version " + std::to_string(head[1]) + ", expected 2");
  if (head[2] != size)
    return refuse("it has " + std::to_string(size) + " bytes, expected " + std::to_string(head[2]));
  if (head[4] != kJsonChunk)
    return refuse("its first chunk is " + Hex(head[4]) + ", expected " + Hex(kJsonChunk) +
                  " (\"JSON\")");
  const size_t jsonAt = kHeader + kChunkHeader, jsonSize = head[3];
  if (jsonSize % 4 != 0 || jsonSize > size - jsonAt)
    return refuse("its text has " + std::to_string(jsonSize) + " bytes, expected a multiple of 4 " +
                  "and at most " + std::to_string(size - jsonAt));

  GlbContent found;
  if (const size_t rest = size - jsonAt - jsonSize; rest > 0) {
    std::uint32_t chunk[2] = {};
    if (rest < kChunkHeader)
      return refuse("it ends with " + std::to_string(rest) + " bytes that belong to no chunk");
    if (!read(jsonAt + jsonSize, chunk, 2)) return refuse(std::strerror(errno));
    if (chunk[1] != kBinChunk)
      return refuse("its second chunk is " + Hex(chunk[1]) + ", expected " + Hex(kBinChunk) +
                    " (\"BIN\")");
    if (chunk[0] != rest - kChunkHeader)
      return refuse("its second chunk has " + std::to_string(chunk[0]) + " bytes, expected " +
                    std::to_string(rest - kChunkHeader));
    found.binOffset = jsonAt + jsonSize + kChunkHeader;
    found.binSize = chunk[0];
  }
  found.json.resize(jsonSize);
  if (!source.Read(jsonAt, std::as_writable_bytes(std::span(found.json))))
    return refuse(std::strerror(errno));
  content = std::move(found);
  return true;
}

}  // namespace host
