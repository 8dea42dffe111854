#include "sowfield/resources/strings.h"

#include <iterator>

namespace sowfield {
namespace {

constexpr host::LibraryString kStrings[] = {{kStringName, L"Sowfield"},
                                            {kStringCategory, L"Vorn Software"},
                                            {kStringClassName, L"Sowfield"},
                                            {kStringObjectName, L"Sowfield"},
                                            {kStringAddGeo, L"Add Geo"},
                                            {kStringDisplayModes + 0, L"None"},
                                            {kStringDisplayModes + 1, L"Dot"},
                                            {kStringDisplayModes + 2, L"Bounding Box"},
                                            {kStringDisplayModes + 3, L"Point Cloud"},
                                            {kStringDisplayModes + 4, L"Pyramid"},
                                            {kStringDisplayModes + 5, L"Squirrel"},
                                            {kStringDisplayModes + 6, L"Original"}};

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
