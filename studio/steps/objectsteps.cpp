#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "host/scene/proxyobjects.h"
#include "sowfield/model/classids.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/stats.h"
#include "sowfield/objects/typelist.h"
#include "studio/steps/fileuses.h"
#include "studio/steps/steps.h"

namespace studio {

using sowfield::Sowfield;

void Create(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  if (args.Has("name")) stage.NeedNewName(*args.Given("name"));
  auto* object =
      static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, sowfield::kSowfieldClassID));
  if (!object) throw StepFailure{call.place, "the Sowfield class isn't registered"};
  stage.StopEditing();

  // A view whose middle pixel looks at the place, and in which the drag is 50 pixels long.
  constexpr int kSize = 201, kMiddle = kSize / 2, kDrag = 50;
  const std::vector<double> at = args.Numbers("at");
  const Point3 target{float(at[0]), float(at[1]), 0.0f};
  const auto span = float(args.Number("logo_size") * kSize / kDrag);
  ViewExp view = ViewExp::Orthographic(target + Point3(0, 0, 100), target, span, kSize, kSize);

  UndoStep step;
  INode* node = stage.Ip().CreateObjectNode(object);
  if (args.Has("name")) node->SetName(FromUtf8(args.Text("name")));
  object->BeginEditParams(&stage.Ip(), sowfield::kEditCreate, nullptr);
  CreateMouseCallBack* mouse = object->GetCreateMouseCallBack();
  Matrix3 tm;
  mouse->proc(&view, MOUSE_POINT, 0, 0, {kMiddle, kMiddle}, tm);
  node->SetNodeTM(stage.Now(), tm);
  mouse->proc(&view, MOUSE_MOVE, 1, 0, {kMiddle + kDrag, kMiddle}, tm);
  mouse->proc(&view, MOUSE_POINT, 1, 0, {kMiddle + kDrag, kMiddle}, tm);
  object->EndEditParams(&stage.Ip(), sowfield::kEditCreate, nullptr);
  step.Accept(L"Create");

  stage.Edit(node);
  const std::string name = ToUtf8(node->GetName());
  out.AddText("node", name);
  out.text = name;
}

void Select(Stage& stage, const Call& call, Outcome& out) {
  const Value& name = *call.args.Given("object");
  stage.Edit(stage.SowfieldNode(name));
  out.AddText("node", ToUtf8(stage.EditedNode()->GetName()));
  out.text = name.text;
}

namespace {

INode* SourceNode(Stage& stage, const Value& name) {
  INode* node = stage.Node(name);
  if (const std::string why = sowfield::WhyNotASource(node, stage.Now()); !why.empty())
    throw StepFailure{name.place,
                      fmt::format("\"{}\" can't become an object type: {}", name.text, why)};
  return node;
}

}  // namespace

void AddTypes(Stage& stage, const Call& call, Outcome& out) {
  sowfield::Distribution& d = stage.Edited(call.place).distribution;
  std::vector<INode*> nodes;
  for (const Value* name : call.args.Texts("nodes")) nodes.push_back(SourceNode(stage, *name));
  const int added = sowfield::AddTypesByName(d, nodes);
  if (added != int(nodes.size()))
    throw StepFailure{call.place,
                      fmt::format("only {} of {} nodes became object types", added, nodes.size())};
  out.Add("added", added);
  out.Add("types", d.TypeCount());
  out.text = fmt::format("{} added, {}", added, Counted(size_t(d.TypeCount()), "type"));
}

void ReplaceSource(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  const int type = Stage::TypeOf(object, *call.args.Given("type"));
  const Value& name = *call.args.Given("node");
  INode* node = SourceNode(stage, name);
  object.distribution.lists.SelectObjectRows({type + 1});
  KeepFileForUndo(stage, object, type);
  if (!sowfield::ReplaceType(object.distribution, node))
    throw StepFailure{name.place, fmt::format("\"{}\" wasn't taken", name.text)};
  object.RefreshObject();
  out.Add("type", type);
  out.AddText("node", name.text);
  out.text = fmt::format("type {} is {}", type, name.text);
}

