#pragma once

#include <stdexcept>

namespace host {

/// Ends the reading of a model; its text is one line. Caught where the import was asked for.
class ImportFault : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace host
