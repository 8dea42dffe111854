#include "host/scene/mesh.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include "host/math/wstr.h"
#include "host/scene/primitives.h"
#include "tests/host/apart.h"

namespace {

// Two triangles, a square of side 1 in the plane z = 0, folded up by a quarter turn along x = 1.
Mesh Fold() {
  Mesh mesh;
  mesh.setNumVerts(4);
  const Point3 points[] = {{0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {1, 0, 3}};
  for (int i = 0; i < 4; ++i) mesh.setVert(i, points[i]);
  mesh.setNumFaces(2);
  mesh.faces[0].setVerts(0, 1, 2);  // normal +Z, area 1
  mesh.faces[1].setVerts(1, 3, 2);  // normal -X, area 3
  return mesh;
}

TEST(Mesh, TheFirstFaultIsNamed) {
  using Break = void (*)(Mesh&);
  const std::pair<Break, const char*> cases[] = {
      {[](Mesh&) {}, ""},
      {[](Mesh& m) { m.verts[2].y = std::numeric_limits<float>::quiet_NaN(); },
       "vertex 2 is not a finite number"},
      {[](Mesh& m) { m.faces[1].v[2] = 4; }, "face 1 uses vertex 4, but there are only 4"},
      {[](Mesh& m) { m.maps[1].faces.pop_back(); }, "map channel 1 has 1 faces, the mesh 2"},
      {[](Mesh& m) { m.maps[1].faces[1].t[0] = 3; },
       "face 1 of map channel 1 uses vertex 3, but there are only 3"},
  };
  for (const auto& [breakIt, says] : cases) {
    Mesh mesh = Fold();
    mesh.setMapSupport(1, true);
    mesh.maps[1].verts.assign(3, Point3(0, 0, 0));
    breakIt(mesh);
    EXPECT_EQ(mesh.FirstFault(), says);
  }
}

TEST(CornerNormals, AreMeansByAreaOverASharedGroup) {
  Mesh mesh = Fold();
  const Point3 up(0, 0, 1), left(-1, 0, 0);
  const auto expect = [&](const Point3& shared0, const Point3& shared1) {
    // Face 0 is 0 1 2, face 1 is 1 3 2: they share vertices 1 and 2.
    const Point3 expected[] = {up, shared0, shared0, shared1, left, shared1};
    const std::vector<Point3> n = CornerNormals(mesh);
    ASSERT_EQ(n.size(), 6u);
    for (size_t i = 0; i < 6; ++i) EXPECT_LT(Apart(n[i], expected[i]), 1e-6) << i;
  };
  expect(up, left);  // no groups
  mesh.faces[0].smGroup = 1, mesh.faces[1].smGroup = 2;
  expect(up, left);
  // Areas 1 and 3: the mean points along (-3, 0, 1).
  const Point3 mean(-3 / std::sqrt(10.0f), 0, 1 / std::sqrt(10.0f));
  mesh.faces[0].smGroup = 5, mesh.faces[1].smGroup = 6;
  expect(mean, mean);
}

// A closed, outward surface: each directed edge once, its reverse once; volume by the sum of
// tetrahedra to the origin.
double ClosedVolume(const Mesh& mesh) {
  std::map<std::pair<std::uint32_t, std::uint32_t>, int> edges;
  double volume = 0;
  for (const Face& f : mesh.faces) {
    for (int k = 0; k < 3; ++k) ++edges[{f.v[k], f.v[(k + 1) % 3]}];
    volume += DotProd(mesh.verts[f.v[0]], CrossProd(mesh.verts[f.v[1]], mesh.verts[f.v[2]])) / 6.0;
  }
  for (const auto& [edge, count] : edges) {
    EXPECT_EQ(count, 1) << edge.first << ' ' << edge.second;
    EXPECT_TRUE(edges.contains({edge.second, edge.first})) << edge.first << ' ' << edge.second;
  }
  return volume;
}

TEST(Primitives, AreClosedOutwardAndOfTheirSize) {
  for (const int segments : {3, 4, 5, 7, 32}) {
    SphereObject sphere;
    sphere.SetSize(2, segments);
    sphere.UpdateMesh(0);
    SCOPED_TRACE(segments);
    EXPECT_EQ(sphere.mesh.FirstFault(), "");
    for (const Point3& v : sphere.mesh.verts) EXPECT_NEAR(Length(v), 2, 1e-6);
    const double full = 4.0 / 3 * 3.14159265 * 8, volume = ClosedVolume(sphere.mesh);
    EXPECT_GT(volume, segments == 32 ? 0.97 * full : 0);
    EXPECT_LT(volume, full);
  }
}

TEST(Texts, GoToUtf8AndBackAndWhatIsBrokenIsMarked) {
  const WStr text = L"a\u00E9\u20AC\U0001F33E";
  const std::string bytes = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x8C\xBE";
  EXPECT_EQ(ToUtf8(text), bytes);
  EXPECT_EQ(FromUtf8(bytes), text);
  // Longer than needed, cut off, half of a pair, beyond the last code: a mark for each byte.
  for (const char* broken : {"\x80", "\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    EXPECT_EQ(FromUtf8(broken), WStr(std::strlen(broken), L'\uFFFD'));
}

}  // namespace
