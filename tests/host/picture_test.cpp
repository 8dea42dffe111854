#include "host/viewport/picture.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "host/host.h"
#include "host/scene/camera.h"
#include "host/scene/mtl.h"
#include "host/scene/primitives.h"
#include "host/scene/triobject.h"

namespace {

using host::Picture;
using Rgb = std::array<int, 3>;

constexpr ColorRef kRed = PackColor(220, 30, 30), kGreen = PackColor(30, 200, 30),
                   kBlue = PackColor(40, 40, 220);

Rgb At(const Picture& p, int x, int y) {
  const size_t i = (size_t(y) * size_t(p.width) + size_t(x)) * 3;
  return {p.rgb[i], p.rgb[i + 1], p.rgb[i + 2]};
}

/// The channel that stands out by at least 40 levels, or -1: the light is nearly colourless.
int Hue(const Rgb& c) {
  for (int i = 0; i < 3; ++i)
    if (c[size_t(i)] >= c[size_t((i + 1) % 3)] + 40 && c[size_t(i)] >= c[size_t((i + 2) % 3)] + 40)
      return i;
  return -1;
}

double Brightness(const Rgb& c) { return c[0] + c[1] + c[2]; }

class Drawing : public testing::Test {
 protected:
  Interface& Ip() { return host_.Services(); }
  INode* Box(const Point3& middle, float size, ColorRef color) {
    auto* box = new BoxObject;
    box->SetSize(size, size, size);
    INode* node = Ip().CreateObjectNode(box);
    node->SetNodeTM(0, TransMatrix(middle - Point3(0, 0, size / 2)));
    node->SetWireColor(color);
    return node;
  }
  Picture Draw(const ViewExp& view, bool grid = false) {
    std::string error;
    const auto picture = host::DrawScene(Ip(), view, {grid}, error);
    EXPECT_TRUE(picture) << error;
    if (!picture) return {};
    EXPECT_EQ(picture->rgb.size(), size_t(view.Width()) * size_t(view.Height()) * 3);
    return *picture;
  }
  host::Host host_;
};

const Point3 kPlaces[] = {{0, 0, 0}, {3, 1, 2}, {-4, 2, -1}, {1, -3, 3}, {-2, -2, 2}, {4, 4, 0}};

TEST_F(Drawing, ThingsStandWhereTheViewProjectsThem) {
  std::vector<INode*> boxes;
  for (const Point3& p : kPlaces) boxes.push_back(Box(p, 0.3f, kRed));
  auto* lens = new CameraObject;
  lens->SetFOV(0, 0.9f);
  INode* camera = Ip().CreateObjectNode(lens);
  // It looks along +Y from behind, scaled and mirrored as a file's camera may be.
  camera->SetNodeTM(0, {{-3, 0, 0}, {0, 0, 3}, {0, -3, 0}, {0.3f, -16, 0.4f}});
  const ViewExp views[] = {
      ViewExp::Perspective({9, -12, 7}, {0, 0, 0}, 0.8f, 321, 200),
      ViewExp::Perspective({0.1f, 0, 15}, {0.1f, 0, 0}, 1.2f, 200, 301),
      ViewExp::Orthographic({-5, -9, 4}, {0, 0, 0}, 18, 300, 222),
      // The eye lies beyond the scene, which a parallel view shows all the same.
      ViewExp::Orthographic({0, 50, 0}, {0, 60, 0}, 18, 300, 222),
      ViewExp::FromCamera(camera, 250, 180),
  };
  for (size_t v = 0; v < std::size(views); ++v) {
    const Picture picture = Draw(views[v]);
    for (const Point3& p : kPlaces) {
      double x = 0, y = 0;
      ASSERT_TRUE(views[v].ProjectToScreen(p, x, y));
      const int ix = int(std::lround(x)), iy = int(std::lround(y));
      ASSERT_TRUE(ix > 12 && ix < picture.width - 12 && iy > 12 && iy < picture.height - 12)
          << "view " << v << " does not show a place";
      EXPECT_EQ(Hue(At(picture, ix, iy)), 0) << "view " << v << " at " << x << ", " << y;
    }
  }
}

TEST_F(Drawing, EdgesLieBetweenThePixelsThatTheViewSays) {
  // Eight pixels a unit; the middle of pixel x is at (x + 0.5) / 8 - 12.5, so the edges of a square
  // from -5 to 2.5 and from -1.25 to 6.25 lie between pixels.
  const ViewExp view = ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 25, 200, 160);
  auto* plane = new PlaneObject;
  plane->SetSize(7.5f, 7.5f, 1, 1);
  INode* node = Ip().CreateObjectNode(plane);
  node->SetNodeTM(0, TransMatrix({-1.25f, 2.5f, 1}));
  node->SetWireColor(kBlue);
  const Picture picture = Draw(view);
  // +Y is up: rows (10 - 6.25) * 8 = 30 to (10 + 1.25) * 8 = 90; columns 60 to 120.
  for (int y = 0; y < 160; ++y)
    for (int x = 0; x < 200; ++x) {
      const bool inside = x >= 60 && x < 120 && y >= 30 && y < 90;
      ASSERT_EQ(Hue(At(picture, x, y)), inside ? 2 : -1) << x << ", " << y;
    }
}

