#include "host/viewport/picture.h"

#include <algorithm>
#include <cmath>

#include "host/core/progress.h"
#include "host/interface.h"
#include "host/math/elementary.h"
#include "host/viewport/glcontext.h"
#include "host/viewport/glmesh.h"
#include "host/viewport/glpainter.h"
#include "host/viewport/picturestore.h"
#include "host/viewport/scenedrawing.h"

namespace host {

namespace {

constexpr int kLargestSide = 8192;

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

/// How far a scene reaches along the view's backward axis.
struct Depths {
  double nearest = -1e30, farthest = 1e30;
  void Add(double z) {
    if (!std::isfinite(z)) return;
    nearest = std::max(nearest, z);
    farthest = std::min(farthest, z);
  }
};

void AddWindow(const GraphicsWindow& window, const std::vector<BatchRows>& batches, Depths& reach) {
  const auto add = [&](const auto& list, size_t GraphicsWindow::Batch::*first) {
    for (size_t b = 0; b < batches.size(); ++b) {
      const bool last = b + 1 == batches.size();
      const size_t end = last ? list.size() : window.Batches()[b + 1].*first;
      const auto& rows = batches[b].toView;
      for (size_t i = window.Batches()[b].*first; batches[b].shown && i < end; ++i) {
        const Point3& p = list[i].at;
        reach.Add(p.x * rows[0][2] + p.y * rows[1][2] + p.z * rows[2][2] + rows[3][2]);
      }
    }
  };
  add(window.Dots(), &GraphicsWindow::Batch::firstDot);
  add(window.Lines(), &GraphicsWindow::Batch::firstLine);
  add(window.Texts(), &GraphicsWindow::Batch::firstText);
}

std::vector<BatchRows> RowsOf(const GraphicsWindow& window, const Frame& frame) {
  std::vector<BatchRows> rows(window.Batches().size());
  for (size_t b = 0; b < rows.size(); ++b) {
    const Matrix3& toWorld = window.Batches()[b].toWorld;
    rows[b].shown = IsFiniteMatrix(toWorld);
    if (rows[b].shown) frame.ToView(toWorld, rows[b].toView);
  }
  return rows;
}

/// A mesh of the scene with its buffers.
struct ShownMesh {
  const ShownNode* node = nullptr;
  const GlMesh* mesh = nullptr;
};

// A parallel view sees what lies before and behind the eye: the frame moves into the middle of the
// scene's depth, and the lens reaches over all of it.
void FitDepth(const std::vector<ShownMesh>& meshes, const GraphicsWindow& window, Frame& frame,
              Lens& lens) {
  Depths reach;
  AddWindow(window, RowsOf(window, frame), reach);
  for (const ShownMesh& shown : meshes) {
    const Box3 box = TransformCorners(shown.mesh->Box(), shown.node->tm);
    for (int i = 0; i < 8 && !box.IsEmpty(); ++i) {
      const double d[3] = {(i & 1 ? box.pmax : box.pmin).x - frame.origin[0],
                           (i & 2 ? box.pmax : box.pmin).y - frame.origin[1],
                           (i & 4 ? box.pmax : box.pmin).z - frame.origin[2]};
      reach.Add(Dot(d, frame.back));
    }
  }
  if (reach.nearest < reach.farthest) reach = {0, 0};
  const double middle = 0.5 * (reach.nearest + reach.farthest);
  for (int k = 0; k < 3; ++k) frame.origin[k] += middle * frame.back[k];
  lens.reach =
      1.01 * (0.5 * (reach.nearest - reach.farthest) + 2 * lens.halfWidth + 2 * lens.halfHeight);
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
  const Projection seen = view.GetProjection();
  lens = {seen.parallel, seen.halfWidth, seen.halfHeight};
  const bool sound = std::isfinite(lens.halfWidth) && lens.halfWidth > 0;
  if (!sound || !IsFiniteMatrix(seen.axes) || !seen.axes.IsInvertible())
    return error = "the view has no sound direction or opening", false;
  const Point3 eye = seen.axes.GetTrans();
  frame = {seen.axes.GetRow(0), seen.axes.GetRow(1), seen.axes.GetRow(2), {eye.x, eye.y, eye.z}};
  return true;
}

/// One picture, drawn in the two halves of a redraw. Between them the meshes may go away: they are
/// with OpenGL then.
class PictureDrawing {
 public:
  PictureDrawing(Interface& ip, ViewExp& view, bool grid) : ip_(ip), view_(view), grid_(grid) {}
  PictureDrawing(const PictureDrawing&) = delete;
  PictureDrawing& operator=(const PictureDrawing&) = delete;
  ~PictureDrawing() {
    const GlScope scope;
    painter_.reset();
  }

