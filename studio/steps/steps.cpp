#include "studio/steps/steps.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/core/progress.h"
#include "sowfield/proxy/moksetfile.h"

namespace studio {

StepFunction FunctionOf(std::string_view name) {
  struct Entry {
    std::string_view name;
    StepFunction function;
  };
  static constexpr Entry kFunctions[] = {{"open", Open},
                                         {"merge", Merge},
                                         {"save", Save},
                                         {"primitive", Primitive},
                                         {"spline", Spline},
                                         {"camera", Camera},
                                         {"create", Create},
                                         {"select", Select},
                                         {"add", AddTypes},
                                         {"rows", SelectRows},
                                         {"set", Set},
                                         {"get", Get},
                                         {"colour", TypeColour},
                                         {"seed", Seed},
                                         {"stroke", Stroke},
                                         {"leave", Leave},
                                         {"undo", Undo},
                                         {"redo", Redo},
                                         {"delete", Delete},
                                         {"selection", Selection},
                                         {"time", Time},
                                         {"key", Key},
                                         {"view", Picture},
                                         {"pick", Pick},
                                         {"check", Check},
                                         {"stats", ShowStats},
                                         {"params", DumpParams},
                                         {"placements", DumpPlacements},
                                         {"proxy", Proxy},
                                         {"replace", ReplaceSource},
                                         {"remove", RemoveTypes},
                                         {"convert", ConvertType},
                                         {"load", LoadType},
                                         {"restore", ExportType},
                                         {"update", UpdateTypes}};
  const auto found = std::find_if(std::begin(kFunctions), std::end(kFunctions),
                                  [&](const Entry& e) { return e.name == name; });
  return found == std::end(kFunctions) ? nullptr : found->function;
}

namespace {

struct OutputOf {
  std::string_view step;
  OutputKind kind;
};
constexpr OutputOf kOutputs[] = {{"save", OutputKind::Scene},
                                 {"view", OutputKind::Picture},
                                 {"placements", OutputKind::Placements},
                                 {"params", OutputKind::Params},
                                 {"convert", OutputKind::Mokset}};

// A save is told to put a scene in the place of an older one; nothing lives on pictures and lists.
void CheckOutput(Stage& stage, const Call& call) {
  const Value* file = call.args.Given("file");
  const auto* found = std::find_if(std::begin(kOutputs), std::end(kOutputs),
                                   [&](const OutputOf& o) { return o.step == call.decl->name; });
  if (!file || found == std::end(kOutputs)) return;
  const bool mokset = found->kind == OutputKind::Mokset;
  const Output output{
      mokset ? sowfield::NativePathOf(stage.ResolveToKeep(*file)) : stage.Resolve(file->text),
      found->kind, !mokset || stage.force || call.args.Flag("replace")};
  const std::string why =
      WhyNotWritten(output, stage.Sources(), "\"replace\": true, or the job run with --force,");
  if (!why.empty()) throw StepFailure{file->place, why};
}

void TellMissing(Stage& stage, Outcome& out) {
  const std::vector<std::string> missing = stage.WarnOfMissing();
  if (missing.empty()) return;
  out.Add("missing", JsonOut().Texts(missing).Str());
  out.text += fmt::format("; {} missing", Counted(missing.size(), "Mokset file"));
}

}  // namespace

void DoStep(Stage& stage, const Call& call, Outcome& out) {
  host::TheProgress().At(0);
  CheckOutput(stage, call);
  FunctionOf(call.decl->name)(stage, call, out);
  if (!stage.tellsMissing) return;
  constexpr std::string_view kTelling[] = {"open", "merge", "view", "save"};
  if (std::count(std::begin(kTelling), std::end(kTelling), call.decl->name) > 0)
    TellMissing(stage, out);
}

void HandOut(Stage& stage, const Call& call, const char* name, const std::string& json,
             Outcome& out) {
  if (const Value* file = call.args.Given("file")) {
    stage.Write(*file, json + "\n");
    out.AddText("file", file->text);
    out.text += " in " + file->text;
  } else {
    out.document = json + "\n";
    out.Add(name, json);
  }
}

}  // namespace studio
