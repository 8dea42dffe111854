#include "studio/steps/steps.h"

#include <algorithm>
#include <iterator>

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
