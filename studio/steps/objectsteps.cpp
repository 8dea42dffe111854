#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "sowfield/model/classids.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/stats.h"
#include "sowfield/objects/typelist.h"
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
  INode* node = stage.Node(name);
  if (!Stage::SowfieldOf(node))
    throw StepFailure{name.place, fmt::format("\"{}\" is no Sowfield object", name.text)};
  stage.Edit(node);
  out.AddText("node", name.text);
  out.text = name.text;
}

void AddTypes(Stage& stage, const Call& call, Outcome& out) {
  sowfield::Distribution& d = stage.Edited(call.place).distribution;
  std::vector<INode*> nodes;
  for (const Value* name : call.args.Texts("nodes")) {
    INode* node = stage.Node(*name);
    if (const std::string why = sowfield::WhyNotASource(node, stage.Now()); !why.empty())
      throw StepFailure{name->place,
                        fmt::format("\"{}\" can't become an object type: {}", name->text, why)};
    nodes.push_back(node);
  }
  const int added = sowfield::AddTypesByName(d, nodes);
  if (added != int(nodes.size()))
    throw StepFailure{call.place,
                      fmt::format("only {} of {} nodes became object types", added, nodes.size())};
  out.Add("added", added);
  out.Add("types", d.TypeCount());
  out.text =
      fmt::format("{} added, {} type{}", added, d.TypeCount(), d.TypeCount() == 1 ? "" : "s");
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
  out.text = fmt::format("{} object{} sound", nodes.size(), nodes.size() == 1 ? "" : "s");
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
