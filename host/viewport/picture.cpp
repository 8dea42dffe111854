#include "host/viewport/picture.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/scene/simpleobject.h"
#include "host/viewport/glcontext.h"
#include "host/viewport/glpainter.h"

namespace host {

namespace {

constexpr int kLargestSide = 8192;

struct Shown {
  const Mesh* mesh = nullptr;
  EvaluatedMesh kept;
  Matrix3 tm;
  std::vector<Color> colors;
};

bool IsFiniteMatrix(const Matrix3& tm) {
  for (int i = 0; i < 4; ++i)
    if (!IsFinite(tm.GetRow(i))) return false;
  return true;
}

std::vector<Color> FaceColors(const INode* node) {
  const Mtl* material = node->GetMtl();
  const Color wire = UnpackColor(node->GetWireColor());
  std::vector<Color> colors;
  for (int id = 0; id < std::max(1, material ? material->NumSubMtls() : 0); ++id) {
    const Mtl* m = MtlOfFace(material, id);
    colors.push_back(m ? m->GetDiffuse() : wire);
  }
  return colors;
}

Shown ShownBy(INode* node, TimeValue t) {
  Shown shown;
  const ILayer* layer = node->GetLayer();
  if (node->IsHidden() || (layer && layer->IsHidden())) return shown;
  shown.tm = node->GetObjectTM(t);
  if (!IsFiniteMatrix(shown.tm)) return shown;
  Object* object = node->EvalWorldState(t).obj;
  if (auto* simple = dynamic_cast<SimpleObject2*>(object)) {
    // Without the copy that a conversion would make.
    simple->UpdateMesh(t);
    shown.mesh = &simple->mesh;
  } else {
    shown.kept = MeshOf(object, t);
    shown.mesh = shown.kept.mesh;
  }
  if (shown.mesh && !shown.mesh->FirstFault().empty()) shown.mesh = nullptr;
  if (shown.mesh) shown.colors = FaceColors(node);
  return shown;
}

double Dot(const double* a, const Point3& b) { return a[0] * b.x + a[1] * b.y + a[2] * b.z; }

// The view's axes, and the origin of view space.
struct Frame {
  Point3 right, up, back;
  double origin[3];

