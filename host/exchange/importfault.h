#pragma once

#include "host/core/errors.h"

namespace host {

/// Ends the reading of a model; its text is one line. Caught where the import was asked for.
class ImportFault : public Error {
 public:
  using Error::Error;
};

}  // namespace host
