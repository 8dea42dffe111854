#include "host/viewport/picture.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <string>

#include "host/files/file.h"
#include "host/files/png.h"
#include "host/scene/mtl.h"
#include "host/viewport/glcontext.h"
#include "host/viewport/glpainter.h"
#include "host/viewport/graphicswindow.h"
#include "host/viewport/meshstaging.h"
#include "host/viewport/picturestore.h"
#include "host/viewport/snap.h"
#include "host/viewport/viewports.h"
#include "tests/host/extras.h"

namespace {

using host::Picture;

/// Whether a channel of two RGB pixels differs by more than 24 levels.
bool PixelsDiffer(const std::uint8_t* a, const std::uint8_t* b) {
  return std::abs(a[0] - b[0]) > 24 || std::abs(a[1] - b[1]) > 24 || std::abs(a[2] - b[2]) > 24;
}

Picture ReadPng(const std::string& path) {
  Picture picture;
  png_image image = {};
  image.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return picture;
  EXPECT_EQ(image.format, unsigned(PNG_FORMAT_RGB)) << path;
  picture.width = int(image.width), picture.height = int(image.height);
  picture.rgb.resize(PNG_IMAGE_SIZE(image));
  EXPECT_TRUE(png_image_finish_read(&image, nullptr, picture.rgb.data(), 0, nullptr)) << path;
  return picture;
}

/// Compares a picture, as it comes back from a file, with tests/golden/NAME.png. Drivers differ at
/// edges: up to 0.5 % of the pixels may differ. The file of a picture that differs stays beside the
/// program's output; where it is right, it takes the other's place.
void ExpectGolden(const Picture& picture, const std::string& name) {
  const std::string golden = std::string(SOWFIELD_GOLDEN_DIR) + "/" + name + ".png";
  const std::string found = std::filesystem::absolute(name + "_found.png").string();
  std::string error;
  std::vector<std::byte> png;
  EXPECT_TRUE(host::EncodePng(picture.width, picture.height, picture.rgb, png, error) &&
              host::WriteFileSafely(found, png, error))
      << error;
  const Picture read = ReadPng(found), expected = ReadPng(golden);
  EXPECT_EQ(read.rgb, picture.rgb);
  EXPECT_TRUE(read.width == expected.width && read.height == expected.height) << golden;
  const size_t size = read.rgb.size();
  size_t apart = expected.rgb.size() == size ? 0 : size / 3;
  for (size_t p = 0; p < std::min(size, expected.rgb.size()); p += 3)
    apart += PixelsDiffer(&expected.rgb[p], &read.rgb[p]);
  if (size > 0 && double(apart) <= 0.005 * double(size / 3))
    std::filesystem::remove(found);
  else
    ADD_FAILURE() << apart << " pixels differ from " << golden << "; found: " << found;
}

class Drawing : public Staged {
 protected:
  INode* Box(const Point3& middle, float size, ColorRef color = PackColor(220, 30, 30)) {
    auto* box = new BoxObject;
    box->SetSize(size, size, size);
    return Add(box, middle - Point3(0, 0, size / 2), color);
  }
  Picture Draw(ViewExp view, const host::PictureOptions& options = {.grid = false}) {
    std::string error;
    const auto picture = host::DrawScene(ip_, view, options, error);
    EXPECT_TRUE(picture) << error;
    return picture.value_or(Picture{});
  }
  /// The channel that stands out by at least 40 levels, or -1: the light is nearly colourless.
  static int Hue(const Picture& p, int x, int y) {
    const std::uint8_t* c = &p.rgb.at((size_t(y) * size_t(p.width) + size_t(x)) * 3);
    for (int i = 0; i < 3; ++i)
      if (c[i] >= 40 + std::max(c[(i + 1) % 3], c[(i + 2) % 3])) return i;
    return -1;
  }
};

TEST_F(Drawing, TheNearestNodeIsSeenInTheColourOfItsMaterial) {
  Box({std::numeric_limits<float>::quiet_NaN(), 0, 0}, 1);
  // The farther one is 0.05 behind at 20 units, and 50 behind at 20,000.
  for (const float unit : {1.0f, 1000.0f}) {
    INode* front = Box({0, 0, 0}, 2 * unit);
    Box({0, 0.05f * unit, 0}, 2 * unit, PackColor(40, 40, 220));
    const ViewExp view = ViewExp::Perspective({0, -20 * unit, 0}, {0, 0, 0}, 0.3f, 100, 100);
    auto* multi = new MultiMtl;
    front->SetMtl(multi);
    for (int id = 0; id < 6; ++id) multi->SetSubMtl(id, nullptr);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 0) << "an empty slot shows the wire colour";
    front->SetMtl(new StdMtl);
    front->GetMtl()->SetDiffuse({0.02f, 0.6f, 0.02f}, 0);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 1) << unit;
    front->Hide(true);
    EXPECT_EQ(Hue(Draw(view), 50, 50), 2) << unit;
  }
}

