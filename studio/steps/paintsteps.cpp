#include <fmt/format.h>

#include "host/core/progress.h"
#include "sowfield/paint/paintstate.h"
#include "sowfield/panels/editcontext.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"

namespace studio {

using sowfield::Sowfield;

namespace {

int ToolOf(const std::string& name) {
  if (name == "line") return sowfield::kLineTool;
  return name == "multi" ? sowfield::kMultiTool : sowfield::kEraseTool;
}

host::Modifiers KeysOf(const Args& args) {
  host::Modifiers keys;
  if (!args.Has("keys")) return keys;
  for (const Value* key : args.Texts("keys")) {
    keys.ctrl = keys.ctrl || key->text == "ctrl";
    keys.alt = keys.alt || key->text == "alt";
    keys.shift = keys.shift || key->text == "shift";
  }
  return keys;
}

bool SameView(const ViewExp& a, const ViewExp& b) {
  return a.IsAlive() && a.GetKind() == b.GetKind() && a.GetViewCamera() == b.GetViewCamera() &&
         a.ViewToWorld() == b.ViewToWorld() && a.Fov() == b.Fov() && a.Span() == b.Span() &&
         a.Width() == b.Width() && a.Height() == b.Height();
}

// Makes a view the active one and brings the mouse to a place in it.
void Hover(host::Viewports& views, const std::shared_ptr<ViewExp>& view, const IPoint2& at,
           host::Modifiers keys) {
  if (!views.Active() || !SameView(*views.Active(), *view)) {
    views.SetActive(view);
    // What follows the mouse looks anew only when it moves: the same pixel of another view is
    // another place.
    if (views.MousePosition() == at) views.Move({at.x > 0 ? at.x - 1 : at.x + 1, at.y}, keys);
  }
  views.Move(at, keys);
}

constexpr double kMostEvents = 1'000'000;

}  // namespace

void Stroke(Stage& stage, const Call& call, Outcome& out) {
  const Args& args = call.args;
  Sowfield& object = stage.Edited(call.place);
  if (object.distribution.TypeCount() == 0)
    throw StepFailure{call.place, "the object has no types to paint: add one first"};
  const std::shared_ptr<ViewExp> view = MakeView(stage, args);
  const std::vector<IPoint2> events = StrokeEvents(stage, args, *view);
  if (double(events.size()) > kMostEvents)
    throw StepFailure{call.place, fmt::format("the way gives {} mouse events, the most is {}",
                                              events.size(), kMostEvents)};

  host::Viewports& views = stage.TheHost().Views();
  const host::Modifiers keys = KeysOf(args);
  const int tool = ToolOf(args.Text("tool"));
  const int before = object.distribution.PlacementCount();
  Hover(views, view, events.front(), keys);
  if (!stage.Painting() || object.paint.paintTool != tool)
    if (!sowfield::PressToolButton(tool))
      throw StepFailure{call.place, "the tool can't be taken up: the host's paint system refuses"};

  views.Press(events.front(), keys);
  for (size_t i = 1; i < events.size(); ++i) {
    views.Move(events[i], keys);
    host::TheProgress().At(i, events.size());
  }
  views.Release(events.back(), keys);

  const int after = object.distribution.PlacementCount();
  out.Add("events", (long long)(events.size()));
  out.Add("before", before);
  out.Add("after", after);
  out.text = fmt::format("{}, {} events: {} -> {} placements", args.Text("tool"),
                         Grouped((long long)(events.size())), Grouped(before), Grouped(after));
}

void Leave(Stage& stage, const Call& call, Outcome& out) {
  if (!stage.Painting()) {
    out.text = "paint mode was off";
    return;
  }
  host::Viewports& views = stage.TheHost().Views();
  views.RightClick(views.MousePosition());
  if (stage.Painting()) throw StepFailure{call.place, "the right click didn't end paint mode"};
  out.text = "paint mode is off";
}

}  // namespace studio
