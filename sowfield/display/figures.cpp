#include "sowfield/display/figures.h"

#include <cmath>
#include <iterator>

namespace sowfield {
namespace {

struct TableVertex {
  double x, y, z;
};
struct LogoFace {
  unsigned short a, b, c;
  bool edgeA, edgeB, edgeC;
};
struct FigureFace {
  unsigned short a, b, c;
};

constexpr TableVertex kLogoVertices[] = {
#include "sowfield/display/logo_vertices.inc"
};
constexpr LogoFace kLogoFaces[] = {
#include "sowfield/display/logo_faces.inc"
};
constexpr TableVertex kSquirrelVertices[] = {
#include "sowfield/display/squirrel_vertices.inc"
};
constexpr FigureFace kSquirrelFaces[] = {
#include "sowfield/display/squirrel_faces.inc"
};
static_assert(std::size(kLogoVertices) == 786 && std::size(kLogoFaces) == 722);
static_assert(std::size(kSquirrelVertices) == 484 && std::size(kSquirrelFaces) == 964);

template <size_t N>
void SetVertices(Mesh& mesh, const TableVertex (&table)[N], float size) {
  mesh.setNumVerts(int(N));
  for (size_t i = 0; i < N; ++i)
    mesh.verts[i] = Point3(float(table[i].x), float(table[i].y), float(table[i].z)) * size;
}

}  // namespace

void MakeLogoMesh(float size, Mesh& mesh) {
  SetVertices(mesh, kLogoVertices, size);
  mesh.setNumFaces(int(std::size(kLogoFaces)));
  for (size_t i = 0; i < std::size(kLogoFaces); ++i) {
    const LogoFace& from = kLogoFaces[i];
    Face& face = mesh.faces[i];
    face.setVerts(from.a, from.b, from.c);
    face.setEdgeVisFlags(from.edgeA, from.edgeB, from.edgeC);
    face.smGroup = 1;
    face.setMatID(0);
  }
}

Mesh MakeSquirrelMesh(float height) {
  Mesh mesh;
  SetVertices(mesh, kSquirrelVertices, height);
  mesh.setNumFaces(int(std::size(kSquirrelFaces)));
  for (size_t i = 0; i < std::size(kSquirrelFaces); ++i) {
    const FigureFace& from = kSquirrelFaces[i];
    Face& face = mesh.faces[i];
    face.setVerts(from.a, from.b, from.c);
    face.setEdgeVisFlags(true, true, true);
    face.smGroup = 1;
  }
  return mesh;
}

Mesh MakePyramidMesh(const Point3& a, const Point3& b) {
  const float w = std::fabs(a.x - b.x), d = std::fabs(a.y - b.y), h = std::fabs(a.z - b.z);
  Mesh mesh;
  mesh.setNumVerts(4);
  mesh.setVert(0, {-w / 2, -d / 2, 0});
  mesh.setVert(1, {w / 2, -d / 2, 0});
  mesh.setVert(2, {0, d / 2, 0});
  mesh.setVert(3, {0, 0, h});
  mesh.setNumFaces(3);
  mesh.faces[0].setVerts(3, 0, 1);
  mesh.faces[1].setVerts(3, 1, 2);
  mesh.faces[2].setVerts(3, 2, 0);
  for (Face& f : mesh.faces) f.setEdgeVisFlags(true, true, true);
  return mesh;
}

}  // namespace sowfield
