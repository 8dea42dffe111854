#pragma once

#include <iosfwd>
#include <string>

namespace studio {

struct RunOptions {
  bool json = false;      // one JSON document on standard output
  bool quiet = false;     // no lines about steps that went well
  bool force = false;     // Mokset files make way for those that steps write
  bool progress = false;  // a running line on the error stream, for terminals
};

/// Reads and runs a job file. What was asked for goes to `out`, what went wrong to `err` as
/// `file:line:column: text`. Returns the exit status: 0 done, 1 failed. A job with a fault in any
/// step does nothing; a step that fails ends the job.
int RunJob(const std::string& file, const RunOptions& options, std::ostream& out,
           std::ostream& err);

}  // namespace studio
