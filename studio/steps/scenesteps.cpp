#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/import/import.h"
#include "host/math/elementary.h"
#include "host/scene/camera.h"
#include "host/scene/join.h"
#include "host/scene/mtl.h"
#include "host/scene/primitives.h"
#include "host/scene/shape.h"
#include "host/scene/texmap.h"
#include "host/scenefile/scenefile.h"
#include "studio/steps/fileuses.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"

namespace studio {
namespace {

// The name is checked before anything is made.
INode* MakeNode(Stage& stage, const Call& call, Object* object) {
  INode* node = stage.Ip().CreateObjectNode(object);
  if (call.args.Has("name")) node->SetName(FromUtf8(call.args.Text("name")));
  return node;
}

// The same with the fields that tell how it stands.
INode* Placed(Stage& stage, const Call& call, Object* object) {
  const Args& args = call.args;
  INode* node = MakeNode(stage, call, object);
  const Point3 rotate = PointOf(args.Get("rotate"));
  constexpr auto kRadians = float(host::kPi / 180);
  Matrix3 tm;
  tm.Scale(PointOf(args.Get("scale")));
  if (rotate.x != 0) tm.RotateX(rotate.x * kRadians);
  if (rotate.y != 0) tm.RotateY(rotate.y * kRadians);
  if (rotate.z != 0) tm.RotateZ(rotate.z * kRadians);
  tm.Translate(PointOf(args.Get("at")));
  node->SetNodeTM(stage.Now(), tm);
  node->SetWireColor(ColourOf(args.Text("colour")));
  return node;
}

// All or nothing: parts that can't be joined leave the scene again.
INode* Joined(Stage& stage, const std::vector<INode*>& parts, const Value& name) {
  INode* node = host::JoinNodes(stage.Ip().GetScene(), parts, FromUtf8(name.text), stage.Now());
  if (node) return node;
  stage.Ip().DeleteNodes(parts, false);
  throw StepFailure{name.place, "the parts don't fit into one mesh"};
}

bool Moves(INode* node) {
  return !(node->TMValidity(0) == FOREVER) || !(node->EvalWorldState(0).valid == FOREVER);
}

// Whether it shows a picture whose path couldn't be kept.
bool LosesPictures(ReferenceTarget* thing) {
  if (!thing) return false;
  if (const auto* picture = dynamic_cast<const BitmapTex*>(thing))
    return !picture->GetBytes() && picture->GetMapName().find(L'\xFFFD') != WStr::npos;
  for (int i = 0; i < thing->NumRefs(); ++i)
    if (LosesPictures(thing->GetReference(i))) return true;
  return false;
}

void Report(Outcome& out, INode* node) {
  const std::string name = ToUtf8(node->GetName());
  out.AddText("node", name);
  out.text = name;
}

}  // namespace

void Open(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  if (host::LooksLikeScene(stage.Resolve(args.Text("file"))))
    return OpenSceneFile(stage, call, out);
  if (args.Flag("recover"))
    throw StepFailure{args.PlaceOf("recover"), "\"recover\" is for scenes: \"" + args.Text("file") +
                                                   "\" is none that this program saved"};
  host::ImportOptions options;
  if (args.Has("up"))
    options.up = args.Text("up") == "y" ? host::ImportOptions::Up::Y : host::ImportOptions::Up::Z;
  options.scale = args.Number("scale");
  for (const char* field : {"name", "join"})
    if (args.Has(field)) stage.NeedNewName(*args.Given(field));

  std::string error;
  std::optional<host::ImportResult> result =
      host::ImportModel(stage.Ip(), stage.Resolve(args.Text("file")), options, error);
  if (!result) throw StepFailure{args.PlaceOf("file"), error};
  stage.AddSource(stage.Resolve(args.Text("file")), "a model that was opened");
  for (const FileUse& use : FilesOf(result->nodes))
    stage.AddSource(ToUtf8(use.path), "a picture of a model that was opened");
  for (const std::string& w : result->warnings) stage.Notices() << "warning: " << w << '\n';
  if (std::any_of(result->nodes.begin(), result->nodes.end(),
                  [](INode* n) { return LosesPictures(n->GetMtl()); }))
    stage.Notices() << "warning: pictures of \"" << InPrint(stage.Resolve(args.Text("file")))
                    << "\" are lost: a scene can't keep their paths, which aren't UTF-8\n";

  if (args.Has("join") && std::any_of(result->nodes.begin(), result->nodes.end(), Moves))
    stage.Notices() << "warning: " << args.Text("file") << ": joined parts don't move any more\n";
  if (args.Has("join")) result->nodes = {Joined(stage, result->nodes, *args.Given("join"))};
  std::vector<INode*> roots;
  for (INode* n : result->nodes)
    if (n->GetParentNode() == stage.Ip().GetRootNode()) roots.push_back(n);
  const Point3 at = PointOf(args.Get("at"));
  for (INode* n : roots) {
    Matrix3 tm = n->GetNodeTM(stage.Now());
    if (args.Number("turn") != 0) tm.RotateZ(float(args.Number("turn") * host::kPi / 180));
    tm.Translate(at);
    n->SetNodeTM(stage.Now(), tm);
    if (!args.Has("name")) continue;
    const WStr name = FromUtf8(args.Text("name"));
    n->SetName(roots.size() == 1 ? name : name + L"_" + n->GetName());
  }

  JsonOut names;
  names.BeginList();
  std::string list;
  constexpr size_t kMostShown = 5;
  for (size_t i = 0; i < result->nodes.size(); ++i) {
    const std::string name = ToUtf8(result->nodes[i]->GetName());
    names.Text(name);
    if (i < kMostShown) list += (i ? ", " : "") + name;
  }
  if (result->nodes.size() > kMostShown) list += ", ...";
  out.Add("nodes", names.End().Str());
  out.text = fmt::format("{}: {}", Counted(result->nodes.size(), "node"), list);
}

void Primitive(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  if (args.Has("name")) stage.NeedNewName(*args.Given("name"));
  const std::string& kind = args.Text("kind");
  const auto size = [&](size_t i) {
    const Value* given = args.Given("size");
    return given ? float(given->items[i].number) : 1.0f;
  };

  Object* object;
  if (kind == "box") {
    auto* box = new BoxObject;
    box->SetSize(size(0), size(1), size(2));
    object = box;
  } else if (kind == "sphere") {
    auto* sphere = new SphereObject;
    sphere->SetSize(size(0), args.Integer("segments"));
    object = sphere;
  } else {
    auto* plane = new PlaneObject;
    const std::vector<double> cells = args.Numbers("cells");
    plane->SetSize(size(0), size(1), int(cells[0]), int(cells[1]));
    object = plane;
  }

  Report(out, Placed(stage, call, object));
}

void Spline(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  if (args.Has("name")) stage.NeedNewName(*args.Given("name"));
  std::vector<Point3> knots;
  for (const Value& p : args.Get("points").items) knots.push_back(PointOf(p));
  BezierShape shape;
  shape.splines.emplace_back(std::move(knots), args.Flag("closed"));
  auto* object = new SplineShape;
  object->SetShape(std::move(shape));
  Report(out, Placed(stage, call, object));
}

void Camera(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  stage.NeedNewName(*args.Given("name"));
  auto* camera = new CameraObject;
  const auto fov = float(args.Number("fov") * host::kPi / 180);
  camera->SetFOV(stage.Now(), fov);
  INode* node = MakeNode(stage, call, camera);
  node->SetNodeTM(stage.Now(), ViewExp::Perspective(PointOf(args.Get("eye")),
                                                    PointOf(args.Get("target")), fov, 16, 16)
                                   .ViewToWorld());
  Report(out, node);
}

void Delete(Stage& stage, const Call& call, Outcome& out) {
  std::vector<INode*> nodes;
  for (const Value* name : call.args.Texts("nodes")) nodes.push_back(stage.Node(*name));
  if (std::find(nodes.begin(), nodes.end(), stage.EditedNode()) != nodes.end()) stage.StopEditing();
  for (const FileUse& use : FilesOf(nodes)) stage.KeepForUndo(use.path);
  stage.Ip().DeleteNodes(nodes, true);
  out.Add("deleted", (long long)(nodes.size()));
  out.text = Counted(nodes.size(), "node") + " deleted";
}

void Selection(Stage& stage, const Call& call, Outcome& out) {
  std::vector<INode*> nodes;
  for (const Value* name : call.args.Texts("nodes")) nodes.push_back(stage.Node(*name));
  stage.Ip().SelectNodeTab(nodes);
  const size_t selected = stage.Ip().GetScene().Selection().size();
  out.Add("selected", (long long)(selected));
  out.text = Counted(selected, "node") + " selected";
}

void Time(Stage& stage, const Call& call, Outcome& out) {
  const double frame = call.args.Number("frame");
  stage.Ip().SetTime(TimeValue(std::lround(frame * GetTicksPerFrame())));
  // What a view would have drawn at the new time.
  for (INode* node : stage.SowfieldNodes())
    Stage::SowfieldOf(node)->distribution.curTime = stage.Ip().GetTime();
  out.Add("frame", JsonOut().Double(frame).Str());
  out.text = fmt::format("frame {}", frame);
}

namespace {

void Roll(Stage& stage, const Call& call, Outcome& out, bool back) {
  Hold& hold = stage.TheHost().Undo();
  const auto count = size_t(call.args.Integer("count"));
  std::vector<WStr> names = back ? hold.UndoNames() : hold.RedoNames();
  const char* verb = back ? "undo" : "redo";
  if (count > names.size())
    throw StepFailure{call.args.PlaceOf("count"),
                      names.empty() ? fmt::format("there is nothing to {}", verb)
                                    : fmt::format("there {} only {} to {}, not {}",
                                                  names.size() == 1 ? "is" : "are",
                                                  Counted(names.size(), "step"), verb, count)};
  for (size_t i = 0; i < count; ++i)
    if (!(back ? hold.Undo() : hold.Redo()))
      throw StepFailure{call.place, fmt::format("the host refuses to {} now", verb)};
  stage.Settle();
  out.text = fmt::format("{}; {} to undo, {} to redo", Counted(count, "step"), hold.UndoCount(),
                         hold.RedoCount());
  out.Add("undo", (long long)(hold.UndoCount()));
  out.Add("redo", (long long)(hold.RedoCount()));
}

}  // namespace

void Undo(Stage& stage, const Call& call, Outcome& out) { Roll(stage, call, out, true); }
void Redo(Stage& stage, const Call& call, Outcome& out) { Roll(stage, call, out, false); }

}  // namespace studio
