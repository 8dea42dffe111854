#include "host/painter/raycaster.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "host/host.h"
#include "host/scene/primitives.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

struct TriangleOf {
  Point3 a, b, c;
};

TriObject* MeshObject(const std::vector<TriangleOf>& triangles) {
  auto* object = new TriObject;
  object->mesh.setNumVerts(int(triangles.size()) * 3);
  object->mesh.setNumFaces(int(triangles.size()));
  for (std::uint32_t i = 0; i < triangles.size(); ++i) {
    const TriangleOf& t = triangles[i];
    object->mesh.setVert(int(i * 3), t.a);
    object->mesh.setVert(int(i * 3 + 1), t.b);
    object->mesh.setVert(int(i * 3 + 2), t.c);
    object->mesh.faces[i].setVerts(i * 3, i * 3 + 1, i * 3 + 2);
  }
  return object;
}

double Gap(const Point3& a, const Point3& b) {
  return std::sqrt(std::pow(double(a.x) - b.x, 2) + std::pow(double(a.y) - b.y, 2) +
                   std::pow(double(a.z) - b.z, 2));
}

class RayCasterTest : public testing::Test {
 protected:
  INode* Node(Object* object, const Matrix3& tm = Matrix3()) {
    INode* node = sceneHost.Services().CreateObjectNode(object);
    node->SetNodeTM(0, tm);
    return node;
  }
  INode* Plane(float size, float z) {
    auto* plane = new PlaneObject;
    plane->SetSize(size, size, 4, 4);
    return Node(plane, TransMatrix({0, 0, z}));
  }

  host::Host sceneHost;
  host::RayCaster caster;
};

TEST_F(RayCasterTest, TiltedTriangleFromBothSides) {
  INode* node = Node(MeshObject({{{4, 0, 0}, {0, 4, 0}, {0, 0, 4}}}));  // x + y + z = 4
  caster.SetTargets({{node}}, 0);
  const float k = float(1 / std::sqrt(3.0));

  const PainterHit above = caster.Cast({{1, 1, 10}, {0, 0, -1}});
  ASSERT_TRUE(above.hit);
  EXPECT_EQ(above.node, node);
  EXPECT_LT(Gap(above.worldPoint, {1, 1, 2}), 1e-6);
  EXPECT_LT(Gap(above.worldNormal, {k, k, k}), 1e-6);

  const PainterHit inside = caster.Cast({{0, 0, 0}, {k, k, k}});
  ASSERT_TRUE(inside.hit);
  EXPECT_LT(Gap(inside.worldPoint, {4 / 3.0f, 4 / 3.0f, 4 / 3.0f}), 1e-6);
  EXPECT_LT(Gap(inside.worldNormal, {-k, -k, -k}), 1e-6);

  EXPECT_FALSE(caster.Cast({{3, 3, 10}, {0, 0, -1}}).hit) << "beside it";
  EXPECT_FALSE(caster.Cast({{1, 1, 1}, {0, 0, -1}}).hit) << "behind the start";
  EXPECT_TRUE(caster.Cast({{1, 1, 10}, {0, 0, -1}}, 8.001).hit);
  EXPECT_FALSE(caster.Cast({{1, 1, 10}, {0, 0, -1}}, 7.999).hit);
  EXPECT_TRUE(caster.Cast({{1, 1, 10}, {0, 0, -4}}, 8.001).hit) << "the reach is in world units";
  for (const Point3 bad : {Point3(0, 0, 0), Point3(kNaN, 0, -1), Point3(0, 0, -kInf)})
    EXPECT_FALSE(caster.Cast({{1, 1, 10}, bad}).hit);
  EXPECT_FALSE(caster.Cast({{1, kNaN, 10}, {0, 0, -1}}).hit);
}

