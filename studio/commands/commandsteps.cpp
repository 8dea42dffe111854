#include "studio/commands/commandsteps.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

namespace studio {

int TellFailure(const std::string& command, const std::exception& e, std::ostream& err) {
  err << command << ": " << host::TextOf(e) << '\n';
  if (const auto* f = dynamic_cast<const Failure*>(&e)) return f->status;
  return dynamic_cast<const host::Cancelled*>(&e) ? kInterrupted : 1;
}

Call CommandSteps::Check(const Value& step) {
  std::vector<Fault> faults;
  const std::optional<Call> call = CallOf(step, faults);
  if (!call) throw Failure{2, faults.front().text};
  return *call;
}

Outcome CommandSteps::Do(const Value& step) {
  const Call call = Check(step);
  Outcome outcome;
  ProgressLine line(ProgressLine::allowed, err_, call.decl->name);
  const host::ProgressScope told(line);
  try {
    DoStep(stage_, call, outcome);
  } catch (const StepFailure& f) {
    throw Failure{1, f.what()};
  }
  return outcome;
}

bool CommandSteps::OpenScene(const std::string& file, bool recover) {
  if (const std::string why = WhyNoScene(file); !why.empty()) throw Failure{1, why};
  const Outcome opened =
      Do(StepOf("open").With("file", Value::Text(file)).With("recover", Value::Flag(recover)));
  return std::all_of(opened.fields.begin(), opened.fields.end(), [](const auto& field) {
    return field.first != "settled" && (field.first != "losses" || field.second == "0");
  });
}

void CommandSteps::Choose(const std::string& object) {
  const size_t count = stage_.SowfieldNodes().size();
  if (!object.empty()) {
    Do(StepOf("select").With("object", Value::Text(object)));
  } else if (count != 1) {
    throw Failure{count == 0 ? 1 : 2,
                  count == 0 ? "the scene holds no Sowfield object"
                             : fmt::format("the scene holds {} Sowfield objects: name one with "
                                           "--object",
                                           count)};
  }
}

}  // namespace studio
