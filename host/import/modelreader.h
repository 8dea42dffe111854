#pragma once

#include <cstddef>
#include <string>

#include "host/exchange/importplan.h"

namespace host {

/// What a model may take of the machine.
struct ReaderLimits {
  size_t bytes = size_t(4) << 30;  // of address space
  double seconds = 60;
};

/// Whether ReadModel knows files with this extension ("." first, lower case).
bool IsModelExtension(const std::string& extension);

/// Reads a model file in this process. Throws ImportFault or bad_alloc.
ImportPlan ReadModel(const std::string& path);

/// The same in a child process, the program sowfield_reader, so that a broken or hostile file can
/// neither bring this process down nor fill the machine. Throws ImportFault with the child's own
/// text or with what ended it: the limits, a signal. The child is gone on return.
///
/// In a build with sanitizers, which map address space without end, the limit of bytes holds for
/// the memory in use and is only roughly kept.
ImportPlan ReadModelApart(const std::string& path, const ReaderLimits& limits);

/// The child's side: the main function of sowfield_reader.
int RunModelReader(int argc, char** argv);

}  // namespace host
