#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/scene/mesh.h"

namespace sowfield {

template <class T>
void Put(std::string& to, T value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// A file of any generation, field by field. All products wrap in 32 bits.
inline std::string FileOf(int generation, const Mesh& mesh, int m,
                          const std::vector<std::uint32_t>& order, int unit = 0) {
  const bool third = generation == 3;
  std::string s = third ? "Vorn_MoksetV0.6" : generation == 2 ? "Vorn_MoksetV0.5" : "";
  if (generation == 1) m = 1;
  const auto times = [m](size_t value) { return int(unsigned(value) * unsigned(m)); };
  const auto count = [&](size_t n) { third ? Put(s, std::int64_t(times(n))) : Put(s, times(n)); };
  const auto plain = [&](std::uint32_t n) { third ? Put(s, n) : Put(s, float(n)); };
  const auto& uv = mesh.maps[1];
  Put(s, mesh.getBoundingBox().pmax), Put(s, mesh.getBoundingBox().pmin);
  if (third) Put(s, unit);
  const auto points = [&](const auto& all) {
    Put(s, int(all.size()));
    for (const Point3& p : all) Put(s, p);
  };
  points(mesh.verts), points(uv.verts);
  if (generation > 1) Put(s, m);
  Put(s, times(order.size()));
  for (const std::uint32_t i : order) count(i);
  if (generation > 1) {
    s.append(12, '\0');
    for (int i = 0; i < 16; ++i) s += "0123456789ABCDEF";
    s.append(4, '\0');
  }
  count(mesh.faces.size());
  for (const Face& f : mesh.faces) {
    for (const std::uint32_t v : f.v) third ? count(v) : Put(s, float(times(v)));
    for (const std::uint32_t bit : {1u, 2u, 4u}) plain(f.flags & bit);
    Put(s, times(f.smGroup)), Put(s, times(f.flags >> 16));
  }
  for (const TVFace& f : uv.faces)
    for (const std::uint32_t t : f.t) plain(t);
  return s;
}

}  // namespace sowfield
