#include <filesystem>
#include <fstream>
#include <numeric>

#include "bench/rows.h"
#include "host/host.h"
#include "sowfield/proxy/moksetfile.h"

namespace bench {
namespace {

constexpr int kSide = 1000;  // a grid of 1,000,000 vertices and nearly 2,000,000 faces, textured

/// The file, for as long as the program runs.
struct BigFile {
  BigFile() : path(std::filesystem::temp_directory_path() / "sowfield-bench.Vorn") {
    const host::Host host;
    Mesh mesh;
    mesh.setNumVerts(kSide * kSide);
    for (int i = 0; i < kSide * kSide; ++i)
      mesh.setVert(i, {float(i % kSide), float(i / kSide), float(i % 7)});
    for (std::uint32_t i = 0; i + kSide < mesh.verts.size(); ++i) {
      if (i % kSide == kSide - 1) continue;
      mesh.faces.push_back({{i, i + 1, i + kSide}, 1, EDGE_ALL});
      mesh.faces.push_back({{i + 1, i + kSide + 1, i + kSide}, 1, EDGE_ALL});
    }
    mesh.maps[1].verts.assign(mesh.verts.begin(), mesh.verts.end());
    mesh.setNumTVFaces(mesh.getNumFaces());
    for (size_t i = 0; i < mesh.faces.size(); ++i)
      for (size_t k = 0; k < 3; ++k) mesh.maps[1].faces[i].t[k] = mesh.faces[i].v[k];
    sowfield::Generator generator;
    written = sowfield::WriteMoksetFile(mesh, path.wstring(), generator);
  }
  ~BigFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
  std::filesystem::path path;
  bool written = false;
};

const BigFile& TheFile() {
  static const BigFile file;
  return file;
}

void ReadMesh(benchmark::State& state) {
  const BigFile& file = TheFile();
  for (auto _ : state) {
    const Mesh mesh = sowfield::ReadMoksetMesh(file.path.wstring());
    if (mesh.faces.empty()) return state.SkipWithError("the file can't be read");
  }
}

void ReadSamples(benchmark::State& state) {
  const BigFile& file = TheFile();
  for (auto _ : state)
    if (sowfield::ReadMoksetInfo(file.path.wstring()).samples.size() != 3000)
      return state.SkipWithError("the samples can't be read");
}

// All bytes into memory that is there already, then one pass that uses each.
void PlainRead(benchmark::State& state) {
  const BigFile& file = TheFile();
  host::Buffer<std::uint64_t> words(std::filesystem::file_size(file.path) / 8);
  for (auto _ : state) {
    std::ifstream in(file.path, std::ios::binary);
    in.read(reinterpret_cast<char*>(words.data()), std::streamsize(words.size() * 8));
    if (!in) return state.SkipWithError("the file can't be read");
    benchmark::DoNotOptimize(std::accumulate(words.begin(), words.end(), std::uint64_t(0)));
  }
}

}  // namespace

void AddProxyRows() {
  AddRow("Mokset file of 1,000,000 vertices, 2,000,000 faces", ReadMesh, "plain read and one pass",
         PlainRead, AtMost(3));
  AddRow("its samples alone", ReadSamples, "the same", PlainRead);
}

}  // namespace bench
