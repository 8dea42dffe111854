// Imports any bytes as an OBJ.
#include "fuzz/import_check.h"

// The library that reads the text leaves its half-made mesh behind when it gives up.
extern "C" const char* __lsan_default_suppressions() { return "leak:libassimp\n"; }

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return CheckImport(data, size, host::ImportObjBytes);
}
