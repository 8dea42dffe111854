#include <fmt/format.h>

#include <filesystem>

#include "host/io/scenefile.h"
#include "sowfield/model/invariants.h"
#include "studio/steps/steps.h"

namespace studio {

void Save(Stage& stage, const Call& call, Outcome& out) {
  const Value& file = *call.args.Given("file");
  const std::string path = stage.MakeRoomFor(file);
  host::SaveOptions options;
  options.backup = call.args.Flag("backup");
  std::string error;
  if (!host::SaveScene(stage.Ip(), path, options, error)) throw StepFailure{file.place, error};
  std::error_code code;
  const auto bytes = (long long)(std::filesystem::file_size(path, code));
  out.AddText("file", file.text);
  out.Add("bytes", bytes);
  out.text = fmt::format("{}, {} bytes", file.text, Grouped(bytes));
}

namespace {

std::string FirstBreachIn(const Scene& scene) {
  for (INode* node : scene.AllNodes())
    if (const sowfield::Sowfield* object = Stage::SowfieldOf(node))
      if (const std::string breach = sowfield::FirstBreach(*object->pblock2); !breach.empty())
        return fmt::format("the tables of \"{}\" disagree: {}", ToUtf8(node->GetName()), breach);
  return {};
}

}  // namespace

void OpenSceneFile(Stage& stage, const Call& call, Outcome& out) {
  const Value& file = *call.args.Given("file");
  for (const char* field : {"up", "scale", "name", "join", "turn", "at"})
    if (const Value* given = call.args.Given(field))
      throw StepFailure{given->place, fmt::format("\"{}\" is for models: \"{}\" is a scene, which "
                                                  "takes the place of the present one",
                                                  field, file.text)};
  const Pin<INode> edited(stage.EditedNode());
  stage.StopEditing();
  std::string error;
  if (!host::OpenScene(stage.Ip(), stage.Resolve(file.text), {FirstBreachIn}, error)) {
    if (edited) stage.Edit(edited.get());
    throw StepFailure{file.place, error};
  }
  const std::vector<INode*> objects = stage.SowfieldNodes();
  if (objects.size() == 1) stage.Edit(objects.front());
  const auto nodes = (long long)(stage.Ip().GetScene().AllNodes().size());
  out.Add("nodes", nodes);
  out.Add("objects", (long long)(objects.size()));
  out.text = fmt::format("{}: {} node{}, {} Sowfield object{}", file.text, Grouped(nodes),
                         nodes == 1 ? "" : "s", objects.size(), objects.size() == 1 ? "" : "s");
}

}  // namespace studio
