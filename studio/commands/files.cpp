#include "studio/commands/files.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>

#include "host/files/file.h"
#include "host/scenefile/scenecontainer.h"
#include "host/scenefile/scenefile.h"
#include "sowfield/model/placement.h"
#include "studio/commands/commandsteps.h"
#include "studio/job/paramrules.h"
#include "studio/steps/fileuses.h"

namespace studio {
namespace {

constexpr const char* kUnits[] = {"inches",      "feet",   "miles",     "millimetres",
                                  "centimetres", "metres", "kilometres"};

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
  return quoted + '"';
}

// Floats in the shortest form that reads back the same.
void WriteCsv(Stage& stage, std::ostream& out) {
  const sowfield::Sowfield& object = stage.Edited({});
  const IParamBlock2& block = *object.pblock2;
  const sowfield::PlacementEvaluator evaluator(block, stage.Now());
  const auto names = block.Strings(sowfield::Geo_Names);
  const auto angles = block.Points(sowfield::Ins_Normal);
  const auto rands = block.Ints(sowfield::Ins_Rand), anims = block.Ints(sowfield::Ins_AnimRand);
  const auto point = [](const Point3& p) { return fmt::format("{},{},{}", p.x, p.y, p.z); };
  out << "placement,type,name,x,y,z,angle_x,angle_y,angle_z,rand,anim_rand,time";
  for (int row = 0; row < 4; ++row)
    for (int k = 0; k < 3; ++k) out << ",m" << row << k;
  out << '\n';
  for (size_t p = 0; p < evaluator.Count(); ++p) {
    const int type = evaluator.Type(p);
    out << fmt::format("{},{},{},{},{},{},{},{}", p, type, Quoted(ToUtf8(names[size_t(type)])),
                       point(evaluator.Position(p)), point(angles[p]), rands[p], anims[p],
                       evaluator.Time(p));
    const Matrix3 m = evaluator.Matrix(p);
    for (int row = 0; row < 4; ++row) out << ',' << point(m.GetRow(row));
    out << '\n';
  }
}

// Of both files of a pair; a damaged one may lack the second.
long long BytesOf(const std::string& scene) {
  std::string error;
  std::error_code code;
  const std::unique_ptr<host::ByteSource> files = host::OpenContainer(scene, error);
  return (long long)(files ? files->Size() : size_t(std::filesystem::file_size(scene, code)));
}

// How many nodes show an object of each class.
std::map<std::string, long long> ClassesOf(const std::vector<INode*>& nodes) {
  std::map<std::string, long long> classes;
  for (const INode* node : nodes) {
    WStr name = L"nothing";
    if (const Object* shown = node->GetObjectRef()) shown->GetClassName(name);
    ++classes[name.empty() ? "unknown" : ToUtf8(name)];
  }
  return classes;
}

}  // namespace

std::string WhyEmpty(const std::string& text) { return text.empty() ? "it is empty" : ""; }

struct FileCommands::Commands {
  explicit Commands(CLI::App& app);
  void AddViewOptions();
  int Run(std::ostream& out, std::ostream& err) const;
  /// False where a check finds damage that was recovered from.
  bool Do(CommandSteps& steps, std::ostream& out) const;
  bool Check(CommandSteps& steps, bool sound, std::ostream& out) const;
  void Info(CommandSteps& steps, std::ostream& out) const;
  void View(CommandSteps& steps, std::ostream& out) const;
  void Import(CommandSteps& steps, std::ostream& out) const;
  void Recover(CommandSteps& steps, std::ostream& out) const;
  Value SaveStep() const;

  CLI::App *info, *check, *stats, *params, *placements, *view, *import, *recover;
  std::string scene, object, picture, model, damaged;
  bool json = false, csv = false, counts = false, recovering = false, force = false;
  bool markdown = false;
  std::vector<int> size = {960, 540};
  std::vector<double> eye, target;
  double fov = 45, scale = 1;
  std::string camera, side, mode, up, join;
};