TEST_F(RayCasterTest, SphereIsHitBetweenItsFacetsAndItsRadius) {
  auto* sphere = new SphereObject;
  sphere->SetSize(5, 64);
  caster.SetTargets({{Node(sphere, TransMatrix({100, -40, 7}))}}, 0);
  const Point3 middle(100, -40, 7);
  // The top is a vertex.
  EXPECT_EQ(caster.Cast({{100, -40, 50}, {0, 0, -1}}).worldPoint, Point3(100, -40, 12));

  // A facet spans 1/64 of the turn both ways, so it sinks by no more than two such sagittas.
  const double sunk = 5 * 2 * (1 - std::cos(M_PI / 64));
  std::mt19937 random(7);
  std::normal_distribution<float> normal;
  for (int i = 0; i < 500; ++i) {
    const Point3 out = Normalize({normal(random), normal(random), normal(random)});
    const PainterHit hit = caster.Cast({middle + out * 20, -out});
    ASSERT_TRUE(hit.hit);
    const double far = Gap(hit.worldPoint, middle);
    EXPECT_LE(far, 5 + 2e-5);
    EXPECT_GE(far, 5 - sunk - 2e-5);
    EXPECT_LT(Gap(hit.worldPoint, middle + out * float(far)), 3e-5) << "on the ray";
    EXPECT_GT(DotProd(hit.worldNormal, out), std::cos(2 * M_PI / 64));
  }
}

