#pragma once

#include <compare>
#include <cstdint>

using SClass_ID = std::uint32_t;

inline constexpr SClass_ID BASENODE_CLASS_ID = 1;
inline constexpr SClass_ID GEN_DERIVOB_CLASS_ID = 2;
inline constexpr SClass_ID GEOMOBJECT_CLASS_ID = 16;
inline constexpr SClass_ID CAMERA_CLASS_ID = 32;
inline constexpr SClass_ID LIGHT_CLASS_ID = 48;
inline constexpr SClass_ID SHAPE_CLASS_ID = 64;
inline constexpr SClass_ID HELPER_CLASS_ID = 80;
inline constexpr SClass_ID PAINT_SYSTEM_CLASS_ID = 0x200;
inline constexpr SClass_ID MATERIAL_CLASS_ID = 0xC00;
inline constexpr SClass_ID TEXMAP_CLASS_ID = 0xC10;
inline constexpr SClass_ID RENDERER_CLASS_ID = 0xF00;
inline constexpr SClass_ID PARAMETER_BLOCK2_CLASS_ID = 0x82;
inline constexpr SClass_ID LAYER_CLASS_ID = 0x1010;

/// Two 32-bit words, compared exactly.
struct Class_ID {
  std::uint32_t a = 0, b = 0;
  constexpr Class_ID() = default;
  constexpr Class_ID(std::uint32_t first, std::uint32_t second) : a(first), b(second) {}
  constexpr auto operator<=>(const Class_ID&) const = default;
};

struct Interface_ID {
  std::uint32_t a = 0, b = 0;
  constexpr Interface_ID() = default;
  constexpr Interface_ID(std::uint32_t first, std::uint32_t second) : a(first), b(second) {}
  constexpr auto operator<=>(const Interface_ID&) const = default;
};

/// Names a loaded library. Opaque: the library hands out an address of its own.
using HINSTANCE = const void*;
