#pragma once

#include <iosfwd>
#include <string>

#include "studio/steps/steps.h"

namespace studio {

/// What ends a command, with its exit status.
struct Failure {
  int status;
  std::string text;
};

/// Does single steps as a job would, on one stage. Paths start from the working folder.
class CommandSteps {
 public:
  explicit CommandSteps(std::ostream& err) : stage_("", err) {}
  Stage& GetStage() { return stage_; }

  /// The call points into the step.
  static Call Check(const Value& step);
  Outcome Do(const Value& step);
  /// Whether nothing was lost, which can be only where a damaged file is recovered, and no setting
  /// had to be mended.
  bool OpenScene(const std::string& file, bool recover);
  /// Makes an object the edited one: the named one, or the only one.
  void Choose(const std::string& object);

 private:
  Stage stage_;
};

}  // namespace studio