void RemoveTypes(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  sowfield::Distribution& d = object.distribution;
  std::set<int> rows;
  for (const Value& type : call.args.Get("types").items)
    rows.insert(Stage::TypeOf(object, type) + 1);
  for (const int row : rows) KeepFileForUndo(stage, object, row - 1);
  d.lists.SelectObjectRows({rows.begin(), rows.end()});
  const int placements = d.PlacementCount();
  const int removed = sowfield::DeleteSelectedTypes(d);
  const int gone = placements - d.PlacementCount();
  out.Add("removed", removed);
  out.Add("placements", gone);
  out.Add("types", d.TypeCount());
  out.text =
      fmt::format("{} removed with {}, {} left", Counted(size_t(removed), "type"),
                  Counted(size_t(gone), "placement"), Counted(size_t(d.TypeCount()), "type"));
}

namespace {

template <class Object>
Object* ProxyWith(const Mesh& mesh) {
  auto* made = new Object;
  made->SetMesh(mesh);
  return made;
}

// The file is only named: what the proxy shows and counts is the mesh.
ProxyObject* MakeProxy(const Stage& stage, const Args& args, const Mesh& mesh) {
  const std::string& kind = args.Text("kind");
  const Value* file = args.Given("file");
  const WStr path = file ? stage.ResolveToKeep(*file) : WStr();
  if (kind == "mokset") {
    auto* made = ProxyWith<MoksetProxyObject>(mesh);
    if (file) made->SetProxyFile(path);
    return made;
  }
  if (kind == "vray") {
    auto* made = ProxyWith<VRayProxyObject>(mesh);
    if (file) made->pblock2->SetValue(VRayProxyObject::kFile, 0, path);
    return made;
  }
  if (file) throw StepFailure{file->place, "a corona proxy doesn't tell its file"};
  return ProxyWith<CoronaProxyObject>(mesh);
}

}  // namespace

void Proxy(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  if (args.Has("name")) stage.NeedNewName(*args.Given("name"));
  const Value& name = *args.Given("from");
  INode* from = stage.Node(name);
  const EvaluatedMesh source = EvalMesh(from, stage.Now());
  const std::string why = source ? source.mesh->FirstFault() : "it has none";
  if (!why.empty())
    throw StepFailure{name.place, fmt::format("the mesh of \"{}\": {}", name.text, why)};
  INode* node = stage.Ip().CreateObjectNode(MakeProxy(stage, args, *source.mesh));
  if (args.Has("name")) node->SetName(FromUtf8(args.Text("name")));
  node->SetNodeTM(stage.Now(), from->GetNodeTM(stage.Now()));
  node->SetObjectOffset(from->GetObjectOffset());
  node->SetWireColor(from->GetWireColor());
  node->SetMtl(from->GetMtl());
  const std::string made = ToUtf8(node->GetName());
  out.AddText("node", made);
  out.text = made;
}

void SelectRows(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  const bool painter = call.args.Text("list") == "painter";
  std::set<int> rows;
  for (const Value& row : call.args.Get("rows").items)
    rows.insert(painter ? Stage::TypeOf(object, row) : Stage::RowOf(object, row));
  const std::vector<int> list(rows.begin(), rows.end());
  if (painter) {
    object.distribution.lists.SelectPainterRows(list);
  } else {
    object.distribution.lists.SelectObjectRows(list);
  }
  JsonOut json;
  json.BeginList();
  for (const int row : list) json.Int(row);
  out.Add("rows", json.End().Str());
  out.text = list.empty()
                 ? std::string("none selected")
                 : fmt::format("row{} {}", list.size() == 1 ? "" : "s", fmt::join(list, ", "));
}

void TypeColour(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  const Value& named = *call.args.Given("type");
  const int type = Stage::TypeOf(object, named);
  Mtl* material = stage.EditedNode()->GetMtl();
  const int slots = material ? material->NumSubMtls() : 0;
  Mtl* slot = slots > 0 ? material->GetSubMtl((type + 1) % slots) : nullptr;
  if (!slot)
    throw StepFailure{named.place, "the object's material has no slot of its own for this type"};

  const std::string& colour = call.args.Text("colour");
  UndoStep step;
  slot->SetDiffuse(UnpackColor(ColourOf(colour)), stage.Now());
  step.Accept(L"Colour");
  out.Add("type", type);
  out.AddText("colour", colour);
  out.text = fmt::format("type {} is {}", type, colour);
}

