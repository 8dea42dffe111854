#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace studio {

/// `sowfield mokset`: tells what Mokset files hold, checks them, and turns them into models and
/// models into them. What was asked for goes to `out`, one JSON document with --json; what went
/// wrong goes to `err`, a line each that names the file, the byte and the reason.
class MoksetCommand {
 public:
  /// Adds the command to the program's; this must live while arguments are read.
  explicit MoksetCommand(CLI::App& app);
  MoksetCommand(const MoksetCommand&) = delete;
  MoksetCommand& operator=(const MoksetCommand&) = delete;

  bool Parsed() const;
  /// Returns the exit status: 0 done, 1 failed, 2 wrong usage.
  int Run(std::ostream& out, std::ostream& err) const;

 private:
  CLI::App *command_, *info_, *verify_, *export_, *import_;
  std::string file_, target_, node_;
  std::vector<std::string> files_;
  bool json_ = false, join_ = false, force_ = false;
};

}  // namespace studio
