#include "studio/steps/views.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/math/elementary.h"
#include "host/scene/triobject.h"

namespace studio {

Point3 PointOf(const Value& list) {
  return {float(list.items[0].number), float(list.items[1].number), float(list.items[2].number)};
}

Box3 SceneBox(Stage& stage) {
  Box3 box, own;
  for (INode* n : stage.TheHost().GetScene().AllNodes()) {
    if (n->GetLayer() && n->GetLayer()->IsHidden()) continue;
    Object* object = n->EvalWorldState(stage.Now(), false).obj;
    if (!object) continue;
    Box3 b;
    object->GetWorldBoundBox(stage.Now(), n, nullptr, b);
    if (!IsFinite(b.Min()) || !IsFinite(b.Max())) continue;
    (Stage::SowfieldOf(n) ? own : box) += b;
  }
  return box.IsEmpty() ? own : box;
}

namespace {

constexpr double kMargin = 1.1;
constexpr float kSpanOfNothing = 10;

Point3 SideOf(const std::string& name) {
  if (name == "top") return {0, 0, 1};
  if (name == "bottom") return {0, 0, -1};
  if (name == "front") return {0, -1, 0};
  if (name == "back") return {0, 1, 0};
  return name == "left" ? Point3(-1, 0, 0) : Point3(1, 0, 0);
}

std::shared_ptr<ViewExp> ParallelView(Stage& stage, const std::string& side, const Value* center,
                                      const Value* span, int width, int height) {
  const Box3 box = SceneBox(stage);
  const Point3 middle = center ? PointOf(*center) : box.IsEmpty() ? Point3(0, 0, 0) : box.Center();
  const Point3 out = SideOf(side);
  const float away = box.IsEmpty() ? 1.0f : 1.0f + Length(box.Width());
  const Point3 eye = middle + out * away;
  const auto make = [&](float shown) {
    return std::make_shared<ViewExp>(ViewExp::Orthographic(eye, middle, shown, width, height));
  };
  if (span) return make(float(span->number));
  if (box.IsEmpty()) return make(kSpanOfNothing);

  // All corners of the box lie within the picture, about the middle.
  const Matrix3 view = make(1)->ViewToWorld();
  double across = 0, along = 0;
  for (int i = 0; i < 8; ++i) {
    const Point3 corner(i & 1 ? box.Max().x : box.Min().x, i & 2 ? box.Max().y : box.Min().y,
                        i & 4 ? box.Max().z : box.Min().z);
    across = std::max(across, std::fabs(double(DotProd(corner - middle, view.GetRow(0)))));
    along = std::max(along, std::fabs(double(DotProd(corner - middle, view.GetRow(1)))));
  }
  const double need = 2 * kMargin * std::max(across, along * width / height);
  return make(need > 0 ? float(need) : kSpanOfNothing);
}

}  // namespace

std::shared_ptr<ViewExp> MakeView(Stage& stage, const Args& args) {
  const std::vector<double> size = args.Numbers("size");
  const int width = int(size[0]), height = int(size[1]);
  const Value& view = args.Get("view");
  if (view.IsText()) return ParallelView(stage, view.text, nullptr, nullptr, width, height);

  const Args fields(ViewFields(), view);
  if (fields.Has("orthographic"))
    return ParallelView(stage, fields.Text("orthographic"), fields.Given("center"),
                        fields.Given("span"), width, height);
  if (const Value* camera = fields.Given("camera")) {
    INode* node = stage.Node(*camera);
    const Object* object = node->GetObjectRef();
    if (!object || object->SuperClassID() != CAMERA_CLASS_ID)
      throw StepFailure{camera->place, fmt::format("\"{}\" is no camera", camera->text)};
    return std::make_shared<ViewExp>(ViewExp::FromCamera(node, width, height));
  }
  const auto fov = float(fields.Number("fov") * host::kPi / 180);
  return std::make_shared<ViewExp>(ViewExp::Perspective(
      PointOf(fields.Get("eye")), PointOf(fields.Get("target")), fov, width, height));
}

namespace {

// Lengths along the way up to each of its points.
std::vector<double> Lengths(const std::vector<Pixel>& way) {
  std::vector<double> lengths = {0};
  for (size_t i = 1; i < way.size(); ++i)
    lengths.push_back(lengths.back() +
                      std::hypot(way[i].x - way[i - 1].x, way[i].y - way[i - 1].y));
  return lengths;
}

IPoint2 At(const std::vector<Pixel>& way, const std::vector<double>& lengths, double at) {
  const auto behind = std::lower_bound(lengths.begin(), lengths.end(), at);
  const auto round = [](const Pixel& p) {
    return IPoint2{int(std::lround(p.x)), int(std::lround(p.y))};
  };
  if (behind == lengths.end()) return round(way.back());
  const auto i = size_t(behind - lengths.begin());
  if (i == 0) return round(way.front());
  const double f = (at - lengths[i - 1]) / (lengths[i] - lengths[i - 1]);
  return round(
      {way[i - 1].x + (way[i].x - way[i - 1].x) * f, way[i - 1].y + (way[i].y - way[i - 1].y) * f});
}

}  // namespace

std::vector<IPoint2> EventsBySpacing(const std::vector<Pixel>& way, double spacing) {
  const std::vector<double> lengths = Lengths(way);
  std::vector<IPoint2> events;
  for (int i = 0; i * spacing < lengths.back(); ++i)
    events.push_back(At(way, lengths, i * spacing));
  events.push_back(At(way, lengths, lengths.back()));
  return events;
}

std::vector<IPoint2> EventsByCount(const std::vector<Pixel>& way, int count) {
  const std::vector<double> lengths = Lengths(way);
  std::vector<IPoint2> events;
  for (int i = 0; i + 1 < count; ++i)
    events.push_back(At(way, lengths, lengths.back() * i / (count - 1)));
  events.push_back(At(way, lengths, count > 1 ? lengths.back() : 0));
  return events;
}

Dropper::Dropper(Stage& stage, const Value& nodeName) {
  INode* node = stage.Node(nodeName);
  const EvaluatedMesh evaluated = EvalMesh(node, stage.Now());
  if (!evaluated)
    throw StepFailure{nodeName.place, fmt::format("\"{}\" has no surface", nodeName.text)};
  const Mesh& mesh = *evaluated.mesh;
  if (const std::string fault = mesh.FirstFault(); !fault.empty())
    throw StepFailure{nodeName.place,
                      fmt::format("the mesh of \"{}\" can't be used: {}", nodeName.text, fault)};
  const Matrix3 tm = node->GetObjectTM(stage.Now());
  for (const Face& f : mesh.faces) {
    Triangle t;
    for (int c = 0; c < 3; ++c) {
      const Point3 p = mesh.verts[f.v[c]] * tm;
      t.x[c] = p.x, t.y[c] = p.y, t.z[c] = p.z;
    }
    triangles_.push_back(t);
  }
}

std::optional<double> Dropper::HeightAt(double x, double y) const {
  std::optional<double> highest;
  for (const Triangle& t : triangles_) {
    // Twice the areas of the parts that the point cuts the triangle into, seen from above.
    double part[3];
    for (int c = 0; c < 3; ++c) {
      const int a = (c + 1) % 3, b = (c + 2) % 3;
      part[c] = (t.x[a] - x) * (t.y[b] - y) - (t.x[b] - x) * (t.y[a] - y);
    }
    const bool inside = (part[0] >= 0 && part[1] >= 0 && part[2] >= 0) ||
                        (part[0] <= 0 && part[1] <= 0 && part[2] <= 0);
    const double whole = part[0] + part[1] + part[2];
    if (!inside || whole == 0) continue;
    const double z = (part[0] * t.z[0] + part[1] * t.z[1] + part[2] * t.z[2]) / whole;
    if (!highest || z > *highest) highest = z;
  }
  return highest;
}

namespace {

std::vector<Pixel> WayOfPoints(Stage& stage, const Args& args, const ViewExp& view) {
  std::optional<Dropper> dropper;
  if (const Value* on = args.Given("on")) dropper.emplace(stage, *on);
  std::vector<Pixel> way;
  for (const Value& p : args.Get("points").items) {
    const double px = p.items[0].number, py = p.items[1].number;
    double pz = dropper ? 0 : p.items[2].number;
    if (dropper) {
      const std::optional<double> height = dropper->HeightAt(px, py);
      if (!height)
        throw StepFailure{
            p.place, fmt::format("\"{}\" has no surface at [{}, {}]", args.Text("on"), px, py)};
      pz = *height;
    }
    Pixel pixel;
    if (!view.ProjectToScreen(Point3(float(px), float(py), float(pz)), pixel.x, pixel.y))
      throw StepFailure{
          p.place,
          fmt::format("the point [{}, {}, {:.6g}] lies behind the view's eye", px, py, pz)};
    const double x = std::round(pixel.x), y = std::round(pixel.y);
    if (!(x >= 0 && x < view.Width() && y >= 0 && y < view.Height()))
      throw StepFailure{p.place,
                        fmt::format("the point [{}, {}, {:.6g}] lies outside of the view: at "
                                    "pixel [{:.0f}, {:.0f}] of {} x {}",
                                    px, py, pz, x, y, view.Width(), view.Height())};
    way.push_back(pixel);
  }
  return way;
}

}  // namespace

std::vector<IPoint2> StrokeEvents(Stage& stage, const Args& args, const ViewExp& view) {
  std::vector<Pixel> way;
  if (const Value* mouse = args.Given("mouse")) {
    for (const Value& p : mouse->items) way.push_back({p.items[0].number, p.items[1].number});
  } else {
    way = WayOfPoints(stage, args, view);
  }
  if (args.Has("events")) return EventsByCount(way, args.Integer("events"));
  return EventsBySpacing(way, args.Number("spacing"));
}

}  // namespace studio
