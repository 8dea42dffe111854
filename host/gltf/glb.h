#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/files/file.h"

namespace host {

/// The binary glTF container, version 2: a header of 12 bytes (magic, version, length of the file),
/// a chunk of JSON text padded with spaces, and at most one chunk of bytes padded with zeros. All
/// numbers are little-endian, chunks begin at multiples of 4.

/// CRC-32C (RFC 3720, polynomial 0x82F63B78): any change of up to 32 neighbouring bits shows. The
/// processor's own instruction is used where it has one; the plain form gives the same.
/// `before` is that of the bytes that come before these.
std::uint32_t Crc32c(std::span<const std::byte> bytes, std::uint32_t before = 0);
std::uint32_t Crc32cPlain(std::span<const std::byte> bytes, std::uint32_t before = 0);
/// Eight hexadecimal digits.
std::string CrcText(std::uint32_t crc);

/// Takes bytes in their order; false ends the work.
using ByteSink = std::function<bool(std::span<const std::byte>)>;

/// The pieces of a binary chunk that is still to be written. Each begins at a multiple of 4.
class BinaryParts {
 public:
  struct Part {
    size_t offset = 0, size = 0;
    int target = 0;       // of a buffer view: 34962 vertices, 34963 indices, 0 neither
    int stride = 0;       // of its elements, for vertices alone
    bool unseen = false;  // without a buffer view
    std::span<const std::byte> borrowed;
    std::vector<std::byte> owned;
    /// Hands `size` bytes to the sink when the file is written.
    std::function<bool(const ByteSink&)> made;
  };

  /// Each gives the number of the piece. Borrowed bytes must stay until the file is written.
  size_t Borrow(std::span<const std::byte> bytes, int target = 0);
  size_t Own(std::vector<std::byte> bytes, int target = 0);
  /// A piece that no buffer view tells of. Only others of this kind may follow it.
  void OwnUnseen(std::vector<std::byte> bytes);
  size_t Make(size_t size, std::function<bool(const ByteSink&)> made, int target = 0,
              int stride = 0);

  const std::vector<Part>& All() const { return parts_; }
  /// Of the chunk, a multiple of 4.
  size_t Size() const { return size_; }

 private:
  size_t Add(Part part);
  std::vector<Part> parts_;
  size_t size_ = 0;
};

/// The largest file that the container can say the length of.
inline constexpr size_t kMostGlbBytes = 0xFFFFFFFF;
/// Bytes of the whole file.
size_t GlbSize(const std::string& json, const BinaryParts& parts);
/// The pieces alone, padded. False as soon as the sink or a piece refuses.
bool WriteParts(const BinaryParts& parts, const ByteSink& sink);
/// False as soon as the sink or a piece refuses. The size must not be above kMostGlbBytes.
bool WriteGlb(const std::string& json, const BinaryParts& parts, const ByteSink& sink);

/// What stands in a container: its JSON text, and where its bytes lie.
struct GlbContent {
  std::string json;
  size_t binOffset = 0, binSize = 0;
};

/// Reads header, chunk headers and JSON text. False, with a reason that tells what was found and
/// what was expected, for anything but a whole container: chunks fill the file to the last byte.
bool ReadGlb(const ByteSource& source, GlbContent& content, std::string& why);

}  // namespace host