  void ToView(const Matrix3& tm, double (&rows)[4][3]) const {
    for (int i = 0; i < 4; ++i) {
      const Point3& r = tm.GetRow(i);
      double d[3] = {r.x, r.y, r.z};
      if (i == 3)
        for (int k = 0; k < 3; ++k) d[k] -= origin[k];
      rows[i][0] = Dot(d, right);
      rows[i][1] = Dot(d, up);
      rows[i][2] = Dot(d, back);
    }
  }
  Point3 Turned(const Point3& world) const {
    return {DotProd(world, right), DotProd(world, up), DotProd(world, back)};
  }
};

// A parallel view sees what lies before and behind the eye: the frame moves into the middle of the
// scene's depth, and the lens reaches over all of it.
void FitDepth(const std::vector<Shown>& scene, Frame& frame, Lens& lens) {
  double nearest = -1e30, farthest = 1e30;
  for (const Shown& s : scene) {
    const Box3 box = s.mesh->getBoundingBox(&s.tm);
    if (box.IsEmpty()) continue;
    for (int i = 0; i < 8; ++i) {
      const double d[3] = {(i & 1 ? box.pmax : box.pmin).x - frame.origin[0],
                           (i & 2 ? box.pmax : box.pmin).y - frame.origin[1],
                           (i & 4 ? box.pmax : box.pmin).z - frame.origin[2]};
      nearest = std::max(nearest, Dot(d, frame.back));
      farthest = std::min(farthest, Dot(d, frame.back));
    }
  }
  if (nearest < farthest) nearest = farthest = 0;
  const double middle = 0.5 * (nearest + farthest);
  for (int k = 0; k < 3; ++k) frame.origin[k] += middle * frame.back[k];
  lens.reach = 1.01 * (0.5 * (nearest - farthest) + 2 * lens.halfWidth + 2 * lens.halfHeight);
}

// The plane on which ViewExp::SnapPoint puts points.
GridPlane GridOf(const ViewExp& view, const Frame& frame, const Lens& lens) {
  int across = 2;
  if (lens.parallel && std::fabs(frame.back.z) <= 1e-4f)
    across = std::fabs(frame.back.x) > std::fabs(frame.back.y) ? 0 : 1;
  const int iu = across == 0 ? 1 : 0, iv = across == 2 ? 1 : 2;
  Point3 u(0, 0, 0), v(0, 0, 0), n(0, 0, 0);
  u[iu] = v[iv] = n[across] = 1;

  GridPlane grid;
  grid.u = frame.Turned(u);
  grid.v = frame.Turned(v);
  grid.normal = frame.Turned(n);
  grid.eyeU = frame.origin[iu];
  grid.eyeV = frame.origin[iv];
  grid.height = frame.origin[across];
  double size = view.Span();
  if (!lens.parallel) {
    // The way to the plane along the middle of the view, as far as that says something.
    const double height = std::max(std::fabs(grid.height), 1e-6);
    const double fall = frame.back.z * (grid.height < 0 ? -1.0 : 1.0);
    size = fall > 0.1 ? height / fall : 10 * height;
  }
  grid.spacing = std::pow(10.0, std::floor(std::log10(0.3 * size)));
  grid.fade = 12 * size;
  return grid;
}

bool SetUp(const ViewExp& view, Frame& frame, Lens& lens, std::string& error) {
  const int w = view.Width(), h = view.Height();
  if (w < 1 || w > kLargestSide || h < 1 || h > kLargestSide) {
    error = "a picture of " + std::to_string(w) + " x " + std::to_string(h) +
            " pixels: each side must be 1 to " + std::to_string(kLargestSide);
    return false;
  }
  if (!view.IsAlive()) return error = "the view's camera has left the scene", false;
  const Matrix3 axes = view.ViewToWorld();
  lens.parallel = view.GetKind() == ViewExp::Kind::Orthographic;
  lens.halfWidth = lens.parallel ? 0.5 * view.Span() : double(host::Tan(0.5 * view.Fov()));
  lens.halfHeight = lens.halfWidth * h / w;
  const bool sound = std::isfinite(lens.halfWidth) && lens.halfWidth > 0;
  if (!sound || !IsFiniteMatrix(axes) || !axes.IsInvertible())
    return error = "the view has no sound direction or opening", false;
  frame = {axes.GetRow(0),
           axes.GetRow(1),
           axes.GetRow(2),
           {axes.GetTrans().x, axes.GetTrans().y, axes.GetTrans().z}};
  return true;
}

}  // namespace

std::optional<Picture> DrawScene(Interface& ip, const ViewExp& view, const PictureOptions& options,
                                 std::string& error) {
  Frame frame;
  Lens lens;
  if (!SetUp(view, frame, lens, error)) return std::nullopt;
  std::vector<Shown> scene;
  for (INode* node : ip.GetScene().AllNodes())
    if (Shown shown = ShownBy(node, ip.GetTime()); shown.mesh) scene.push_back(std::move(shown));
  if (lens.parallel) FitDepth(scene, frame, lens);

  const GlScope scope;
  if (!scope.Error().empty()) return error = scope.Error(), std::nullopt;
  GlPainter painter(view.Width(), view.Height(), lens, frame.Turned({0, 0, 1}));
  for (const Shown& s : scene) {
    PaintedMesh painted;
    painted.mesh = s.mesh;
    painted.colors = s.colors;
    frame.ToView(s.tm, painted.toView);
    painter.Draw(painted);
  }
  if (options.grid) painter.DrawGrid(GridOf(view, frame, lens));
  Picture picture{view.Width(), view.Height(), {}};
  if (!painter.Finish(picture.rgb, error)) return std::nullopt;
  return picture;
}

}  // namespace host
