#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/files/png.h"
#include "host/viewport/picture.h"
#include "host/viewport/scenedrawing.h"
#include "sowfield/display/budgets.h"
#include "sowfield/model/displaymode.h"
#include "sowfield/model/placement.h"
#include "studio/job/paramrules.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"

namespace studio {

using sowfield::Sowfield;

namespace {

int ModeOf(const Sowfield& object) { return object.pblock2->GetInt(sowfield::Display_Mode); }

// A mode that is asked for a picture is drawn though it be too heavy for a view that follows the
// mouse, up to this many bytes of vertices and faces.
constexpr double kMostBytes = 4e9;

double BytesToDraw(const Sowfield& object, int mode) {
  const sowfield::DisplayCost cost = sowfield::CostOfDisplay(object.distribution);
  constexpr double kPoint = 16, kVertex = 12, kFace = 20;
  const auto n = double(cost.placements);
  switch (mode) {
    case sowfield::kShowDot:
      return n * kPoint;
    case sowfield::kShowBox:
      return n * 24 * kPoint;
    case sowfield::kShowCloud:
      return double(cost.cloudPoints) * kPoint;
    case sowfield::kShowPyramid:
      return n * (4 * kVertex + 3 * kFace);
    case sowfield::kShowSquirrel:
      return n * (482 * kVertex + 960 * kFace);
    case sowfield::kShowOriginal:
      return double(cost.vertices) * (kVertex + 2 * kFace);  // two faces a vertex in most meshes
    default:
      return 0;
  }
}

// The nodes with their modes, before anything of a picture can lower one.
struct Wish {
  INode* node;
  int mode;
  Sowfield& Object() const { return *Stage::SowfieldOf(node); }
};
std::vector<Wish> WishesOf(Stage& stage, const Args& args) {
  std::vector<Wish> wishes;
  for (INode* node : stage.SowfieldNodes())
    wishes.push_back({node, args.Has("mode") ? DisplayModeByName(args.Text("mode"))
                                             : ModeOf(*Stage::SowfieldOf(node))});
  return wishes;
}

// Sets another mode or type for one picture; all of it is taken back, with no undo step.
class ForThisPicture {
 public:
  ForThisPicture(Stage& stage, const Call& call, const std::vector<Wish>& wishes) {
    const TimeValue t = stage.Now();
    const Args& args = call.args;
    // What may fail comes before the first change.
    Sowfield* typed = args.Has("type") ? &stage.Edited(args.PlaceOf("type")) : nullptr;
    int shown = 0;
    if (typed) {
      const Value& type = *args.Given("type");
      shown = type.IsText() && type.text == "all" ? 0 : Stage::TypeOf(*typed, type) + 1;
    }
    if (typed) {
      step_.emplace();
      typed->pblock2->SetValue(sowfield::Display_Type, t, shown);
      typed->RefreshObject();
    }
    for (const Wish& wish : wishes) {
      if (args.Has("mode")) {
        const bool affordable = BytesToDraw(wish.Object(), wish.mode) <= kMostBytes;
        Set(wish, wish.mode, affordable, t);
      }
      // What was to be seen is never left out: dots cost least.
      if (ModeOf(wish.Object()) == sowfield::kShowNone && wish.mode != sowfield::kShowNone)
        Set(wish, sowfield::kShowDot, true, t);
    }
  }

