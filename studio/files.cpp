#include "studio/files.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>
#include <ostream>

#include "host/io/file.h"
#include "host/io/scenefile.h"
#include "sowfield/model/placement.h"
#include "studio/steps/steps.h"

namespace studio {
namespace {

/// What ends a command, with its exit status.
struct Failure {
  int status;
  std::string text;
};

constexpr const char* kUnits[] = {"inches",      "feet",   "miles",     "millimetres",
                                  "centimetres", "metres", "kilometres"};

/// Does single steps as a job would, on one stage. Paths start from the working folder.
class Steps {
 public:
  explicit Steps(std::ostream& err) : stage_("", err) {}
  Stage& GetStage() { return stage_; }

  /// `step` is a step as JSON.
  Outcome Do(const JsonOut& step) {
    std::vector<Fault> faults;
    const std::optional<Job> job = ReadJob("{\"steps\": [" + step.Str() + "]}", faults);
    if (!job) throw Failure{2, faults.front().text};
    Outcome outcome;
    try {
      FunctionOf(job->calls.front().decl->name)(stage_, job->calls.front(), outcome);
    } catch (const StepFailure& f) {
      throw Failure{1, f.text};
    }
    return outcome;
  }

  /// Whether nothing was lost, which can be only where a damaged file is recovered.
  bool OpenScene(const std::string& file, bool recover) {
    if (const std::string why = WhyNoScene(file); !why.empty()) throw Failure{1, why};
    JsonOut step;
    step.BeginObject().Key("do").Text("open").Key("file").Text(file).Key("recover").Flag(recover);
    const Outcome opened = Do(step.End());
    return std::all_of(opened.fields.begin(), opened.fields.end(), [](const auto& field) {
      return field.first != "losses" || field.second == "0";
    });
  }

  /// Makes an object the edited one: the named one, or the only one.
  void Choose(const std::string& object) {
    const size_t count = stage_.SowfieldNodes().size();
    if (!object.empty()) {
      Do(JsonOut().BeginObject().Key("do").Text("select").Key("object").Text(object).End());
    } else if (count != 1) {
      throw Failure{count == 0 ? 1 : 2,
                    count == 0 ? "the scene holds no Sowfield object"
                               : fmt::format("the scene holds {} Sowfield objects: name one with "
                                             "--object",
                                             count)};
    }
  }

 private:
  Stage stage_;
};

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

}  // namespace

std::string WhyNoScene(const std::string& file) {
  if (std::error_code code; !std::filesystem::exists(file, code) && !code)
    return fmt::format("there is no file \"{}\"", file);
  host::FileSource source;
  if (std::string why; !source.Open(file, why)) return why;
  return host::LooksLikeScene(file)
             ? ""
             : fmt::format("\"{}\" is no scene that this program saved", file);
}

struct FileCommands::Commands {
  explicit Commands(CLI::App& app);
  int Run(std::ostream& out, std::ostream& err) const;
  /// False where a check finds damage that was recovered from.
  bool Do(Steps& steps, std::ostream& out) const;
  void Info(Steps& steps, std::ostream& out) const;
  void View(Steps& steps, std::ostream& out) const;
  void Import(Steps& steps, std::ostream& out) const;
  void Recover(Steps& steps, std::ostream& out) const;

  CLI::App *info, *check, *stats, *params, *placements, *view, *import, *recover;
  std::string scene, object, picture, model, damaged;
  bool json = false, csv = false, counts = false, recovering = false;
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
    command->add_option("--object", object, "name of the Sowfield object, where there are several");
  params->add_flag("--json", json, "print JSON, as without it");
  params->add_flag("--counts", counts, "only the number of a table's entries");
  placements->add_flag("--csv", csv, "print a table, comma separated; JSON without it")
      ->excludes("--json");

  view->add_option("picture", picture, "the picture, .png")->required();
  view->add_option("--size", size, "width and height, pixels")->expected(2);
  CLI::Option* from = view->add_option("--eye", eye, "where the viewer stands")->expected(3);
  CLI::Option* to = view->add_option("--target", target, "the middle of the view")->expected(3);
  from->needs(to);
  to->needs(from);
  view->add_option("--fov", fov, "horizontal field of view, degrees")->needs(from);
  CLI::Option* through = view->add_option("--camera", camera, "name of a camera to look through");
  CLI::Option* parallel =
      view->add_option("--side", side, "a parallel view: top, bottom, front, back, left or right");
  through->excludes(from)->excludes(parallel);
  parallel->excludes(from);
  view->add_option("--mode", mode, "display mode of all Sowfield objects, such as Original");

