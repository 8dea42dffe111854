#pragma once

#include <iosfwd>

namespace studio {

/// The command line. Returns the exit status: 0 done, 1 failed, 2 wrong usage.
int RunCommandLine(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace studio