// A disc of dots and a wire box round a real one, half of each behind it, with a caption.
void DrawExhibit(GraphicsWindow& gw) {
  for (int i = 0; i < 24; ++i) {
    const float a = float(i) * 0.2617994f;
    gw.setColor(LINE_COLOR, i % 2 ? 0.9f : 0.0f, 0.1f, i % 2 ? 0.0f : 0.8f);
    gw.marker({3.4f * std::cos(a), 3.4f * std::sin(a), 0}, DOT_MRKR);
  }
  gw.setColor(LINE_COLOR, 0, 0.45f, 0);
  const auto low = Square({0, 0, 0}, 2), high = Square({0, 0, 3}, 2);
  for (size_t i = 0; i < 4; ++i) {
    const Point3 side[] = {low[(i + 1) % 4], low[i], high[i], high[(i + 1) % 4]};
    gw.polyline(4, side, false);
  }
  gw.setColor(TEXT_COLOR, 1, 0, 0);
  gw.text({-2, -2, 3.4f}, L"box 3");
}

TEST_F(Drawing, LooksAsItDidBefore) {
  Plane({0, 0, 0}, 12, 300, PackColor(190, 170, 120));  // drawn in several loads
  Box({0, 0, 1}, 2, PackColor(120, 130, 150));
  auto* ball = new SphereObject;
  ball->SetSize(1.2f, 32);
  Add(ball, {-3.5f, 3, 1.2f}, PackColor(60, 140, 70));
  const ViewExp perspective = ViewExp::Perspective({7, -10, 6}, {0, 0, 1}, 0.9f, 160, 120);
  ExpectGolden(Draw(perspective, {.grid = true}), "meshes");
  Add(new Extras(DrawExhibit));
  ExpectGolden(Draw(perspective), "drawn_perspective");
  ExpectGolden(Draw(ViewExp::Orthographic({0, -20, 1}, {0, 0, 1}, 12, 160, 120), {.grid = true}),
               "drawn_front");
  ExpectGolden(Draw(FlatView(14, 160, 120)), "drawn_top");
}

TEST_F(Drawing, WhatIsDrawnOverAllIsHiddenByNothingBeforeOrAfterIt) {
  Box({0, 0, 0}, 4, PackColor(40, 40, 220));
  bool over = false;
  Add(new Extras([&](GraphicsWindow& gw) {
    gw.setColor(LINE_COLOR, 1, 0, 0);
    const Point3 inside[] = {{-1.8f, 0, 0}, {1.8f, 0, 0}}, before[] = {{0, -3, -1}, {0, -3, 1}};
    gw.setRndLimits(over ? GW_ILLUM : GW_ILLUM | GW_Z_BUFFER);
    gw.polyline(2, inside, false);
    gw.setRndLimits(GW_ILLUM | GW_Z_BUFFER);
    gw.setColor(LINE_COLOR, 0, 0.8f, 0);
    gw.polyline(2, before, false);
  }));
  const ViewExp view = ViewExp::Orthographic({0, -20, 0}, {0, 0, 0}, 10, 100, 100);
  for (const bool o : {false, true}) {
    over = o;
    const Picture picture = Draw(view, {.grid = true});
    EXPECT_EQ(Hue(picture, 40, 50), over ? 0 : 2);
    EXPECT_EQ(Hue(picture, 50, 45), 1);
  }
}