 private:
  void Set(const Wish& wish, int mode, bool force, TimeValue t) {
    if (!step_) step_.emplace();
    IParamBlock2& block = *wish.Object().pblock2;
    if (force) block.SetValue(sowfield::ForceDisplay, t, 1);
    block.SetValue(sowfield::Display_Mode, t, mode);
  }
  std::optional<UndoStep> step_;
};

IPoint2 PixelAt(const Value& x, const Value& y) {
  return {int(std::lround(x.number)), int(std::lround(y.number))};
}

}  // namespace

void Picture(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  const std::vector<Wish> wishes = WishesOf(stage, args);
  if (SceneBox(stage).IsEmpty())
    throw StepFailure{call.place, "the scene is empty: there is nothing to look at"};
  host::PictureOptions options{.grid = args.Flag("grid")};
  if (const Value* cursor = args.Given("cursor")) {
    if (!stage.Painting())
      throw StepFailure{cursor->place,
                        "there is no brush to show: paint mode is off, a stroke goes before"};
    options.pointer = PixelAt(cursor->items[0], cursor->items[1]);
  }
  const std::shared_ptr<ViewExp> view = MakeView(stage, args);
  const ForThisPicture changed(stage, call, wishes);
  std::string error;
  const std::optional<host::Picture> picture = host::DrawScene(stage.Ip(), *view, options, error);
  if (!picture) throw StepFailure{call.place, "the picture can't be drawn: " + error};
  for (const Wish& wish : wishes)
    if (const int mode = ModeOf(wish.Object()); mode != wish.mode)
      out.text += fmt::format(
          "; a display budget lowered \"{}\" from {} to {}: its ForceDisplay keeps it",
          ToUtf8(wish.node->GetName()), DisplayModeName(wish.mode), DisplayModeName(mode));
  std::vector<std::byte> png;
  if (!host::EncodePng(picture->width, picture->height, picture->rgb, png, error))
    throw StepFailure{call.place, error};
  const Value& file = *args.Given("file");
  stage.Write(file, png);
  out.AddText("file", file.text);
  out.text = fmt::format("{}, {} x {}{}", file.text, picture->width, picture->height, out.text);
}

void Pick(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  const std::shared_ptr<ViewExp> view = MakeView(stage, args);
  const Value *at = args.Given("at"), *rect = args.Given("rect");
  const std::vector<Value>& numbers = (at ? at : rect)->items;
  const IPoint2 corners[] = {PixelAt(numbers[0], numbers[1]),
                             rect ? PixelAt(numbers[2], numbers[3]) : IPoint2{}};
  // Objects answer as they were last drawn, so this view of them is.
  stage.TheHost().Views().RedrawApart(
      *view, stage.Now(), {[&](TimeValue t) { host::ShowNodes(stage.Ip(), *view, t); }, nullptr});
  JsonOut json;
  json.BeginList();
  for (const INode* node : host::PickNodes(stage.Ip(), *view, rect ? HITTYPE_RECT : HITTYPE_POINT,
                                           args.Flag("crossing"), corners)) {
    const std::string name = ToUtf8(node->GetName());
    json.Text(name);
    out.answer += (out.answer.empty() ? "" : ", ") + name;
  }
  if (out.answer.empty()) out.answer = "nothing";
  out.Add("nodes", json.End().Str());
}

void DumpPlacements(Stage& stage, const Call& call, Outcome& out) {
  const Sowfield& object = stage.Edited(call.place);
  const IParamBlock2& block = *object.pblock2;
  const sowfield::PlacementEvaluator evaluator(block, stage.Now());
  const std::span<const WStr> names = block.Strings(sowfield::Geo_Names);
  const std::span<const Point3> angles = block.Points(sowfield::Ins_Normal);
  const std::span<const int> rands = block.Ints(sowfield::Ins_Rand);
  const std::span<const int> animRands = block.Ints(sowfield::Ins_AnimRand);

  JsonOut json;
  json.BeginObject().Line().Key("object").Text(ToUtf8(stage.EditedNode()->GetName()));
  json.Line().Key("time").Int(stage.Now());
  json.Line().Key("count").Int((long long)(evaluator.Count()));
  json.Line().Key("placements").BeginList();
  for (size_t p = 0; p < evaluator.Count(); ++p) {
    const int type = evaluator.Type(p);
    json.Line().BeginObject().Key("type").Int(type).Key("name").Text(ToUtf8(names[size_t(type)]));
    json.Key("position").Point(evaluator.Position(p)).Key("angles").Point(angles[p]);
    json.Key("rand").Int(rands[p]).Key("anim_rand").Int(animRands[p]);
    const Matrix3 m = evaluator.Matrix(p);
    json.Key("matrix").BeginList();
    for (int row = 0; row < 4; ++row) json.Point(m.GetRow(row));
    json.End().Key("time").Int(evaluator.Time(p)).End();
  }
  json.Line().End().Line().End();
  out.text = Grouped((long long)(evaluator.Count())) + " placements";
  HandOut(stage, call, "placements", json.Str(), out);
}

}  // namespace studio
