// Reads one model file under limits, for a host that stays clear of it.
#include "host/import/modelreader.h"

// Asked by sanitizers alone. Their shadows would exceed a limit of address space, so they keep to
// these.
extern "C" const char* __asan_default_options() {
  return "max_allocation_size_mb=4096:hard_rss_limit_mb=4096:detect_leaks=0";
}
extern "C" const char* __tsan_default_options() {
  return "max_allocation_size_mb=4096:hard_rss_limit_mb=4096";
}

int main(int argc, char** argv) { return host::RunModelReader(argc, argv); }