float Uniform(float low, float high, std::mt19937& random) {
  return low + (high - low) * float(random() >> 8) * 0x1p-24f;
}
Point3 Within(float far, std::mt19937& random) {
  const auto any = [&] { return Uniform(-far, far, random); };
  return {any(), any(), any()};
}

/// A mesh of parts that share no vertices: fans of 3 to 6 corners round a random place, within 4 of
/// the origin, smoothed or not, in one of four materials.
class Parts {
 public:
  explicit Parts(unsigned seed) : random_(seed) {}

  size_t Count() const { return parts_.size(); }
  /// Puts `come` new parts in the place of up to `go`, from the part `at` on, and tells the mesh.
  void Replace(size_t at, size_t go, size_t come) {
    at = std::min(at, parts_.size()), go = std::min(go, parts_.size() - at);
    MeshSplice told;
    for (size_t i = 0; i < at + go; ++i) {
      (i < at ? told.verts.first : told.verts.removed) += parts_[i].size();
      (i < at ? told.faces.first : told.faces.removed) += parts_[i].size() - 2;
    }
    const auto place = parts_.erase(parts_.begin() + long(at), parts_.begin() + long(at + go));
    std::vector<std::vector<Point3>> fresh(come);
    for (std::vector<Point3>& part : fresh) {
      part = Fan();
      told.verts.added += part.size(), told.faces.added += part.size() - 2;
    }
    parts_.insert(place, fresh.begin(), fresh.end());
    Fill();
    mesh.Spliced(told);
  }
  /// Any change.
  void Change() { Replace(random_() % (Count() + 1), random_() % 4, random_() % 4); }

  Mesh mesh;

 private:
  std::vector<Point3> Fan() {
    const Point3 middle = Within(3, random_);
    std::vector<Point3> fan(3 + random_() % 4);
    for (Point3& p : fan) p = middle + Within(1, random_);
    return fan;
  }
  // Straight into the tables: sizes set through the mesh would tell that all has changed.
  void Fill() {
    mesh.verts.clear(), mesh.faces.clear();
    for (const std::vector<Point3>& part : parts_) {
      const auto first = std::uint32_t(mesh.verts.size()), n = std::uint32_t(part.size());
      for (std::uint32_t k = 2; k < n; ++k)
        mesh.faces.push_back({{first, first + k - 1, first + k}, n % 2, (n % 4) << 16 | EDGE_ALL});
      mesh.verts.insert(mesh.verts.end(), part.begin(), part.end());
    }
  }

  std::mt19937 random_;
  std::vector<std::vector<Point3>> parts_;
};

/// The picture of some meshes from the front, with what the store keeps.
std::vector<std::uint8_t> Paint(host::PictureStore& store, const std::vector<const Mesh*>& meshes) {
  const host::GlScope scope;
  std::vector<std::uint8_t> rgb;
  std::string error = scope.Error();
  if (error.empty()) {
    store.Begin();
    std::vector<host::PaintedMesh> painted;
    for (const Mesh* mesh : meshes) {
      const host::GlMesh& gl = store.Of(*mesh);
      host::PaintedMesh one{gl.Drawable() ? &gl : nullptr, {}, {{0.1f, 0.2f, 0.3f}, {1, 0, 0.5f}}};
      for (int k = 0; k < 3; ++k) one.toView[k][k] = 1;
      one.toView[3][0] = 8 * float(painted.size()) - 4, one.toView[3][2] = -12;
      if (one.mesh) painted.push_back(one);
    }
    host::GlPainter painter(store, 160, 80, {false, 1, 0.5}, {0, 1, 0});
    painter.Draw(painted);
    painter.Finish(rgb, error);
  }
  EXPECT_EQ(error, "");
  return rgb;
}