FileCommands::Commands::Commands(CLI::App& app) {
  const auto add = [&](const char* name, const char* meaning) {
    CLI::App* command = app.add_subcommand(name, meaning);
    if (std::string_view(name) == "import" || std::string_view(name) == "recover") return command;
    command->add_option("scene", scene, "the scene file")->required();
    command->add_flag("--recover", recovering, "read what can be read of a damaged file");
    return command;
  };
  info = add("info", "Tells what a scene file holds");
  check = add("check", "Reads a scene file whole and checks all that is in it");
  stats = add("stats", "Prints the types, placements, vertices and faces of an object");
  params = add("params", "Prints all parameters of an object as JSON");
  placements = add("placements", "Prints all placements of an object");
  view = add("view", "Draws a picture of a scene");
  import = add("import", "Makes a scene file from a model of any kind that can be opened");
  recover = add("recover", "Saves what can be read of a damaged scene file as a new one");

  for (CLI::App* command : {info, check, stats, placements})
    command->add_flag("--json", json, "print one JSON document");
  for (CLI::App* command : {stats, params, placements})
    command
        ->add_option("--object", object,
                     "name of the Sowfield object, where there are several; of several of one name "
                     "the second is NAME#2")
        ->check(WhyEmpty);
  params->add_flag("--json", json, "print JSON, as without it");
  params->add_flag("--counts", counts, "only the number of a table's entries");
  params->get_option("scene")->required(false)->excludes(params->add_flag(
      "--markdown", markdown, "what each parameter is, as the tables of docs/parameters.md"));
  placements->add_flag("--csv", csv, "print a table, comma separated; JSON without it")
      ->excludes("--json");

  AddViewOptions();
  import->add_option("model", model, "the model file")->required();
  import->add_option("scene", scene, "the scene file to write, .glb")->required();
  recover->add_option("damaged", damaged, "the damaged scene file, which stays")->required();
  recover->add_option("scene", scene, "the scene file to write")->required();
  import->add_option("--up", up, "which axis of the model points up: y or z")->check(WhyEmpty);
  import->add_option("--scale", scale, "scene units per unit of the model");
  import->add_option("--join", join, "make one node of this name from all parts")->check(WhyEmpty);
  for (CLI::App* command : {import, recover})
    command->add_flag("--force", force, "replace a scene that is there already");
}

void FileCommands::Commands::AddViewOptions() {
  view->add_option("picture", picture, "the picture, .png")->required();
  view->add_option("--size", size, "width and height, pixels")->expected(2);
  CLI::Option* from = view->add_option("--eye", eye, "where the viewer stands")->expected(3);
  CLI::Option* to = view->add_option("--target", target, "the middle of the view")->expected(3);
  from->needs(to);
  to->needs(from);
  view->add_option("--fov", fov, "horizontal field of view, degrees")->needs(from);
  CLI::Option* through =
      view->add_option("--camera", camera, "name of a camera to look through")->check(WhyEmpty);
  CLI::Option* parallel =
      view->add_option("--side", side, "a parallel view: top, bottom, front, back, left or right")
          ->check(CLI::IsMember({"top", "bottom", "front", "back", "left", "right"}));
  through->excludes(from)->excludes(parallel);
  parallel->excludes(from);
  view->add_option("--mode", mode, "display mode of all Sowfield objects, such as Original")
      ->check(WhyEmpty);
}

int FileCommands::Commands::Run(std::ostream& out, std::ostream& err) const {
  const CLI::App* all[] = {info, check, stats, params, placements, view, import, recover};
  std::string name;
  for (const CLI::App* command : all)
    if (command->parsed()) name = command->get_name();
  try {
    CommandSteps steps(err);
    return Do(steps, out) ? 0 : 1;
  } catch (const std::exception& e) {
    return TellFailure(name, e, err);
  }
}

bool FileCommands::Commands::Do(CommandSteps& steps, std::ostream& out) const {
  if (import->parsed()) return Import(steps, out), true;
  if (recover->parsed()) return Recover(steps, out), true;
  if (markdown) return out << ParamsAsMarkdown(), true;
  if (scene.empty()) throw Failure{2, "name a scene file, or ask for --markdown"};
  const bool sound = steps.OpenScene(scene, recovering);
  if (info->parsed()) return Info(steps, out), true;
  if (view->parsed()) return View(steps, out), true;
  if (check->parsed()) return Check(steps, sound, out);
  steps.Choose(object);
  if (placements->parsed() && csv) return WriteCsv(steps.GetStage(), out), true;
  Value step = StepOf(placements->parsed() ? "placements" : params->parsed() ? "params" : "stats");
  if (params->parsed()) step = step.With("tables", Value::Text(counts ? "counts" : "values"));
  const Outcome o = steps.Do(step);
  if (!stats->parsed()) {
    out << o.document;
  } else if (json) {
    JsonOut document;
    document.BeginObject();
    for (const auto& [key, value] : o.fields) document.Key(key).Raw(value);
    out << document.End().Str() << '\n';
  } else {
    out << o.answer << '\n';
  }
  return true;
}

