#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <set>
#include <sstream>

#include "host/host.h"
#include "host/scene/proxyobjects.h"
#include "sowfield/model/sampleorder.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/sceneproxy.h"

namespace sowfield {
namespace {

namespace fs = std::filesystem;

template <class T>
void Put(std::string& to, T value) {
  to.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// A file of any generation, field by field. All products wrap in 32 bits.
std::string FileOf(int generation, const Mesh& mesh, int m, const std::vector<std::uint32_t>& order,
                   int unit = 0) {
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

Mesh Small(bool texture = true) {
  Mesh mesh;
  mesh.verts = {{0, 0, -1}, {2, 0, 0}, {2, 3, 0.1f}, {0, 3, 1e-30f}, {-5, 1, 1}};
  mesh.faces = {{{0, 1, 2}, 0, EDGE_A | EDGE_B}, {{2, 3, 0}, 5, EDGE_C}, {{4, 0, 3}, 1u << 20, 0}};
  for (int i = 0; i < 3; ++i) mesh.setFaceMtlIndex(i, MtlID(i == 2 ? 65535 : i * 7));
  if (!texture) return mesh;
  mesh.maps[1].verts = {{0, 0, 0}, {1, 0, NAN}, {0.5f, 2, 0}};
  mesh.maps[1].faces = {{{0, 1, 2}}, {{2, 1, 0}}, {{1, 1, 2}}};
  mesh.maps[1].used = true;
  return mesh;
}

Mesh Points(int n) {
  Mesh mesh;
  for (int i = 0; i < n; ++i) mesh.verts.push_back({float(i), float(i % 7), float(-i)});
  return mesh;
}

std::string BytesOf(const Mesh& mesh) { return FileOf(1, mesh, 1, {}); }

MoksetInfo ReadBytes(const std::string& bytes, Mesh* mesh) {
  std::istringstream in(bytes);
  return ReadMoksetStream(in, mesh);
}

/// The told shuffle, draw by draw. That of a new type goes one place further and takes remainders
/// as they come.
std::vector<std::uint32_t> ToldOrder(int n, host::SystemRandom random, bool newType = false) {
  std::vector<std::uint32_t> order(size_t(n), 0u);
  std::iota(order.begin(), order.end(), 0u);
  for (int i = 1; i <= n - (newType ? 1 : 2); ++i) {
    long long value, end;
    do {
      value = random.Draw(), end = 32768;
      while (end <= i) value = value * 32768 + random.Draw(), end *= 32768;
    } while (!newType && value >= end - end % (i + 1));
    std::swap(order[size_t(i)], order[size_t(value % (i + 1))]);
  }
  order.resize(std::min(order.size(), size_t(3000)));
  return order;
}

struct MoksetFiles : ::testing::Test {
  MoksetFiles() { fs::create_directories(folder); }
  ~MoksetFiles() override { fs::remove_all(folder); }
  WStr Path(const char* name) const { return (folder / name).wstring(); }
  WStr Write(const char* name, const std::string& bytes) const {
    std::ofstream(folder / name, std::ios::binary) << bytes;
    return Path(name);
  }
  std::string Read(const char* name) const {
    std::ifstream in(folder / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// Writes a mesh and holds the file against what the generators' present states lead to.
  void ExpectToldFile(const Mesh& mesh, int m) {
    const auto order = ToldOrder(mesh.getNumVerts(), host.Core().systemRandom);
    Generator ahead = generator;
    ahead.RandomInt(100, 1);
    ASSERT_TRUE(WriteMoksetFile(mesh, Path("a.Vorn"), generator) && generator == ahead);
    ASSERT_TRUE(Read("a.Vorn") == FileOf(3, mesh, m, order, UNITS_FEET)) << m;
  }

  const fs::path folder = fs::path(testing::TempDir()) / ("mokset-" + std::to_string(getpid()));
  host::Host host;
  Generator generator;
};

TEST_F(MoksetFiles, GivesBackAllGenerationsUnderEveryMultiplier) {
  for (int run = 0; run < 600; ++run) {
    const bool texture = run % 2 == 0;
    const int generation = 1 + run / 200, m = generation == 1 ? 1 : 1 + run / 2 % 100;
    const Mesh mesh = Small(texture);
    const std::string bytes = FileOf(generation, mesh, m, {3, 0, 4}, UNITS_FEET);
    Mesh read = Points(9);
    const MoksetInfo info = ReadBytes(bytes, &read);
    ASSERT_TRUE(!info.fault && BytesOf(read) == BytesOf(mesh)) << generation << " " << m;
    for (const MoksetInfo& i : {info, ReadBytes(bytes, nullptr)}) {
      EXPECT_TRUE(i.generation == generation && i.multiplier == m && i.end == bytes.size());
      EXPECT_TRUE(i.textureVertices == (texture ? 3 : 0) && i.vertices == 5 && i.faces == 3);
      EXPECT_EQ(i.unit, generation == 3 ? UNITS_FEET : -1);
      EXPECT_EQ(i.box, Box3({-5, 0, -1}, {2, 3, 1}));
      EXPECT_EQ(i.samples, (std::vector<Point3>{mesh.verts[3], mesh.verts[0], mesh.verts[4]}));
    }
    EXPECT_EQ(read.mapSupport(1), texture);
  }
}

TEST_F(MoksetFiles, TakesWhatItsWriterRoundedOrWrapped) {
  // The float holds 40001 * 499 = 19960499 as 19960500, which is 40001 again when cut.
  Mesh mesh = Points(40002), small = Small(), read;
  mesh.faces = {{{40001, 40000, 1}, 0, 0}};
  ReadBytes(FileOf(2, mesh, 499, {}), &read);
  EXPECT_EQ(read.faces.at(0).v[0], 40001u);
  // 3 * 2^30 is -2^30 in 32 bits.
  small.faces[0].smGroup = 1u << 30;
  ReadBytes(FileOf(3, small, 3, {}), &read);
  EXPECT_EQ(read.faces.at(0).smGroup, std::uint32_t(-(1 << 30) / 3));
}

TEST_F(MoksetFiles, TheVersionIsReadFromTheFirstLine) {
  // What follows the mark's first letters, and the generation.
  const std::pair<const char*, int> table[] = {{"\n0.6", 0},  {" 0.6", 0}, {"0.7", 0},
                                               {"0.5xyz", 2}, {".6 ", 3},  {"0.6", 3}};
  for (const auto& [rest, version] : table)
    EXPECT_EQ(ReadMoksetVersion(Write("v.Vorn", std::string("Vorn_MoksetV") + rest)), version);
  for (const char* other : {"", "vorn_MoksetV0.6", "\nVorn_MoksetV0.6"})
    EXPECT_EQ(ReadMoksetVersion(Write("v.Vorn", other)), 1);
}

TEST_F(MoksetFiles, WritesEveryByteAsTold) {
  host.Services().SetMasterUnit(UNITS_FEET, 1);
  const auto next = [this] { return Generator(generator).RandomInt(100, 1); };
  for (std::set<int> seen; seen.size() < 100;) {
    const int m = next();
    if (seen.insert(m).second) {
      ExpectToldFile(Small(m % 2 == 0), m);
    } else {
      generator.RandomInt(100, 1);
    }
  }
  for (const int vertices : {0, 1, 2, 2999, 3000, 3001, 33000})
    ExpectToldFile(Points(vertices), next());
}

TEST_F(MoksetFiles, SmoothingMasksLowerTheMultiplierOnlyAsFarAsNeeded) {
  // The mask as a signed number times M stays within 32 bits.
  const std::pair<std::uint32_t, int> largest[] = {
      {0, 100},        {0x01000000, 100}, {0x01FFFFFF, 64}, {0x04000000, 31},  {0x40000000, 1},
      {0x7FFFFFFF, 1}, {0x80000000, 1},   {0xC0000000, 2},  {0xFF000001, 100}, {0xFFFFFFFF, 100}};
  for (int i = 0; i < 30; ++i) {
    const auto [mask, most] = largest[i % 10];
    Mesh mesh = Small();
    mesh.faces[1].smGroup = mask;
    const int m = std::min(Generator(generator).RandomInt(100, 1), most);
    ASSERT_TRUE(WriteMoksetFile(mesh, Path("a.Vorn"), generator));
    EXPECT_EQ(ReadMoksetInfo(Path("a.Vorn")).multiplier, m) << std::hex << mask;
    EXPECT_TRUE(BytesOf(ReadMoksetMesh(Path("a.Vorn"))) == BytesOf(mesh)) << std::hex << mask;
  }
}

TEST_F(MoksetFiles, AFailedWriteLeavesTheOldFileAndTakesItsDraw) {
  Generator ahead;
  ahead.RandomInt(100, 1);
  Mesh broken = Small();
  broken.faces[0].v[1] = 5;
  EXPECT_FALSE(WriteMoksetFile(broken, Write("old.Vorn", "old"), generator));
  EXPECT_TRUE(Read("old.Vorn") == "old" && generator == ahead);
}

TEST_F(MoksetFiles, CutAnywhereItIsRefused) {
  for (int generation = 1; generation <= 3; ++generation) {
    const std::string whole = FileOf(generation, Small(), 3, {1, 2});
    for (size_t end = 0; end < whole.size(); ++end) {
      Mesh mesh = Points(3);
      const MoksetFault fault = ReadBytes(whole.substr(0, end), &mesh).fault;
      ASSERT_TRUE(fault && fault.offset <= whole.size()) << generation << " " << end;
      ASSERT_TRUE(mesh.verts.empty() && mesh.faces.empty() && mesh.getNumTVerts() == 0);
    }
  }
}

TEST_F(MoksetFiles, TellsWhatIsWrongAndWhere) {
  // Generation 3 with 5 + 3 points: multiplier at 51 + 96, samples behind it, faces at 339 + 112.
  const std::string whole = FileOf(3, Small(), 7, {1, 2});
  ASSERT_EQ(whole.size(), 451u + 3 * 44 + 3 * 12);
  const std::tuple<size_t, std::string, const char*> table[] = {
      {43, "\xFF\xFF\xFF\xFF", "number of vertices is -1"},
      {47, std::string("\0\0\x80\x7F", 4), "vertex 0 isn't finite"},
      {47 + 96 + 4, std::string(4, '\0'), "multiplier"},
      {47 + 96 + 4, "\xFF\xFF\xFF\xFF", "multiplier"},
      {163, "\x23", "sample 1 times 7 is 35, allowed are 0 to 28"},
      {451 + 44, std::string(8, '\xFF'), "vertex a of face 1 times 7 is -1"},
      {451 + 3 * 44 + 12, "\x03", "a texture vertex of face 1 is 3, allowed are 0 to 2"}};
  for (const auto& [at, changed, told] : table) {
    std::string bytes = whole;
    bytes.replace(at, changed.size(), changed);
    Mesh mesh;
    const MoksetFault fault = ReadBytes(bytes, &mesh).fault;
    EXPECT_TRUE(fault.text.find(told) != fault.text.npos && fault.offset == at) << fault.text;
    // Faces aren't read for the rest.
    EXPECT_EQ(bool(ReadBytes(bytes, nullptr).fault), at < 451 && at != 47) << told;
  }
}

TEST_F(MoksetFiles, ABrokenSceneProxyGivesNoMesh) {
  auto* proxy = new MoksetProxyObject;
  INode* node = host.Services().CreateObjectNode(proxy);
  proxy->SetMesh(Small());
  for (const float corner : {5.0f, -1.0f, NAN, 4.0f}) {
    proxy->GetParamBlock(0)->SetValue(moksetproxy::kFaces, 0, Point3(0, 1, corner), 1);
    EXPECT_EQ(ReadSceneProxyMesh(node).verts.size(), corner == 4 ? 5u : 0u);
  }
}

TEST_F(MoksetFiles, ANewTypesSamplesAreDrawnOnceEach) {
  for (const int n : {1, 10, 3001, 40000}) {
    const auto order = ToldOrder(n, host.Core().systemRandom, true);
    EXPECT_TRUE(SampleOrder(std::uint32_t(n), SampleShuffle::NewType) == order) << n;
  }
}

}  // namespace
}  // namespace sowfield