TEST(KeptPictures, AreThoseFromScratchAfterAnyChange) {
  host::PictureStore kept;
  Parts parts(11);
  parts.Replace(0, 0, 9000);  // some 22,000 faces: more than one piece
  const auto expectSame = [&](const std::vector<const Mesh*>& meshes) {
    std::vector<Mesh> anew;
    for (const Mesh* mesh : meshes) anew.push_back(*mesh), anew.back().InvalidateGeomCache();
    std::vector<const Mesh*> unknown;
    for (const Mesh& mesh : anew) unknown.push_back(&mesh);
    host::PictureStore fresh;
    EXPECT_TRUE(Paint(kept, meshes) == Paint(fresh, unknown));
    EXPECT_EQ(kept.Meshes(), fresh.Meshes());
  };
  expectSame({&parts.mesh});
  for (int round = 0; round < 12; ++round) {
    const Mesh before = parts.mesh;
    for (int i = 0; i < round; ++i) parts.Change();
    if (round == 9) parts.Replace(10, 5000, 1);
    if (round == 10) parts.Replace(parts.Count(), 0, 5000);
    // Twice a mesh that shows the old content beside the new.
    if (round == 3 || round == 5) expectSame({&before, &parts.mesh});
    expectSame({&parts.mesh});
    if (round != 1) continue;
    const size_t sent = kept.Of(parts.mesh).FacesSent();
    EXPECT_TRUE(sent > 0 && sent < parts.mesh.faces.size() * 2 / 3) << sent << " for one change";
  }
  Mesh broken = parts.mesh;
  broken.faces[7].v[1] = std::uint32_t(broken.verts.size());
  broken.InvalidateTopologyCache();
  const host::GlScope scope;
  EXPECT_FALSE(kept.Of(broken).Drawable());
  broken = parts.mesh;
  broken.setNumFaces(0);
  parts.Replace(0, parts.Count(), 0);
  for (const Mesh* none : {&broken, &parts.mesh}) EXPECT_FALSE(kept.Of(*none).Drawable());
}

TEST(MeshStaging, GivesEachCornerItsPlaceMaterialAndNormal) {
  // 500 faces round a vertex on the average, of groups that share bits or don't.
  std::mt19937 random(2);
  Mesh mesh;
  for (int i = 0; i < 120; ++i)
    mesh.verts.push_back({float(random() % 97), float(random() % 89), float(random() % 83)});
  for (int i = 0; i < 20000; ++i) {
    const auto v = [&] { return std::uint32_t(i < 19990 ? random() % 117 : 117 + random() % 3); };
    const auto pick = [&](unsigned n) { return std::uint32_t(random() % n); };
    mesh.faces.push_back({{v(), v(), v()}, pick(4), pick(3) << 16});
  }
  const std::vector<Point3> smooth = CornerNormals(mesh);
  host::MeshStaging staging(mesh);
  const auto ends = staging.PieceEnds(0, mesh.faces.size());
  ASSERT_TRUE(ends && *ends == std::vector<size_t>{20000}) << "all hang together but for a few";
  size_t corner = 0;
  for (const host::StagedChunk& chunk : staging.Stage(0, 20000).chunks)
    for (const std::uint16_t index : chunk.indices) {
      const host::StagedVertex& made = chunk.vertices.at(index);
      const Face& f = mesh.faces[corner / 3];
      const Point3& a = mesh.verts[f.v[0]];
      Point3 n = smooth[corner];
      if (f.smGroup == 0 || Length(n) <= 0.5f)
        n = Normalize(CrossProd(mesh.verts[f.v[1]] - a, mesh.verts[f.v[2]] - a));
      ASSERT_TRUE(made.position == mesh.verts[f.v[corner % 3]] && made.material == f.getMatID());
      for (int k = 0; k < 3; ++k) ASSERT_NEAR(made.normal[k], n[k] * 32767, 1) << corner;
      ++corner;
    }
  EXPECT_EQ(corner, 60000u);
}

TEST(GlContext, WhatIsMissingIsNamedWithItsPackage) {
  EXPECT_EQ(host::MissingLibrary({{"libnone.so.1", "none"}, {"libm.so.6", "libc6"}}), "");
  const std::string says = host::MissingLibrary({{"libnone.so.1", "none1"}, {"libno.so", "no"}});
  for (const char* part : {"libnone.so.1", "none1", "libno.so"})
    EXPECT_NE(says.find(part), std::string::npos) << says;
}

/// Draws a red square, 5 wide, round the place under the pointer, and lists where that is.
struct Marking : RedrawViewsCallback {
  void proc(Interface* ip) override {
    ViewExp& view = *ip->GetActiveViewExp();
    const IPoint2 at = ip->GetMousePosition();
    list += "callback " + std::to_string(at.x) + " ";
    view.getGW()->setTransform(Matrix3());
    view.getGW()->setColor(LINE_COLOR, 1, 0, 0);
    view.getGW()->polyline(4, Square(view.SnapPoint(at) + Point3(0, 0, 5), 2.5f).data(), true);
  }
  std::string list;
};

