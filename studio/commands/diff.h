#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace studio {

/// `sowfield diff`: what differs between two scene files. The answer goes to `out`, as lines or as
/// one JSON document; what went wrong goes to `err`.
class DiffCommand {
 public:
  /// Adds the command to the program's; this must live while arguments are read.
  explicit DiffCommand(CLI::App& app);
  DiffCommand(const DiffCommand&) = delete;
  DiffCommand& operator=(const DiffCommand&) = delete;

  bool Parsed() const;
  /// Returns the exit status: 0 nothing differs, 1 something does, 2 they couldn't be compared.
  int Run(std::ostream& out, std::ostream& err) const;

 private:
  CLI::App* command_;
  std::string a_, b_, object_;
  bool json_ = false;
};

}  // namespace studio
