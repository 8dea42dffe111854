#include <fmt/format.h>

#include <cmath>

#include "host/core/control.h"
#include "host/math/elementary.h"
#include "host/math/quat.h"
#include "studio/job/paramrules.h"
#include "studio/steps/steps.h"
#include "studio/steps/views.h"

namespace studio {
namespace {

// A turn about X, then Y, then Z, in degrees.
std::array<double, 4> TurnOf(const Point3& degrees) {
  constexpr auto kRadians = float(host::kPi / 180);
  Matrix3 turn;
  if (degrees.x != 0) turn.RotateX(degrees.x * kRadians);
  if (degrees.y != 0) turn.RotateY(degrees.y * kRadians);
  if (degrees.z != 0) turn.RotateZ(degrees.z * kRadians);
  const Quat q(turn);
  return {q.x, q.y, q.z, q.w};
}

std::string KeyNode(Stage& stage, const Args& args, TimeValue t) {
  INode* node = stage.Node(*args.Given("node"));
  host::TransformParts asked{{1, 1, 1}, {0, 0, 0, 1}, {0, 0, 0}};
  unsigned parts = 0;
  std::string names;
  const auto take = [&](const char* field, unsigned part, auto&& use) {
    const Value* given = args.Given(field);
    if (!given) return;
    use(PointOf(*given));
    parts |= part;
    names += (names.empty() ? "" : ", ") + std::string(field);
  };
  take("position", TransformControl::kPosition, [&](const Point3& p) { asked.position = p; });
  take("rotation", TransformControl::kRotation,
       [&](const Point3& p) { asked.rotation = TurnOf(p); });
  take("scale", TransformControl::kScale, [&](const Point3& p) { asked.scale = {p.x, p.y, p.z}; });

  UndoStep step;
  node->GetTMController()->SetKeys(t, asked, parts);
  step.Accept(L"Key " + node->GetName());
  return fmt::format("{} of {}", names, ToUtf8(node->GetName()));
}

std::string KeyParam(Stage& stage, const Call& call, TimeValue t) {
  const Args& args = call.args;
  sowfield::Sowfield& object = stage.Edited(call.place);
  std::string why;
  const sowfield::ParamEntry* param = FindParamByName(args.Text("param"), why);
  double number = 0;
  if (!param || !NumberToStore(*param, *args.Given("value"), number, why))
    throw StepFailure{args.PlaceOf("param"), why};
  UndoStep step;
  if (!object.pblock2->SetKey(param->id, t, float(number)))
    throw StepFailure{args.PlaceOf("param"),
                      fmt::format("\"{}\" can't be animated", ToUtf8(param->name))};
  step.Accept(WStr(L"Key ") + param->name);
  return fmt::format("{} = {}", ToUtf8(param->name), number);
}

}  // namespace

void Key(Stage& stage, const Call& call, Outcome& out) {
  const double frame = call.args.Number("frame");
  const auto t = TimeValue(std::lround(frame * GetTicksPerFrame()));
  const std::string what =
      call.args.Has("node") ? KeyNode(stage, call.args, t) : KeyParam(stage, call, t);
  out.Add("frame", JsonOut().Double(frame).Str());
  out.text = fmt::format("{}, at frame {}", what, frame);
}

}  // namespace studio
