#pragma once

#include "host/core/classdesc.h"

// The library's six entry points: what a host that loads it finds, and what a program that holds
// the code registers it through.
extern "C" {
const wchar_t* LibDescription();
int LibNumberClasses();
ClassDesc2* LibClassDesc(int i);
std::uint32_t LibVersion();
int LibInitialize();
int LibShutdown();
}

namespace sowfield {

inline PluginEntries Entries() {
  return {&LibDescription, &LibNumberClasses, &LibClassDesc,
          &LibVersion,     &LibInitialize,    &LibShutdown};
}

/// The library's handle.
HINSTANCE Instance();
/// A text of the library's string table, in one static buffer: two results are never valid at the
/// same time. Null for an id without a text.
const wchar_t* GetString(unsigned id);

inline constexpr unsigned kStringName = 1;
inline constexpr unsigned kStringCategory = 2;
inline constexpr unsigned kStringClassName = 3;
inline constexpr unsigned kStringObjectName = 8;
inline constexpr unsigned kStringAddGeo = 15;        // title and button of adding by name
inline constexpr unsigned kStringDisplayModes = 19;  // seven of them

}  // namespace sowfield
