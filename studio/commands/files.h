#pragma once

#include <iosfwd>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace studio {

/// Checks an option's text: why it can't be taken if it is empty, else nothing.
std::string WhyEmpty(const std::string& text);

/// The commands about scene files: `info`, `check`, `stats`, `params`, `placements`, `view`,
/// `import` and `recover`. What was asked for goes to `out`; what went wrong goes to `err`, one
/// line that begins with the command's name.
class FileCommands {
 public:
  /// Adds the commands to the program's; this must live while arguments are read.
  explicit FileCommands(CLI::App& app);
  ~FileCommands();
  FileCommands(const FileCommands&) = delete;
  FileCommands& operator=(const FileCommands&) = delete;

  bool Parsed() const;
  /// Returns the exit status: 0 done, 1 failed, 2 wrong usage.
  int Run(std::ostream& out, std::ostream& err) const;

 private:
  struct Commands;
  std::unique_ptr<Commands> commands_;
};

}  // namespace studio