TEST_F(Drawing, ARedrawGoesFromDisplayToItemsToCallbacks) {
  Marking marking;
  std::string& list = marking.list;
  for (const bool hidden : {false, true})
    Add(new Extras([&](auto&) { list += "Display "; }, [&] { list += "Items "; }))->Hide(hidden);
  const auto active = std::make_shared<ViewExp>(FlatView());
  ip_.Views().SetActive(active);
  ip_.Views().Move({7, 7});
  ip_.RegisterRedrawViewsCallback(&marking);

  // Two pixels a unit. A picture's view isn't the active one.
  EXPECT_EQ(Hue(Draw(FlatView(50)), 50, 45), -1);
  EXPECT_EQ(list, "Display Items ");
  list.clear();
  // The square reaches 5 pixels from the pointer; it comes and goes without the scene.
  const Picture pointed = Draw(FlatView(50), {.grid = false, .pointer = IPoint2{70, 30}});
  for (const IPoint2& at : {IPoint2{65, 30}, {75, 30}, {70, 25}, {70, 35}})
    EXPECT_EQ(Hue(pointed, at.x, at.y), 0) << at.x << ", " << at.y;
  EXPECT_EQ(list, "callback 70 Display Items callback 70 callback 7 ");
  EXPECT_EQ(ip_.GetActiveViewExp(), active.get());
  ip_.RedrawViews(0);
  ip_.RedrawViews(0);
  EXPECT_EQ(active->getGW()->Lines().size(), 8u) << "what one redraw drew";
  ip_.UnRegisterRedrawViewsCallback(&marking);
}

TEST_F(Drawing, RedrawsAskedForInDisplayAreDoneAfterwards) {
  std::string list, why;
  int asks = 1, windows = 0;
  INode* node = nullptr;
  const auto draw = [&](GraphicsWindow& gw) {
    gw.setColor(LINE_COLOR, 1, 0, 0);
    gw.marker({0, 0, 0}, DOT_MRKR);
    ViewExp view = FlatView();
    EXPECT_FALSE(host::DrawScene(ip_, view, {}, why));
    list += asks > 0 ? "Display asked " : "Display ";
    if (asks-- <= 0) return;
    node->SetNodeTM(0, TransMatrix({3, 0, 0}));
    ip_.RedrawViews(0);
  };
  node = Add(new Extras(draw, [&] { list += "Items "; }));
  ip_.Views().SetPainter([&](TimeValue) { ++windows; });
  // Ten pixels a unit: the picture is that of the second pass.
  EXPECT_EQ(Hue(Draw(FlatView(10)), 80, 50), 0);
  EXPECT_EQ(list, "Display asked Items Display Items ");
  EXPECT_EQ(windows, 1) << "they were asked for too";
  asks = 1000;
  Draw(FlatView(10));
  EXPECT_EQ(asks, 1000 - host::Viewports::kMostPasses);
  ip_.Views().SetPainter(nullptr);
}

constexpr int kWidth = 96, kHeight = 72;

/// At a point, or in the rectangle of two.
bool Hits(ViewExp& view, const Extras::Draw& draw, std::vector<IPoint2> p, bool crossing = true) {
  GraphicsWindow& gw = *view.getGW();
  gw.setHitRegion(MakeHitRegion(HitType(p.size() - 1), crossing, 4, p.data()));
  gw.clearHitCode();
  const unsigned limits = gw.getRndLimits();
  gw.setRndLimits(GW_PICK);
  draw(gw);
  gw.setRndLimits(limits);
  return gw.checkHitCode();
}

