#include "sowfield/plugin/entry.h"

#include "sowfield/plugin/classdesc.h"
#include "sowfield/resources/strings.h"

#define SOWFIELD_EXPORT __attribute__((visibility("default")))

SOWFIELD_EXPORT const wchar_t* LibDescription() {
  return sowfield::GetString(sowfield::kStringName);
}

SOWFIELD_EXPORT int LibNumberClasses() { return 1; }

SOWFIELD_EXPORT ClassDesc2* LibClassDesc(int i) {
  return i == 0 ? sowfield::GetSowfieldDesc() : nullptr;
}

// Release 20000, API number 50, revision 0.
SOWFIELD_EXPORT std::uint32_t LibVersion() { return 0x4E203200; }

SOWFIELD_EXPORT int LibInitialize() { return 1; }

SOWFIELD_EXPORT int LibShutdown() { return 1; }
