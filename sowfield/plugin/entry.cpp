#include "sowfield/plugin/entry.h"

#include <iterator>

#include "sowfield/plugin/classdesc.h"

#define SOWFIELD_EXPORT __attribute__((visibility("default")))

namespace sowfield {
namespace {

constexpr host::LibraryString kStrings[] = {
    {1, L"Sowfield"},     {2, L"Vorn Software"}, {3, L"Sowfield"},  {8, L"Sowfield"},
    {15, L"Add Geo"},     {19, L"None"},         {20, L"Dot"},      {21, L"Bounding Box"},
    {22, L"Point Cloud"}, {23, L"Pyramid"},      {24, L"Squirrel"}, {25, L"Original"}};

// Its address is the library's handle; its life is that of the string table.
struct Library {
  Library() { host::RegisterStrings(this, kStrings, std::size(kStrings)); }
  ~Library() { host::UnRegisterStrings(this); }
  char unused = 0;
};
const Library library;

}  // namespace

HINSTANCE Instance() { return &library; }

const wchar_t* GetString(unsigned id) {
  static wchar_t buffer[256];
  return LoadStringW(Instance(), id, buffer, 256) > 0 ? buffer : nullptr;
}

}  // namespace sowfield

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