/// The pixels that a drawing changes in the picture of a view.
std::vector<IPoint2> Changed(ViewExp& view, const Extras::Draw& draw) {
  host::Host host;
  std::string error;
  const auto before = host::DrawScene(host.Services(), view, {.grid = false}, error);
  host.Services().CreateObjectNode(new Extras(draw));
  const auto after = host::DrawScene(host.Services(), view, {.grid = false}, error);
  EXPECT_TRUE(before && after) << error;
  std::vector<IPoint2> changed;
  for (int i = 0; before && after && i < kWidth * kHeight; ++i)
    if (PixelsDiffer(&before->rgb[size_t(i) * 3], &after->rgb[size_t(i) * 3]))
      changed.push_back({i % kWidth, i / kWidth});
  return changed;
}

TEST(GraphicsWindow, WhatIsDrawnIsHitAndNothingFarFromIt) {
  std::mt19937 random(3);
  const auto uniform = [&](float low, float high) { return Uniform(low, high, random); };
  const auto point = [&](float far) { return Within(far, random); };
  int seen = 0, unseen = 0;
  for (int round = 0; round < 48; ++round) {
    const Point3 eye = point(12), target = point(3);
    ViewExp view = round % 3 == 0
                       ? ViewExp::Orthographic(eye, target, uniform(8, 20), kWidth, kHeight)
                       : ViewExp::Perspective(eye, target, uniform(0.5f, 1.8f), kWidth, kHeight);
    Matrix3 tm;
    tm.RotateX(uniform(0, 6));
    tm.Scale({uniform(0.5f, 2), 1, -1});
    tm.SetTrans(point(4));
    const Point3 p[] = {point(14), point(14), point(14), point(14)};
    const Extras::Draw draw = [=](GraphicsWindow& gw) {
      gw.setTransform(tm);
      if (round % 4 == 0) gw.marker(p[0] * 0.3f, DOT_MRKR);
      if (round % 4 == 1) gw.polyline(2, p, false);
      if (round % 4 == 2) gw.polyline(4, p, true);
      if (round % 4 == 3) gw.text(p[0] * 0.3f, L"ab");
      gw.setTransform(TransMatrix(p[1]));
      gw.marker(p[2] * 0.3f, DOT_MRKR);
    };
    const std::vector<IPoint2> changed = Changed(view, draw);
    ++(changed.empty() ? unseen : seen);
    for (const IPoint2& at : changed)
      ASSERT_TRUE(Hits(view, draw, {at})) << "round " << round << " at " << at.x << ", " << at.y;
    // What is outside the picture may reach 12 pixels into it.
    for (int y = 12; y < kHeight - 12; y += 3)
      for (int x = 12; x < kWidth - 12; x += 3) {
        const bool near = std::any_of(changed.begin(), changed.end(), [&](const IPoint2& at) {
          return std::abs(at.x - x) <= 12 && std::abs(at.y - y) <= 12;
        });
        ASSERT_FALSE(!near && Hits(view, draw, {{x, y}})) << round << " at " << x << ", " << y;
      }
  }
  EXPECT_GT(seen, 20);
  EXPECT_GT(unseen, 2);
}

TEST(GraphicsWindow, NothingAtTheEyeOrBehindItIsHit) {
  ViewExp view = SquareView();
  for (const float y : {-3.0f, 0.0f, std::numeric_limits<float>::quiet_NaN()}) {
    const auto behind = [&](GraphicsWindow& gw) {
      const Point3 across[] = {{-9, y, 0}, {9, y, 0}};
      gw.marker({0, y, 0}, DOT_MRKR);
      gw.polyline(2, across, false);
      gw.text({0, y, 0}, L"text");
    };
    EXPECT_FALSE(Hits(view, behind, {{0, 0}, {99, 99}})) << y;
  }
  const auto before = [](GraphicsWindow& gw) { gw.marker({0, 2, 0}, DOT_MRKR); };  // at 49.5, 49.5
  EXPECT_TRUE(Hits(view, before, {{60, 60}, {40, 40}}, false));
  EXPECT_FALSE(Hits(view, before, {{50, 40}, {60, 60}}, false)) << "half of the dot";
}

using Picking = Staged;

