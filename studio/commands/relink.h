#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace studio {

/// `relink` and `collect`: where a scene finds the files that it names. The scene is saved in its
/// place unless nothing changes or only a dry run is asked for.
class PathCommands {
 public:
  /// Adds the commands to the program's; this must live while arguments are read.
  explicit PathCommands(CLI::App& app);
  PathCommands(const PathCommands&) = delete;
  PathCommands& operator=(const PathCommands&) = delete;

  bool Parsed() const;
  /// Returns the exit status: 0 done, 1 if a file couldn't be found or nothing was done.
  int Run(std::ostream& out, std::ostream& err) const;

 private:
  CLI::App *relink_, *collect_;
  std::string scene_, from_, to_;
  bool json_ = false, dryRun_ = false;
};

}  // namespace studio
