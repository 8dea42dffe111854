// Decodes any bytes as the plan that the reader of models hands over. What is taken is written
// again as it came.
#include <algorithm>
#include <cstdint>
#include <cstdlib>

#include "host/exchange/planstream.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::as_bytes(std::span(data, size));
  try {
    const host::ImportPlan plan = host::DecodePlan(bytes);
    const std::vector<std::byte> again = host::EncodePlan(plan);
    if (!std::equal(again.begin(), again.end(), bytes.begin(), bytes.end())) std::abort();
  } catch (const host::ImportFault&) {
    return 0;
  }
  return 0;
}
