#include <fmt/format.h>

#include <filesystem>

#include "host/files/file.h"
#include "host/scenefile/scenefile.h"
#include "studio/steps/steps.h"

namespace studio {

void Save(Stage& stage, const Call& call, Outcome& out) {
  const Value& file = *call.args.Given("file");
  const std::string path = stage.MakeRoomFor(file);
  host::SaveOptions options;
  options.backup = call.args.Flag("backup");
  if (options.backup) {
    const Output kept{host::BackupOf(host::FileBehind(path)), OutputKind::Scene, true};
    if (const std::string why = WhyNotWritten(kept, stage.Sources(), ""); !why.empty())
      throw StepFailure{call.args.PlaceOf("backup"), why};
  }
  std::string error;
  host::SavedScene saved;
  if (!host::SaveScene(stage.Ip(), path, options, error, &saved))
    throw StepFailure{file.place, error};
  for (const std::string& warning : saved.warnings)
    stage.Notices() << "warning: " << file.text << ": " << warning << '\n';
  std::filesystem::path written = file.text;
  // A scene that is too large for a .glb gets another ending.
  if (saved.path != path) written.replace_filename(std::filesystem::path(saved.path).filename());
  out.AddText("file", written.string());
  out.Add("bytes", (long long)(saved.bytes));
  out.text = fmt::format("{}, {} bytes", written.string(), Grouped((long long)(saved.bytes)));
}

namespace {

using Lines = std::vector<std::string>;

// What an opening has to tell besides its errors.
struct Told {
  Lines lost, settled;
  host::OpenOptions Options(bool recover) { return {recover ? &lost : nullptr, &settled}; }
};

void TellSettled(Stage& stage, const std::string& file, const Lines& lines, Outcome& out) {
  if (!lines.empty()) out.Add("settled", (long long)(lines.size()));
  for (const std::string& line : lines)
    stage.Notices() << "warning: " << file << ": " << line << '\n';
}

void TellLosses(Stage& stage, const Lines& lines, Outcome& out) {
  for (const std::string& line : lines) stage.Notices() << "lost: " << line << '\n';
  out.Add("losses", (long long)(lines.size()));
  out.Add("lost", JsonOut().Texts(lines).Str());
  out.text += lines.empty() ? ", nothing lost"
                            : ", " + fmt::format("{} loss{}", Grouped((long long)(lines.size())),
                                                 lines.size() == 1 ? "" : "es");
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
  Told told;
  const bool recover = call.args.Flag("recover");
  if (!host::OpenScene(stage.Ip(), stage.Resolve(file.text), told.Options(recover), error)) {
    if (edited) stage.Edit(edited.get());
    throw StepFailure{file.place, error};
  }
  stage.ForgetScene();
  const std::vector<INode*> objects = stage.SowfieldNodes();
  if (objects.size() == 1) stage.Edit(objects.front());
  const size_t nodes = stage.Ip().GetScene().AllNodes().size();
  out.Add("nodes", (long long)(nodes));
  out.Add("objects", (long long)(objects.size()));
  out.text = fmt::format("{}: {}, {}", file.text, Counted(nodes, "node"),
                         Counted(objects.size(), "Sowfield object"));
  TellSettled(stage, file.text, told.settled, out);
  if (recover) TellLosses(stage, told.lost, out);
}

void Merge(Stage& stage, const Call& call, Outcome& out) {
  const Value& file = *call.args.Given("file");
  host::MergedScene merged;
  std::string error;
  Told told;
  if (!host::MergeScene(stage.Ip(), stage.Resolve(file.text), told.Options(false), merged, error))
    throw StepFailure{file.place, error};
  TellSettled(stage, file.text, told.settled, out);
  stage.AddSource(stage.Resolve(file.text), "a scene that was merged into this one", true);
  if (!merged.warning.empty())
    stage.Notices() << "warning: " << file.text << ": " << merged.warning << '\n';
  out.text = fmt::format("merged \"{}\": {}", file.text, Counted(merged.nodes, "node"));
  constexpr size_t kMostShown = 5;
  JsonOut renamed;
  renamed.BeginList();
  for (size_t i = 0; i < merged.renamed.size(); ++i) {
    const std::string from = ToUtf8(merged.renamed[i].first), to = ToUtf8(merged.renamed[i].second);
    renamed.Line().BeginObject().Key("from").Text(from).Key("to").Text(to).End();
    if (i == 0)
      out.text += fmt::format(", {} renamed (", Grouped((long long)(merged.renamed.size())));
    if (i < kMostShown) out.text += fmt::format("{}\"{}\" to \"{}\"", i ? ", " : "", from, to);
  }
  if (merged.renamed.size() > kMostShown) out.text += ", ...";
  if (!merged.renamed.empty()) out.text += ")";
  out.Add("nodes", (long long)(merged.nodes));
  out.Add("renamed", renamed.End().Str());
}

}  // namespace studio