  import->add_option("model", model, "the model file")->required();
  import->add_option("scene", scene, "the scene file to write, .glb")->required();
  recover->add_option("damaged", damaged, "the damaged scene file, which stays")->required();
  recover->add_option("scene", scene, "the scene file to write")->required();
  import->add_option("--up", up, "which axis of the model points up: y or z");
  import->add_option("--scale", scale, "scene units per unit of the model");
  import->add_option("--join", join, "make one node of this name from all parts");
}

int FileCommands::Commands::Run(std::ostream& out, std::ostream& err) const {
  const CLI::App* all[] = {info, check, stats, params, placements, view, import, recover};
  std::string name;
  for (const CLI::App* command : all)
    if (command->parsed()) name = command->get_name();
  try {
    Steps steps(err);
    const bool sound = Do(steps, out);
    out.flush();
    if (!out) throw Failure{1, "standard output can't be written"};
    return sound ? 0 : 1;
  } catch (const Failure& f) {
    err << name << ": " << f.text << '\n';
    return f.status;
  } catch (const std::bad_alloc&) {
    err << name << ": there isn't enough memory\n";
  } catch (const std::exception& e) {
    err << name << ": " << e.what() << '\n';
  }
  return 1;
}

bool FileCommands::Commands::Do(Steps& steps, std::ostream& out) const {
  if (import->parsed()) return Import(steps, out), true;
  if (recover->parsed()) return Recover(steps, out), true;
  const bool sound = steps.OpenScene(scene, recovering);
  if (info->parsed()) return Info(steps, out), true;
  if (view->parsed()) return View(steps, out), true;
  if (check->parsed()) {
    const Outcome o = steps.Do(JsonOut().BeginObject().Key("do").Text("check").End());
    JsonOut document;
    document.BeginObject().Key("file").Text(scene).Key("sound").Flag(sound);
    for (const auto& [key, value] : o.fields) document.Key(key).Raw(value);
    const char* damage = sound ? "" : ", once recovered from damage";
    out << (json ? document.End().Str() : fmt::format("{}: {}{}", scene, o.text, damage)) << '\n';
    return sound;
  }
  steps.Choose(object);
  if (placements->parsed() && csv) return WriteCsv(steps.GetStage(), out), true;
  JsonOut step;
  step.BeginObject().Key("do").Text(placements->parsed() ? "placements"
                                    : params->parsed()   ? "params"
                                                         : "stats");
  if (params->parsed()) step.Key("tables").Text(counts ? "counts" : "values");
  const Outcome o = steps.Do(step.End());
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

void FileCommands::Commands::Info(Steps& steps, std::ostream& out) const {
  Stage& stage = steps.GetStage();
  std::error_code code;
  const auto bytes = (long long)(std::filesystem::file_size(scene, code));
  const std::vector<INode*> nodes = stage.Ip().GetScene().AllNodes();
  std::map<std::string, long long> classes;
  for (const INode* node : nodes) {
    WStr name = L"nothing";
    if (const Object* shown = node->GetObjectRef()) shown->GetClassName(name);
    ++classes[name.empty() ? "unknown" : ToUtf8(name)];
  }
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
  text += Counted(nodes.size(), "node") + ":";
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

void FileCommands::Commands::View(Steps& steps, std::ostream& out) const {
  JsonOut step;
  const auto list = [&](const char* key, const auto& numbers) {
    step.Key(key).BeginList();
    for (const auto n : numbers) step.Double(double(n));
    step.End();
  };
  step.BeginObject().Key("do").Text("view").Key("file").Text(picture);
  list("size", size);
  if (!mode.empty()) step.Key("mode").Text(mode);
  if (!camera.empty()) {
    step.Key("view").BeginObject().Key("camera").Text(camera).End();
  } else if (!side.empty()) {
    step.Key("view").BeginObject().Key("orthographic").Text(side).End();
  } else if (!eye.empty()) {
    step.Key("view").BeginObject();
    list("eye", eye);
    list("target", target);
    step.Key("fov").Double(fov).End();
  }
  out << steps.Do(step.End()).text << '\n';
}

void FileCommands::Commands::Import(Steps& steps, std::ostream& out) const {
  if (std::error_code code; std::filesystem::equivalent(model, scene, code))
    throw Failure{2, fmt::format("the scene would take the place of the model \"{}\"", model)};
  if (host::LooksLikeScene(model))
    throw Failure{1, fmt::format("\"{}\" is a scene already", model)};
  JsonOut open;
  open.BeginObject().Key("do").Text("open").Key("file").Text(model).Key("scale").Double(scale);
  if (!up.empty()) open.Key("up").Text(up);
  if (!join.empty()) open.Key("join").Text(join);
  out << steps.Do(open.End()).text << '\n';
  JsonOut save;
  save.BeginObject().Key("do").Text("save").Key("file").Text(scene).End();
  out << steps.Do(save).text << '\n';
}

void FileCommands::Commands::Recover(Steps& steps, std::ostream& out) const {
  std::error_code code;
  // A scene that is too large for a .glb becomes a .gltf.
  const auto pair = std::filesystem::path(scene).replace_extension(".gltf");
  if (std::filesystem::equivalent(damaged, scene, code) ||
      std::filesystem::equivalent(damaged, pair, code))
    throw Failure{2,
                  fmt::format("\"{}\" would take the damaged file's place: name another", scene)};
  steps.OpenScene(damaged, true);
  JsonOut save;
  save.BeginObject().Key("do").Text("save").Key("file").Text(scene).End();
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