TEST_F(Drawing, TheNearerHidesTheFartherAtAnyDistance) {
  // The farther one is 0.05 behind at 20 units, and 50 behind at 20,000.
  for (const float unit : {1.0f, 1000.0f}) {
    INode* front = Box({0, 0, 0}, 2 * unit, kGreen);
    INode* behind = Box({0, 0.05f * unit, 0}, 2 * unit, kRed);
    const ViewExp view =
        ViewExp::Perspective({0, -20 * unit, 0}, {0, 0, 0}, 0.3f, 100, 100);
    EXPECT_EQ(Hue(At(Draw(view), 50, 50)), 1) << unit;
    front->Hide(true);
    EXPECT_EQ(Hue(At(Draw(view), 50, 50)), 0) << unit;
    behind->Hide(true);
    EXPECT_EQ(Hue(At(Draw(view), 50, 50)), -1) << unit;
  }
}

TEST_F(Drawing, FacesTakeTheColourOfTheirMaterial) {
  INode* box = Box({0, 0, 0}, 2, kRed);
  auto* multi = new MultiMtl;
  multi->SetNumSubMtls(6);
  for (int i = 0; i < 6; ++i) {
    auto* m = new StdMtl;
    m->SetDiffuse(i % 2 ? Color{0.02f, 0.6f, 0.02f} : Color{0.02f, 0.02f, 0.7f}, 0);
    multi->SetSubMtl(i, m);
  }
  box->SetMtl(multi);
  bool wire = false;
  const Point3 sides[] = {{1, 0, 0}, {-1, 0, 0}, {0, 1, 0}, {0, -1, 0}, {0, 0, 1}, {0, 0, -1}};
  for (int pass = 0; pass < 2; ++pass) {
    for (const Point3& side : sides) {
      const Point3 eye = side * 9.0f + Point3(0.1f, 0.1f, 0.1f);
      const ViewExp view = ViewExp::Perspective(eye, {0, 0, 0}, 0.3f, 60, 60);
      const Mesh& mesh = static_cast<BoxObject*>(box->GetObjectRef())->mesh;
      const Picture picture = Draw(view);
      int id = -1;
      for (const Face& f : mesh.faces) {
        const Point3 n = CrossProd(mesh.verts[f.v[1]] - mesh.verts[f.v[0]],
                                   mesh.verts[f.v[2]] - mesh.verts[f.v[0]]);
        if (DotProd(n, side) > 0.5f) id = f.getMatID();
      }
      ASSERT_GE(id, 0);
      const int expected = id == 0 && wire ? 0 : id % 2 ? 1 : 2;
      EXPECT_EQ(Hue(At(picture, 30, 30)), expected) << "id " << id;
    }
    multi->SetSubMtl(0, nullptr);  // an empty slot shows the wire colour
    wire = true;
  }
}

TEST_F(Drawing, LightComesFromTheUpperLeftAlsoForMirroredAndTurnedMeshes) {
  auto* sphere = new SphereObject;
  sphere->SetSize(1, 48);
  INode* node = Ip().CreateObjectNode(sphere);
  const ViewExp view = ViewExp::Orthographic({0, -9, 0}, {0, 0, 0}, 2.5f, 100, 100);
  const Picture plain = Draw(view);
  EXPECT_GT(Brightness(At(plain, 35, 35)), Brightness(At(plain, 65, 65)) + 100);

  Matrix3 mirror;
  mirror.Scale({-1, 1, 1});
  Matrix3 inside;  // all faces seen from their back
  inside.Scale({-1, -1, -1});
  for (const Matrix3& tm : {mirror, inside}) {
    node->SetNodeTM(0, tm);
    const Picture turned = Draw(view);
    for (int y = 20; y <= 80; y += 12)
      for (int x = 20; x <= 80; x += 12)
        EXPECT_NEAR(Brightness(At(turned, x, y)), Brightness(At(plain, x, y)), 12) << x << "," << y;
  }
}