void Seed(Stage& stage, const Call& call, Outcome& out) {
  Sowfield& object = stage.Edited(call.place);
  if (object.distribution.block->Count(sowfield::Tr_Random) == 0)
    throw StepFailure{call.place, "the object has no transform rows"};
  const int row = Stage::RowOf(object, call.args.Get("row"));
  UndoStep step;
  sowfield::ReseedRandomBlock(object.distribution, row);
  object.RefreshObject();
  step.Accept(L"Seed");
  out.Add("row", row);
  out.text = row == 0 ? std::string("all rows") : fmt::format("row {}", row);
}

namespace {

void Expect(const Value& wanted, const char* what, int found) {
  const auto fail = [&](const std::string& text) {
    throw StepFailure{wanted.place,
                      fmt::format("found {} {}, expected {}", Grouped(found), what, text)};
  };
  if (wanted.IsNumber()) {
    if (found != wanted.number) fail(Grouped((long long)(wanted.number)));
    return;
  }
  const Value *min = wanted.Find("min"), *max = wanted.Find("max");
  if (min && found < min->number) fail("at least " + Grouped((long long)(min->number)));
  if (max && found > max->number) fail("at most " + Grouped((long long)(max->number)));
}

}  // namespace

namespace {

// What is wrong with the Mokset files that the scene names, all that a line takes.
std::string FileFaults(const Scene& scene) {
  constexpr int kMostTold = 5;
  std::string told;
  int faults = 0;
  for (const FileUse& use : FilesOf(scene)) {
    if (use.kind != FileUse::Kind::Mokset) continue;
    const std::string why = IsThere(use) ? WhyNoMokset(use.path) : "it is missing";
    if (why.empty() || ++faults > kMostTold) continue;
    told += fmt::format("{}{}: its file \"{}\": {}", told.empty() ? "" : "; ", use.who,
                        ToUtf8(use.path), why);
  }
  if (faults > kMostTold) told += fmt::format("; and {} more", faults - kMostTold);
  return told;
}

}  // namespace

void Check(Stage& stage, const Call& call, Outcome& out) {
  const std::vector<INode*> nodes = stage.SowfieldNodes();
  for (INode* node : nodes) {
    const sowfield::Distribution& d = Stage::SowfieldOf(node)->distribution;
    std::string breach = sowfield::FirstBreach(*d.block);
    if (breach.empty() && !d.ListReady()) breach = "a change of the tables was left open";
    if (!breach.empty())
      throw StepFailure{call.place,
                        fmt::format("\"{}\" is damaged: {}", ToUtf8(node->GetName()), breach)};
  }
  if (const std::string faults = FileFaults(stage.Ip().GetScene()); !faults.empty())
    throw StepFailure{call.place, faults};
  out.text = Counted(nodes.size(), "object") + " sound";
  out.Add("objects", (long long)(nodes.size()));
  for (const char* what : {"types", "placements"}) {
    const Value* wanted = call.args.Given(what);
    if (!wanted) continue;
    const sowfield::Distribution& d = stage.Edited(call.place).distribution;
    const int found = what[0] == 't' ? d.TypeCount() : d.PlacementCount();
    Expect(*wanted, what, found);
    out.Add(what, found);
    out.text += fmt::format(", {} {}", Grouped(found), what);
  }
}

void ShowStats(Stage& stage, const Call& call, Outcome& out) {
  const sowfield::Distribution& d = stage.Edited(call.place).distribution;
  const sowfield::Stats s = sowfield::ComputeStats(d);
  out.Add("types", d.TypeCount());
  out.Add("placements", s.placements);
  out.Add("vertices", s.vertices);
  out.Add("faces", s.faces);
  out.answer = fmt::format("types {}, placements {}, vertices {}, faces {}", d.TypeCount(),
                           Grouped(s.placements), Grouped(s.vertices), Grouped(s.faces));
}

}  // namespace studio
