#pragma once

#include "sowfield/model/typerows.h"
#include "tests/host/proxies.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {

/// All that the tables hold of one type, read by plain counting.
struct TypeRecord {
  int kind = 0;
  INode *node = nullptr, *original = nullptr;
  WStr file;
  Mtl* material = nullptr;
  Point3 low{0, 0, 0}, high{0, 0, 0};
  int vertices = 0, faces = 0, share = 0;
  WStr name;
  std::vector<Point3> samples;
  std::vector<float> rows;    // slot tables, animation rows and reserved entries
  std::vector<float> random;  // 8 blocks of 100
  std::vector<std::vector<float>> placements;
  bool operator==(const TypeRecord&) const = default;
};

inline std::vector<TypeRecord> Records(const SowfieldScene& scene) {
  const IParamBlock2& b = *scene.object->pblock2;
  std::vector<TypeRecord> all;
  int node = 0, file = 0, original = 0, sample = 0;
  for (int t = 0; t < b.Count(51); ++t) {
    TypeRecord r;
    r.kind = b.GetInt(51, 0, t);
    if (r.kind == 3) r.original = b.GetINode(103, 0, original++);
    if (r.kind == 2) {
      const int m = b.GetInt(97, 0, file);
      r.material = m < 0 ? nullptr : b.GetMtl(96, 0, m);
      r.file = b.GetStr(95, 0, file++);
    } else {
      r.node = b.GetINode(0, 0, node++);
    }
    r.high = b.GetPoint3(2, 0, t), r.low = b.GetPoint3(3, 0, t);
    r.vertices = b.GetInt(5, 0, t), r.faces = b.GetInt(99, 0, t), r.share = b.GetInt(79, 0, t);
    r.name = b.GetStr(75, 0, t);
    for (int i = b.GetInt(4, 0, t); i-- > 0;) r.samples.push_back(b.GetPoint3(6, 0, sample++));
    for (const int id : {12, 13, 101, 102, 58, 59, 60, 61, 14, 15, 16, 17, 63, 64, 65, 66})
      r.rows.push_back(b.GetFloat(ParamID(id), 0, t + 1));
    for (const int id : {11, 62}) r.rows.push_back(float(b.GetInt(ParamID(id), 0, t + 1)));
    for (const int id : {53, 70, 71, 72}) r.rows.push_back(float(b.GetInt(ParamID(id), 0, t)));
    for (const int id : {8, 100, 54, 55, 9, 10, 56, 57})
      for (int i = 0; i < 100; ++i)
        r.random.push_back(b.GetFloat(ParamID(id), 0, (t + 1) * 100 + i));
    for (int p = 0; p < b.Count(87); ++p) {
      if (b.GetInt(89, 0, p) != t) continue;
      const Point3 at = b.GetPoint3(87, 0, p), turn = b.GetPoint3(88, 0, p);
      r.placements.push_back({at.x, at.y, at.z, turn.x, turn.y, turn.z, float(b.GetInt(90, 0, p)),
                              float(b.GetInt(73, 0, p))});
    }
    all.push_back(r);
  }
  return all;
}

/// A type of kind 2 with two samples, as conversion makes it; no undo step of its own.
inline void AddFileType(SowfieldScene& s, const WStr& path, Mtl* material = nullptr) {
  IParamBlock2& b = s.Block();
  const int kind = 2, index = material ? b.Count(Proxy_Mtls) : -1;
  TypeData data{.vertices = 7, .faces = 5, .samples = {{1, 2, 3}, {-1, 0, 2}}, .box = {}};
  data.box += Point3(-4, -3, 0), data.box += Point3(4, 3, 2);
  b.Append(Geo_Kind, 1, &kind);
  b.Append(Proxy_Files, 1, &path);
  if (material) b.Append(Proxy_Mtls, 1, &material);
  b.Append(Proxy_MtlIndex, 1, &index);
  AppendTypeData(s.D(), data);
  AppendTypeRows(s.D());
  b.Append(Geo_Names, 1, &path);
}

/// A node of a class that makes a type of kind 0, 1 or 3, over a box.
inline INode* AddSource(SowfieldScene& s, int kind, const WStr& name, float w, float l, float h,
                        const Point3& at = {0, 0, 0}) {
  const Mesh mesh = BoxMeshOf(w, l, h);
  if (kind == 1) return s.AddNode(name, ProxyOf<MoksetProxyObject>(mesh), at);
  if (kind == 3) return s.AddNode(name, ProxyOf<VRayProxyObject>(mesh), at);
  return s.AddBox(name, w, l, h, at);
}

}  // namespace sowfield