namespace {

void PutMissing(Stage& stage, JsonOut& document) {
  const std::vector<std::string> missing = MissingFiles(stage.Ip().GetScene());
  if (!missing.empty()) document.Line().Key("missing").Texts(missing);
}

// The files that the scene names, all of them in the document.
std::string TellFiles(Stage& stage, JsonOut& document) {
  constexpr size_t kMostShown = 20;
  const std::vector<FileUse> uses = FilesOf(stage.Ip().GetScene());
  if (uses.empty()) return "";
  std::string text = "\nfiles:";
  document.Line().Key("files").BeginList();
  for (size_t i = 0; i < uses.size(); ++i) {
    const std::string path = ToUtf8(uses[i].path);
    const bool there = IsThere(uses[i]);
    document.Line().BeginObject().Key("what").Text(uses[i].who).Key("path").Text(path);
    document.Key("there").Flag(there).End();
    if (i < kMostShown)
      text += fmt::format("\n  {}: \"{}\"{}", uses[i].who, path, there ? "" : " (missing)");
  }
  document.End();
  if (uses.size() > kMostShown)
    text += fmt::format("\n  and {} more", Grouped((long long)(uses.size() - kMostShown)));
  return text;
}

}  // namespace

bool FileCommands::Commands::Check(CommandSteps& steps, bool sound, std::ostream& out) const {
  JsonOut document;
  document.BeginObject().Key("file").Text(scene);
  PutMissing(steps.GetStage(), document);
  try {
    const Outcome o = steps.Do(StepOf("check"));
    document.Key("sound").Flag(sound);
    for (const auto& [key, value] : o.fields) document.Key(key).Raw(value);
    const char* damage = sound ? "" : ", once mended";
    out << (json ? document.End().Str() : fmt::format("{}: {}{}", scene, o.text, damage)) << '\n';
    return sound;
  } catch (const Failure& f) {
    document.Key("sound").Flag(false).Key("error").Text(f.what());
    if (json) out << document.End().Str() << '\n';
    throw;
  }
}

void FileCommands::Commands::Info(CommandSteps& steps, std::ostream& out) const {
  Stage& stage = steps.GetStage();
  const long long bytes = BytesOf(scene);
  const std::vector<INode*> nodes = stage.Ip().GetScene().AllNodes();
  const std::map<std::string, long long> classes = ClassesOf(nodes);
  const Interval& range = stage.Ip().GetAnimRange();
  const double frame = GetTicksPerFrame();
  const std::string unit = kUnits[stage.Ip().MasterUnitType()];
  JsonOut document;
  document.BeginObject().Line().Key("file").Text(scene).Key("bytes").Int(bytes);
  document.Line().Key("unit").Text(unit).Key("unit_scale").Float(stage.Ip().MasterUnitScale());
  document.Line().Key("frames").BeginList().Double(range.Start() / frame);
  document.Double(range.End() / frame).End();
  document.Line().Key("nodes").Int((long long)(nodes.size())).Key("classes").BeginObject();
  std::string text =
      fmt::format("{}: {} bytes, unit {} x {}, frames {} to {}\n", scene, Grouped(bytes),
                  stage.Ip().MasterUnitScale(), unit, range.Start() / frame, range.End() / frame);
  text += nodes.empty() ? "no nodes" : Counted(nodes.size(), "node") + ":";
  for (const auto& [name, count] : classes) {
    document.Key(name).Int(count);
    text +=
        fmt::format(" {} {}{}", Grouped(count), name, name == classes.rbegin()->first ? "" : ",");
  }
  document.End().Line().Key("layers").BeginList();
  text += "\nlayers:";
  for (const ILayer* layer : stage.Ip().GetLayerManager().Layers()) {
    document.Text(ToUtf8(layer->GetName()));
    text +=
        fmt::format(" \"{}\"{}", ToUtf8(layer->GetName()), layer->IsHidden() ? " (hidden)" : "");
  }
  document.End().Line().Key("selected").BeginList();
  std::string selected;
  for (const INode* node : stage.Ip().GetScene().Selection()) {
    const std::string name = ToUtf8(node->GetName());
    document.Text(name);
    selected += fmt::format(" \"{}\"", name);
  }
  document.End();
  if (!selected.empty()) text += "\nselected:" + selected;
  if (const Renderer* renderer = stage.Ip().GetCurrentRenderer()) {
    WStr name;
    renderer->GetClassName(name);
    document.Line().Key("renderer").Text(name.empty() ? "unknown" : ToUtf8(name));
    text += "\nrenderer: " + (name.empty() ? "unknown" : ToUtf8(name));
  }
  text += TellFiles(stage, document);
  document.Line().Key("objects").BeginList();
  text += '\n';
  for (INode* node : stage.SowfieldNodes()) {
    const sowfield::Distribution& d = Stage::SowfieldOf(node)->distribution;
    const std::string name = ToUtf8(node->GetName());
    document.Line().BeginObject().Key("node").Text(name).Key("types").Int(d.TypeCount());
    document.Key("placements").Int(d.PlacementCount()).End();
    text += fmt::format("\"{}\": {}, {}\n", name, Counted(size_t(d.TypeCount()), "type"),
                        Counted(size_t(d.PlacementCount()), "placement"));
  }
  document.End().Line().End();
  out << (json ? document.Str() + "\n" : text);
}

