// Reads any bytes as a job. Either it is a job, or its faults say where and why in one line each.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "studio/job/job.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<studio::Fault> faults;
  const auto job =
      studio::ReadJob(std::string_view(reinterpret_cast<const char*>(data), size), faults);
  if (job.has_value() != faults.empty()) std::abort();
  for (const studio::Fault& f : faults)
    if (f.text.empty() || f.place.line < 1) std::abort();
  return 0;
}