/// The nearest triangle on a ray by looking at each, with signed volumes in double.
struct Judge {
  struct V {
    double x, y, z;
  };
  static V Of(const Point3& p) { return {p.x, p.y, p.z}; }
  static V Minus(V a, V b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
  static double Volume(V a, V b, V c) {
    return a.x * (b.y * c.z - b.z * c.y) + a.y * (b.z * c.x - b.x * c.z) +
           a.z * (b.x * c.y - b.y * c.x);
  }

  bool hit = false, doubtful = false;
  INode* node = nullptr;
  double t = 0;
  Point3 point{0, 0, 0};
  V cross{};  // of two sides

  /// Looks from `skip` along the ray on: from far off, the volumes would drown in rounding.
  Judge(const std::vector<INode*>& nodes, const Ray& ray, double skip) {
    const V d = Of(ray.dir), p = Of(ray.p);
    const V o = {p.x + skip * d.x, p.y + skip * d.y, p.z + skip * d.z};
    struct Found {
      double t, inside;
    };
    std::vector<Found> near;
    for (INode* n : nodes) {
      const Mesh& mesh = static_cast<TriObject*>(n->GetObjectRef())->mesh;
      const Matrix3 tm = n->GetObjectTM(0);
      for (const Face& f : mesh.faces) {
        const V a = Minus(Of(mesh.verts[f.v[0]] * tm), o),
                b = Minus(Of(mesh.verts[f.v[1]] * tm), o),
                c = Minus(Of(mesh.verts[f.v[2]] * tm), o);
        const double wa = Volume(d, b, c), wb = Volume(d, c, a), wc = Volume(d, a, b);
        const double sum = wa + wb + wc;
        // The smallest barycentric coordinate: negative outside.
        const double inside = std::min({wa / sum, wb / sum, wc / sum});
        if (!(inside > -1e-3)) continue;
        const double at = Volume(a, b, c) / sum;
        if (!(at > -skip)) continue;
        near.push_back({at, inside});
        if (inside < 0 || (hit && at >= t)) continue;
        hit = true, node = n, t = at;
        point = {float(o.x + at * d.x), float(o.y + at * d.y), float(o.z + at * d.z)};
        const V e = Minus(b, a), g = Minus(c, a);
        cross = {e.y * g.z - e.z * g.y, e.z * g.x - e.x * g.z, e.x * g.y - e.y * g.x};
      }
    }
    // Near a border, not behind the hit: a rounding decides there.
    for (const Found& f : near) doubtful |= std::fabs(f.inside) < 1e-4 && (!hit || f.t < t + 1e-3);
  }
};

TriObject* BumpyGrid(int cells, std::mt19937& random) {
  std::uniform_real_distribution<float> height(-0.4f, 0.4f);
  auto* object = new TriObject;
  Mesh& mesh = object->mesh;
  const int row = cells + 1;
  mesh.setNumVerts(row * row);
  mesh.setNumFaces(2 * cells * cells);
  for (int i = 0; i < row * row; ++i)
    mesh.setVert(i, {float(i % row) - 0.5f * float(cells), float(i / row) - 0.5f * float(cells),
                     height(random)});
  for (int i = 0, f = 0; i < cells * cells; ++i) {
    const auto a = std::uint32_t(i / cells * row + i % cells), d = a + std::uint32_t(row);
    mesh.faces[size_t(f++)].setVerts(a, a + 1, d);
    mesh.faces[size_t(f++)].setVerts(a + 1, d + 1, d);
  }
  return object;
}

TEST_F(RayCasterTest, AgreesWithALookAtEachTriangle) {
  std::mt19937 random(20240607);
  std::vector<INode*> nodes;
  for (int i = 0; i < 3; ++i) {
    Matrix3 tm;
    tm.Scale({i == 1 ? -0.7f : 1.1f, 0.9f, 1.3f});  // the second one mirrors
    tm.RotateX(0.4f * float(i));
    tm.RotateZ(1.3f * float(i));
    tm.Translate({float(i), -0.5f * float(i), 1.5f * float(i)});
    nodes.push_back(Node(BumpyGrid(16, random), tm));
  }
  caster.SetTargets(nodes, 0);

  std::uniform_real_distribution<float> place(-10, 10);
  int hits = 0, doubtful = 0;
  constexpr int kRays = 3000;
  for (int i = 0; i < kRays; ++i) {
    // Every other ray comes from far off, as those of an orthographic view do.
    const Point3 through(place(random), place(random), place(random) * 0.3f);
    const Point3 dir = Normalize({place(random), place(random), place(random)});
    const float away = i % 2 ? 12.0f : 1.0e6f;
    const Ray ray{through - dir * away, dir};
    const Judge judge(nodes, ray, away - 12.0);
    const PainterHit hit = caster.Cast(ray);
    if (judge.doubtful) {
      ++doubtful;
      continue;
    }
    ASSERT_EQ(hit.hit, judge.hit) << "ray " << i;
    if (!hit.hit) continue;
    ++hits;
    EXPECT_EQ(hit.node, judge.node) << "ray " << i;
    EXPECT_LT(Gap(hit.worldPoint, judge.point), 4e-6) << "ray " << i;
    const Judge::V c = judge.cross;
    const double length = std::sqrt(c.x * c.x + c.y * c.y + c.z * c.z);
    const double side =
        c.x * ray.dir.x + c.y * ray.dir.y + c.z * ray.dir.z > 0 ? -1 / length : 1 / length;
    EXPECT_LT(Gap(hit.worldNormal, {float(c.x * side), float(c.y * side), float(c.z * side)}),
              1e-6);
  }
  EXPECT_GT(hits, kRays / 3);
  EXPECT_LT(doubtful, kRays / 50);
}

TEST_F(RayCasterTest, NoRaySlipsThroughEdgesOrVertices) {
  std::mt19937 random(3);
  INode* node = Node(BumpyGrid(16, random));
  caster.SetTargets({{node}}, 0);
  for (int y = -15; y <= 15; ++y) {
    for (int x = -15; x <= 15; ++x) {  // vertices, and middles of all sides
      const Point3 over(0.5f * float(x), 0.5f * float(y), 9);
      const PainterHit hit = caster.Cast({over, {0, 0, -1}});
      ASSERT_TRUE(hit.hit) << x << " " << y;
      EXPECT_LT(Gap(hit.worldPoint, {over.x, over.y, hit.worldPoint.z}), 1e-6);
    }
  }
}

TEST_F(RayCasterTest, EqualDistancesGoToTheEarlierTargetAndFace) {
  INode* first = Plane(4, 1);
  INode* second = Plane(4, 1);
  caster.SetTargets({{first, second}}, 0);
  EXPECT_EQ(caster.Cast({{0.3f, 0.2f, 5}, {0, 0, -1}}).node, first);
  caster.SetTargets({{second, first}}, 0);
  EXPECT_EQ(caster.Cast({{0.3f, 0.2f, 5}, {0, 0, -1}}).node, second);

  // The two sides of a roof, hit on the ridge.
  const TriangleOf left{{0, -1, 1}, {0, 1, 1}, {-1, 0, 0}}, right{{0, -1, 1}, {0, 1, 1}, {1, 0, 0}};
  INode* leftFirst = Node(MeshObject({left, right}));
  INode* rightFirst = Node(MeshObject({right, left}));
  caster.SetTargets({{leftFirst}}, 0);
  EXPECT_LT(caster.Cast({{0, 0.25f, 5}, {0, 0, -1}}).worldNormal.x, 0);
  caster.SetTargets({{rightFirst}}, 0);
  EXPECT_GT(caster.Cast({{0, 0.25f, 5}, {0, 0, -1}}).worldNormal.x, 0);
}

TEST_F(RayCasterTest, UnusableTrianglesAreLeftOut) {
  const TriangleOf sound{{-1, -1, 0}, {1, -1, 0}, {0, 1, 0}};
  TriObject* object = MeshObject({{{-1, -1, 1}, {1, -1, 1}, {kNaN, 1, 1}},
                                  {{-1, -1, 1}, {1, -1, 1}, {0, kInf, 1}},
                                  {{-1, -1, 1}, {1, -1, 1}, {0, 3e38f, 1}},
                                  {{-1, -1, 1}, {0, 0, 1}, {1, 1, 1}},
                                  {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}},
                                  {{-1, -1, 1}, {1, -1, 1}, {0, 1, 1}},
                                  {{-1, -1, 1}, {1, -1, 1}, {0, 1, 1}},
                                  sound});
  object->mesh.faces[5].v[1] = 24;
  object->mesh.faces[6].v[2] = 0xFFFFFFFF;
  INode* mixed = Node(object);
  caster.SetTargets({{mixed}}, 0);
  const PainterHit hit = caster.Cast({{0, 0, 5}, {0, 0, -1}});
  ASSERT_TRUE(hit.hit);
  EXPECT_EQ(hit.worldPoint, Point3(0, 0, 0)) << "the sound triangle, the last of the mesh";

