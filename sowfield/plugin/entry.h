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

}  // namespace sowfield
