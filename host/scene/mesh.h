#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/math/box3.h"
#include "host/math/buffer.h"
#include "host/math/matrix3.h"

class GraphicsWindow;
class Mtl;
struct HitRegion;
struct IPoint2;
struct SnapInfo;

using MtlID = std::uint16_t;

inline constexpr std::uint32_t EDGE_A = 1, EDGE_B = 2, EDGE_C = 4, EDGE_ALL = 7;

/// A triangle: three vertex indices, a smoothing group mask, edge visibility in the low bits of the
/// flags and the material id in their upper half. New ones are unset until their maker writes them.
struct Face {
  std::uint32_t v[3];
  std::uint32_t smGroup;
  std::uint32_t flags;

  void setVerts(std::uint32_t a, std::uint32_t b, std::uint32_t c) { v[0] = a, v[1] = b, v[2] = c; }
  void setEdgeVisFlags(bool a, bool b, bool c) {
    flags = (flags & ~EDGE_ALL) | (a ? EDGE_A : 0u) | (b ? EDGE_B : 0u) | (c ? EDGE_C : 0u);
  }
  std::uint32_t edgeVisFlags() const { return flags & EDGE_ALL; }
  MtlID getMatID() const { return MtlID(flags >> 16); }
  void setMatID(MtlID id) { flags = (flags & 0xFFFF) | std::uint32_t(id) << 16; }
  bool operator==(const Face&) const = default;
};

/// A texture face: three indices into the vertices of its map channel.
struct TVFace {
  std::uint32_t t[3];
  bool operator==(const TVFace&) const = default;
};

/// One map channel. `faces` is empty for a channel without support, else one per mesh face.
struct MeshMap {
  std::vector<Point3> verts;
  std::vector<TVFace> faces;
  bool used = false;
  bool operator==(const MeshMap&) const = default;
};

/// A part of a mesh that has been put in the place of another: from `first` on, `removed` went and
/// `added` came. Either may be none. What stood behind has moved up or down, the indices of its
/// faces with its vertices.
struct MeshSplice {
  struct Run {
    size_t first = 0, removed = 0, added = 0;
    bool operator==(const Run&) const = default;
  };
  Run verts, faces;
  bool operator==(const MeshSplice&) const = default;
};

/// A triangle mesh in object space.
class Mesh {
 public:
  /// Keeping, old content stays and what comes new is unset; without it everything is unset.
  void setNumVerts(int n, bool keep = false);
  void setNumFaces(int n, bool keep = false);
  int getNumVerts() const { return int(verts.size()); }
  int getNumFaces() const { return int(faces.size()); }
  void setVert(int i, const Point3& p) { verts[size_t(i)] = p; }
  const Point3& getVert(int i) const { return verts[size_t(i)]; }
  void setFaceMtlIndex(int i, MtlID id) { faces[size_t(i)].setMatID(id); }
  MtlID getFaceMtlIndex(int i) const { return faces[size_t(i)].getMatID(); }

  // The texture set is map channel 1.
  void setNumTVerts(int n);
  void setNumTVFaces(int n);
  int getNumTVerts() const { return getNumMapVerts(1); }

  /// Channels 0 (vertex colour) to n - 1 exist after this.
  void setNumMaps(int n) { maps.resize(size_t(n)); }
  int getNumMaps() const { return int(maps.size()); }
  bool mapSupport(int channel) const;
  /// Gives the channel one map face per mesh face, all of them 0, so the faces come first.
  void setMapSupport(int channel, bool on);
  void setNumMapVerts(int channel, int n) { maps[size_t(channel)].verts.resize(size_t(n)); }
  int getNumMapVerts(int channel) const;

  /// Over all vertices, used by a face or not; empty for a mesh without any.
  Box3 getBoundingBox(const Matrix3* tm = nullptr) const;

  /// 1 if the mesh, in the space of the window's transform, is seen in the region: with `crossing`
  /// any part of a face, from either side, else all of the faces. Hidden by nothing, and the same
  /// with and without a material or abortOnHit.
  int select(GraphicsWindow* gw, Mtl* material, HitRegion* region, int abortOnHit) const;
  /// Looks for a vertex or a visible edge near the mouse at `p`, better than what `snap` holds, and
  /// puts it there; 1 if one was found. `tm` leads to world space. Hidden by nothing.
  int snap(GraphicsWindow* gw, SnapInfo* snap, const IPoint2* p, const Matrix3& tm) const;

  /// Tell that vertices or faces were written. Whoever keeps something made from a mesh compares
  /// Stamp: equal stamps mean equal content, also between copies.
  void InvalidateGeomCache() { Restamp(); }
  void InvalidateTopologyCache() { Restamp(); }
  std::uint64_t Stamp() const { return stamp_; }
  /// Tells, once it is done, that nothing but this has changed since the mesh got its stamp, and
  /// gives it a new one; several in order where several parts went or came. A part shares no vertex
  /// with any face outside of it. setNumVerts and setNumFaces may change all: to resize, write to
  /// the tables themselves.
  void Spliced(const MeshSplice& splice);
  /// What has happened, in order, since the mesh had that stamp; nothing if it isn't known, and all
  /// may be new.
  std::optional<std::span<const MeshSplice>> SplicesSince(std::uint64_t stamp) const;

  /// Names the first thing that makes the mesh unusable: a coordinate that isn't finite, an index
  /// beyond the vertices, map faces that don't fit. Empty for a sound mesh.
  std::string FirstFault() const;

  host::Buffer<Point3> verts;
  host::Buffer<Face> faces;
  std::vector<MeshMap> maps = std::vector<MeshMap>(2);

 private:
  static std::uint64_t NextStamp();
  void Restamp();
  std::uint64_t stamp_ = NextStamp();
  // The latest splices, and the stamp before each.
  std::vector<MeshSplice> splices_;
  std::vector<std::uint64_t> before_;
};

/// One normal per face corner (three a face, in face order): the mean of the area-weighted normals
/// of the faces round the vertex that share a smoothing group; the face's own normal without one.
std::vector<Point3> CornerNormals(const Mesh& mesh);