  void Draw(TimeValue t) {
    const std::vector<ShownNode> scene = ShowNodes(ip_, view_, t);
    if (!SetUp(view_, frame_, lens_, error_)) return;
    const GlScope scope;
    error_ = scope.Error();
    if (!error_.empty()) return;
    painter_.reset();  // of the pass before
    PictureStore& store = ip_.Views().Store();
    store.Begin();
    std::vector<ShownMesh> meshes;
    for (const ShownNode& node : scene)
      for (const RenderItem& item : node.items.Items())
        if (const GlMesh& mesh = store.Of(*item.mesh); mesh.Drawable())
          meshes.push_back({&node, &mesh});
    if (lens_.parallel) FitDepth(meshes, *view_.getGW(), frame_, lens_);
    painter_.emplace(store, view_.Width(), view_.Height(), lens_, frame_.Turned({0, 0, 1}));
    std::vector<PaintedMesh> painted(meshes.size());
    for (size_t i = 0; i < meshes.size(); ++i) {
      TheProgress().At(i, meshes.size());
      painted[i].mesh = meshes[i].mesh;
      painted[i].colors = FaceColors(meshes[i].node->node.get());
      frame_.ToView(meshes[i].node->tm, painted[i].toView);
    }
    painter_->Draw(painted);
  }

  void Present(Picture& picture) {
    if (!error_.empty()) return;
    const GlScope scope;
    const GraphicsWindow& window = *view_.getGW();
    painter_->DrawWindow(window, RowsOf(window, frame_));
    if (grid_) painter_->DrawGrid(GridOf(view_, frame_, lens_));
    picture.width = view_.Width(), picture.height = view_.Height();
    painter_->Finish(picture.rgb, error_);
  }

  const std::string& Error() const { return error_; }

 private:
  Interface& ip_;
  ViewExp& view_;
  bool grid_;
  Frame frame_;
  Lens lens_;
  std::optional<GlPainter> painter_;
  std::string error_;
};

/// Makes a view the active one with the pointer in it, and puts back what was before.
class PointerInView {
 public:
  PointerInView(Viewports& views, ViewExp& view, const IPoint2& at)
      : views_(views), viewBefore_(views.ActiveView()), pointerBefore_(views.MousePosition()) {
    views.PointInto({std::shared_ptr<ViewExp>(), &view}, at);
  }
  PointerInView(const PointerInView&) = delete;
  PointerInView& operator=(const PointerInView&) = delete;
  ~PointerInView() { views_.PointInto(viewBefore_, pointerBefore_); }

 private:
  Viewports& views_;
  std::shared_ptr<ViewExp> viewBefore_;
  IPoint2 pointerBefore_;
};

}  // namespace

std::optional<Picture> DrawScene(Interface& ip, ViewExp& view, const PictureOptions& options,
                                 std::string& error) {
  Viewports& views = ip.Views();
  Frame frame;
  Lens lens;
  if (!SetUp(view, frame, lens, error)) return std::nullopt;
  if (views.IsDrawing()) return error = "the views are being redrawn", std::nullopt;
  std::optional<PointerInView> pointer;
  if (options.pointer) pointer.emplace(views, view, *options.pointer);

  Picture picture;
  PictureDrawing drawing(ip, view, options.grid);
  views.RedrawApart(
      view, ip.GetTime(),
      {[&](TimeValue t) { drawing.Draw(t); }, [&](TimeValue) { drawing.Present(picture); }});
  error = drawing.Error();
  if (!error.empty()) return std::nullopt;
  return picture;
}

}  // namespace host