void FileCommands::Commands::View(CommandSteps& steps, std::ostream& out) const {
  const std::vector<double> pixels(size.begin(), size.end());
  Value step =
      StepOf("view").With("file", Value::Text(picture)).With("size", Value::Numbers(pixels));
  if (!mode.empty()) step = step.With("mode", Value::Text(mode));
  if (!camera.empty()) {
    step = step.With("view", Value().With("camera", Value::Text(camera)));
  } else if (!side.empty()) {
    step = step.With("view", Value().With("orthographic", Value::Text(side)));
  } else if (!eye.empty()) {
    step = step.With("view", Value()
                                 .With("eye", Value::Numbers(eye))
                                 .With("target", Value::Numbers(target))
                                 .With("fov", Value::Number(fov)));
  }
  out << steps.Do(step).text << '\n';
}

// Before any work: a scene makes way only with --force, and what is none never does.
Value FileCommands::Commands::SaveStep() const {
  Value step = StepOf("save").With("file", Value::Text(scene));
  CommandSteps::Check(step);
  if (const std::string why = WhyNotWritten({scene, OutputKind::Scene, force}, {}, "--force");
      !why.empty())
    throw Failure{1, why};
  return step;
}

void FileCommands::Commands::Import(CommandSteps& steps, std::ostream& out) const {
  if (host::SameFile(model, scene))
    throw Failure{2, fmt::format("the scene would take the place of the model \"{}\"", model)};
  if (host::LooksLikeScene(model))
    throw Failure{1, fmt::format("\"{}\" is a scene already", model)};
  const Value save = SaveStep();
  Value open = StepOf("open").With("file", Value::Text(model)).With("scale", Value::Number(scale));
  if (!up.empty()) open = open.With("up", Value::Text(up));
  if (!join.empty()) open = open.With("join", Value::Text(join));
  out << steps.Do(open).text << '\n';
  out << steps.Do(save).text << '\n';
}

void FileCommands::Commands::Recover(CommandSteps& steps, std::ostream& out) const {
  // A scene that is too large for a .glb becomes a .gltf.
  const std::string pair = std::filesystem::path(scene).replace_extension(".gltf").string();
  if (host::SameFile(damaged, scene) || host::SameFile(damaged, pair))
    throw Failure{2,
                  fmt::format("\"{}\" would take the damaged file's place: name another", scene)};
  const Value save = SaveStep();
  steps.OpenScene(damaged, true);
  out << steps.Do(save).text << '\n';
}

FileCommands::FileCommands(CLI::App& app) : commands_(std::make_unique<Commands>(app)) {}

FileCommands::~FileCommands() = default;

bool FileCommands::Parsed() const {
  const Commands& c = *commands_;
  for (const CLI::App* command :
       {c.info, c.check, c.stats, c.params, c.placements, c.view, c.import, c.recover})
    if (command->parsed()) return true;
  return false;
}

int FileCommands::Run(std::ostream& out, std::ostream& err) const {
  return commands_->Run(out, err);
}

}  // namespace studio
