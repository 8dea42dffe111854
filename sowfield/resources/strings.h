#pragma once

#include "host/core/classdesc.h"

namespace sowfield {

// Ids of the library's string table.
inline constexpr unsigned kStringName = 1;
inline constexpr unsigned kStringCategory = 2;
inline constexpr unsigned kStringClassName = 3;
inline constexpr unsigned kStringObjectName = 8;
inline constexpr unsigned kStringAddGeo = 15;        // title and button of adding by name
inline constexpr unsigned kStringDisplayModes = 19;  // seven of them

/// The library's handle.
HINSTANCE Instance();
/// A text of the string table, in one static buffer: two results are never valid at the same time.
/// Null for an id without a text.
const wchar_t* GetString(unsigned id);

}  // namespace sowfield