  object->mesh.setNumFaces(7, true);
  caster.Update(0);
  EXPECT_FALSE(caster.Cast({{0, 0, 5}, {0, 0, -1}}).hit) << "unusable ones alone";
  object->mesh.setNumVerts(0);
  caster.Update(0);
  EXPECT_FALSE(caster.Cast({{0, 0, 5}, {0, 0, -1}}).hit) << "faces without vertices";

  INode* flat = Node(MeshObject({sound}), Matrix3({1, 0, 0}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}));
  INode* lost = Node(MeshObject({sound}), Matrix3({kNaN, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}));
  caster.SetTargets({{flat, lost, mixed}}, 0);
  EXPECT_FALSE(caster.Cast({{0, 0, 5}, {0, 0, -1}}).hit) << "unusable by their matrices";
}

TEST_F(RayCasterTest, MeshesAreBuiltOnlyWhenTheyChanged) {
  INode* plane = Plane(4, 0);
  INode* tri = Node(MeshObject({{{-1, -1, 5}, {1, -1, 5}, {0, 1, 5}}}));
  auto* poly = new PolyObject;
  poly->mesh = static_cast<TriObject*>(tri->GetObjectRef())->mesh;
  INode* polyNode = Node(poly, TransMatrix({5, 0, 0}));
  caster.SetTargets({{plane, tri, polyNode}}, 0);
  EXPECT_EQ(caster.MeshesBuilt(), 3);
  caster.Update(0);
  caster.SetTargets({{plane}}, 0);
  caster.SetTargets({{tri, plane, polyNode}}, 0);
  EXPECT_EQ(caster.MeshesBuilt(), 3);
  EXPECT_EQ(caster.Cast({{0, 0, 9}, {0, 0, -1}}).node, tri);

  tri->SetNodeTM(0, TransMatrix({0, 0, -20}));
  caster.Update(0);
  EXPECT_EQ(caster.MeshesBuilt(), 4);
  EXPECT_EQ(caster.Cast({{0, 0, 9}, {0, 0, -1}}).node, plane);
  poly->mesh.InvalidateGeomCache();
  caster.Update(0);
  EXPECT_EQ(caster.MeshesBuilt(), 5);

  caster.Forget(plane);
  EXPECT_EQ(caster.Targets(), (std::vector<INode*>{tri, polyNode}));
  EXPECT_EQ(caster.Cast({{0, 0, 9}, {0, 0, -1}}).node, tri);
  caster.SetTargets({{plane}}, 0);
  EXPECT_EQ(caster.MeshesBuilt(), 6) << "it was forgotten";
}

}  // namespace
