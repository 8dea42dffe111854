#pragma once

#include <exception>
#include <iosfwd>
#include <string>

#include "studio/commands/progressline.h"
#include "studio/steps/steps.h"

namespace studio {

/// What ends a command, with its exit status.
struct Failure : host::Error {
  Failure(int exitStatus, const std::string& text) : Error(text), status(exitStatus) {}
  int status;
};

/// Tells what ended a command, and gives its exit status.
int TellFailure(const std::string& command, const std::exception& e, std::ostream& err);

/// Does single steps as a job would, on one stage. Paths start from the working folder.
class CommandSteps {
 public:
  explicit CommandSteps(std::ostream& err) : stage_("", err), err_(err) {}
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
  Interruptible interruptible_;
  Stage stage_;
  std::ostream& err_;
};

}  // namespace studio