TEST_F(Drawing, BothSidesOfAnOpenFaceShow) {
  auto* plane = new PlaneObject;
  plane->SetSize(2, 2, 1, 1);
  Ip().CreateObjectNode(plane)->SetWireColor(kGreen);
  for (const float z : {5.0f, -5.0f}) {
    const ViewExp view = ViewExp::Perspective({0, -1, z}, {0, 0, 0}, 0.3f, 60, 60);
    EXPECT_EQ(Hue(At(Draw(view), 30, 30)), 1) << z;
  }
}

TEST_F(Drawing, TheGridLiesInTheGroundAndUnderThings) {
  const ViewExp view = ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 20, 201, 201);
  const Picture without = Draw(view, false), with = Draw(view, true);
  // The axes cross in the middle: X red along the row, Y green along the column.
  const Rgb onX = At(with, 150, 100), onY = At(with, 100, 50);
  EXPECT_GT(onX[0], onX[1] + 40);
  EXPECT_GT(onY[1], onY[0] + 40);
  // Lines are a unit apart; halfway between them nothing is drawn.
  const int unit = 10;
  EXPECT_LT(Brightness(At(with, 100 + 3 * unit, 55)),
            Brightness(At(without, 100 + 3 * unit, 55)) - 20);
  EXPECT_EQ(At(with, 100 + 3 * unit + 5, 55), At(without, 100 + 3 * unit + 5, 55));

  auto* plane = new PlaneObject;
  plane->SetSize(8, 8, 1, 1);
  Ip().CreateObjectNode(plane)->SetWireColor(kBlue);
  EXPECT_EQ(Hue(At(Draw(view, true), 100, 100)), 2);
  const ViewExp slanted = ViewExp::Perspective({6, -9, 5}, {0, 0, 0}, 0.8f, 120, 120);
  const Picture clean = Draw(slanted, false), lined = Draw(slanted, true);
  EXPECT_EQ(At(clean, 60, 60), At(lined, 60, 60));
  EXPECT_NE(clean.rgb, lined.rgb);
}

TEST_F(Drawing, UnsoundNodesAreLeftOut) {
  Box({0, 0, 0}, 1, kGreen);
  INode* broken = Box({0, -2, 0}, 1, kRed);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  broken->SetNodeTM(0, TransMatrix({nan, 0, 0}));
  auto* tri = new TriObject;
  tri->mesh.setNumVerts(3);
  for (int i = 0; i < 3; ++i) tri->mesh.setVert(i, {float(i), 0, 0});
  tri->mesh.setNumFaces(1);
  tri->mesh.faces[0].setVerts(0, 1, 1'000'000'000);
  Ip().CreateObjectNode(tri);
  Ip().CreateObjectNode(nullptr);
  INode* layered = Box({0, -3, 0}, 1, kRed);
  ILayer* layer = Ip().GetLayerManager().CreateLayer(L"off");
  layer->AddToLayer(layered);
  layer->Hide(true);
  const ViewExp view = ViewExp::Perspective({0, -9, 0}, {0, 0, 0}, 0.3f, 60, 60);
  EXPECT_EQ(Hue(At(Draw(view), 30, 30)), 1);
}

TEST_F(Drawing, ManyFacesAreDrawnToTheLast) {
  auto* plane = new PlaneObject;
  plane->SetSize(10, 10, 300, 300);  // 180,000 faces, in several loads
  Ip().CreateObjectNode(plane)->SetWireColor(kRed);
  const Picture picture = Draw(ViewExp::Orthographic({0, 0, 9}, {0, 0, 0}, 8, 90, 90));
  for (int y = 0; y < 90; y += 1)
    for (int x = 0; x < 90; x += 1) ASSERT_EQ(Hue(At(picture, x, y)), 0) << x << ", " << y;
}

TEST_F(Drawing, WhatCannotBeDrawnSaysWhy) {
  std::string error;
  const auto refused = [&](const ViewExp& view, const char* part) {
    error.clear();
    EXPECT_FALSE(host::DrawScene(Ip(), view, {}, error));
    EXPECT_NE(error.find(part), std::string::npos) << error;
  };
  refused(ViewExp::Perspective({0, -9, 0}, {0, 0, 0}, 0.3f, 0, 60), "1 to 8192");
  refused(ViewExp::Perspective({0, -9, 0}, {0, 0, 0}, 0.3f, 60, 8193), "60 x 8193");
  refused(ViewExp::Perspective({0, 0, 0}, {0, 0, 0}, 0.3f, 60, 60), "direction");
  refused(ViewExp::Orthographic({0, -9, 0}, {0, 0, 0}, 0, 60, 60), "opening");
  INode* camera = Ip().CreateObjectNode(new CameraObject);
  const ViewExp view = ViewExp::FromCamera(camera, 60, 60);
  Ip().DeleteNode(camera, false, false);
  refused(view, "left the scene");
}

}  // namespace
