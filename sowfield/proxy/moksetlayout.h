#pragma once

#include <bit>
#include <cstdint>
#include <string_view>

namespace sowfield {

/// What sets a generation of the Mokset file apart. All values are little-endian. In this order:
///
///   magic, version     15 bytes, none in generation 1
///   box                6 floats, upper corner first
///   unit               int, generation 3
///   vertices           int, then 3 floats each
///   texture vertices   int, then 3 floats each
///   M                  int, not in generation 1
///   samples            int, times M, then indices times M
///   reserved, filler   3 ints and 260 bytes, not in generation 1
///   faces              count times M, then records
///   texture faces      3 indices a face, if there are texture vertices
///
/// A face record holds three vertex indices times M, whether its edges a, b and c are seen, and as
/// ints the smoothing mask times M and the material id times M. The generations before 3 hold all
/// indices of faces and texture faces, and the edges, as floats.
struct MoksetLayout {
  std::uint32_t box;  // its offset
  bool hasUnit, hasMultiplier;
  std::uint32_t sampleBytes;  // of one entry
  std::uint32_t gapBytes;     // reserved words and filler
  std::uint32_t countBytes;   // of the number of faces
  std::uint32_t faceBytes;    // of one record
};

inline constexpr std::uint32_t kReservedBytes = 12, kFillerBytes = 260;

inline constexpr MoksetLayout kMoksetLayouts[3] = {
    {0, false, false, 4, 0, 4, 32},
    {15, false, true, 4, kReservedBytes + kFillerBytes, 4, 32},
    {15, true, true, 8, kReservedBytes + kFillerBytes, 8, 44},
};

inline constexpr std::string_view kMoksetMagic = "Vorn_MoksetV";
inline constexpr std::string_view kMoksetVersion = "0.6";  // of what is written
inline constexpr std::uint32_t kMoksetPointBytes = 12, kMoksetTexFaceBytes = 12;
inline constexpr int kMostMultiplier = 100;  // of what is written
inline constexpr int kMoksetUnits = 7;       // inches to kilometres, from 0

// Numbers are copied as they stand.
static_assert(std::endian::native == std::endian::little);

}  // namespace sowfield