TEST_F(Picking, FacesAreHitWhereTheyAreSeenInTheOrderOfTheScene) {
  const float inf = std::numeric_limits<float>::infinity();
  INode *plane = Plane({0, 0, 3}, 60), *upper = Plane({0, 0, 9}, 20), *layered = Plane({}, 20);
  Plane({0, 0, 1}, 20)->Hide(true);
  Plane({0, 0, inf}, 20);
  ILayer* layer = ip_.GetLayerManager().CreateLayer(L"off");
  layer->AddToLayer(layered);
  EXPECT_EQ(Pick(FlatView(), {{50, 50}}), (Nodes{plane, upper, layered}));
  layer->Hide(true);
  for (const float z : {50.0f, -50.0f}) {  // from both sides
    const ViewExp view = FlatView(100, 100, 100, z);
    EXPECT_EQ(Pick(view, {{21, 70}}), Nodes{plane}) << z;
    EXPECT_EQ(Pick(view, {{12, 50}}), Nodes{}) << z;
    EXPECT_EQ(Pick(view, {{45, 45}, {47, 47}}), (Nodes{plane, upper})) << z;
    EXPECT_EQ(Pick(view, {{10, 10}, {90, 90}}, false), (Nodes{plane, upper})) << z;
    EXPECT_EQ(Pick(view, {{10, 10}, {90, 70}}, false), Nodes{upper}) << z;
  }
  // 2 below the eye and 100 all round, it is seen under the horizon, row 49.5.
  for (INode* n : {plane, upper}) n->Hide(true);
  INode* ground = Plane({0, 0, -2}, 200);
  EXPECT_EQ(Pick(SquareView(), {{5, 95}}), Nodes{ground});
  EXPECT_EQ(Pick(SquareView(), {{50, 30}}), Nodes{});
  EXPECT_EQ(Pick(SquareView(), {{0, 0}, {99, 99}}, false), Nodes{});
  ground->SetNodeTM(0, TransMatrix({0, -150, -2}));
  EXPECT_EQ(Pick(SquareView(), {{0, 0}, {99, 99}}), Nodes{}) << "all of it behind";
}

TEST_F(Picking, AVertexIsSnappedToBeforeAnEdgeAndTheNearerOfEachKind) {
  // Two triangles, corners at -10 and 10: the edge between them, from lower left to upper right,
  // isn't shown.
  INode* square = Plane({0, 0, 0}, 20);
  Plane({0, 0, 0}, 30)->Hide(true);
  struct Case {
    const char* what;
    IPoint2 mouse;  // (x + 49.5, 49.5 - y) in the flat view
    int edges;      // priority
    int priority;
    Point3 at;
  };
  const Case cases[] = {{"a corner", {57, 41}, 1, 2, {10, 10, 0}},
                        {"a corner before a nearer edge", {59, 45}, 1, 2, {10, 10, 0}},
                        {"an edge away from corners", {56, 50}, 1, 1, {10, -0.5f, 0}},
                        {"no edges wanted", {56, 50}, 0, 0, {}},
                        {"neither in the middle, nor the hidden edge", {49, 50}, 1, 0, {}},
                        {"the edge asked before the corner", {60, 45}, 3, 3, {10, 4.5f, 0}}};
  for (const auto& [what, mouse, edges, priority, at] : cases) {
    ViewExp view = FlatView();
    SnapInfo snap{.strength = 8, .edgePriority = edges};
    EXPECT_EQ(host::SnapNodes(ip_, view, mouse, snap), priority > 0) << what;
    EXPECT_EQ(snap.bestPriority, priority) << what;
    EXPECT_LT(Length(snap.bestWorld - at), 1e-4f) << what;
  }
  // Two below the eye, it reaches from 15 behind to 25 ahead; its left edge meets the horizon's
  // column 49.5 - 10 / depth * 50, and at depth 5 lies in column -50.5, row 69.5.
  Matrix3 tm;
  tm.Scale({1, 2, 1});
  tm.SetTrans({0, 5, -2});
  square->SetNodeTM(0, tm);
  SnapInfo snap{.strength = 2, .vertPriority = 0};
  ViewExp view = SquareView();
  EXPECT_TRUE(host::SnapNodes(ip_, view, {-50, 69}, snap));
  EXPECT_LT(Length(snap.bestWorld - Point3(-10, 5, -2)), 0.1f);
  square->SetNodeTM(0, TransMatrix({0, -50, -2}));
  snap = {.strength = 1000};
  EXPECT_FALSE(host::SnapNodes(ip_, view, {50, 50}, snap)) << "all of it behind";
}

}  // namespace
