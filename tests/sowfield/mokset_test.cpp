#include <array>
#include <cmath>
#include <numeric>
#include <set>
#include <sstream>

#include "host/host.h"
#include "host/scene/proxyobjects.h"
#include "sowfield/model/sampleorder.h"
#include "sowfield/proxy/moksetfile.h"
#include "sowfield/proxy/sceneproxy.h"
#include "tests/host/tempfolder.h"
#include "tests/sowfield/moksetbytes.h"

namespace sowfield {
namespace {

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

/// What a check tells, a line a fault.
std::string Checked(const std::string& bytes) {
  std::istringstream in(bytes);
  MoksetInfo info;
  std::string told;
  for (const MoksetFault& fault : CheckMoksetStream(in, info))
    told += std::to_string(fault.offset) + ": " + fault.text + '\n';
  return told;
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

struct MoksetFiles : TempFolder {
  WStr Path(const char* name) const { return FromUtf8(TempFolder::Path(name)); }
  WStr Write(const char* name, const std::string& bytes) const {
    return FromUtf8(Put(name, bytes));
  }
  std::string Read(const char* name) const { return Content(TempFolder::Path(name)); }
  /// Writes a mesh and holds the file against what the generators' present states lead to.
  void ExpectToldFile(const Mesh& mesh, int m) {
    const auto order = ToldOrder(mesh.getNumVerts(), host.Core().systemRandom);
    Generator ahead = generator;
    ahead.RandomInt(100, 1);
    ASSERT_TRUE(WriteMoksetFile(mesh, Path("a.Vorn"), generator) && generator == ahead);
    ASSERT_TRUE(Read("a.Vorn") == FileOf(3, mesh, m, order, UNITS_FEET)) << m;
    ASSERT_EQ(Checked(Read("a.Vorn")), "");
  }

  host::Host host;
  Generator generator;
};

TEST_F(MoksetFiles, GivesBackAllGenerationsUnderEveryMultiplier) {
  for (int run = 0; run < 600; ++run) {
    const bool texture = run % 2 == 0;
    const int generation = 1 + run / 200, m = generation == 1 ? 1 : 1 + run / 2 % 100;
    const Mesh mesh = Small(texture);
    const std::string bytes = FileOf(generation, mesh, m, {3, 0, 4, 1, 2}, run % 7);
    ASSERT_EQ(Checked(bytes), "");
    Mesh read = Points(9);
    const MoksetInfo info = ReadBytes(bytes, &read);
    ASSERT_TRUE(!info.fault && BytesOf(read) == BytesOf(mesh)) << generation << " " << m;
    for (const MoksetInfo& i : {info, ReadBytes(bytes, nullptr)}) {
      EXPECT_TRUE(i.generation == generation && i.multiplier == m && i.end == bytes.size());
      EXPECT_TRUE(i.textureVertices == (texture ? 3 : 0) && i.vertices == 5 && i.faces == 3);
      EXPECT_EQ(i.unit, generation == 3 ? run % 7 : -1);
      EXPECT_EQ(i.box, Box3({-5, 0, -1}, {2, 3, 1}));
      const auto& v = mesh.verts;
      EXPECT_EQ(i.samples, (std::vector<Point3>{v[3], v[0], v[4], v[1], v[2]}));
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
  // Times 7, with six more: divided plainly, but told by a check. 5 + 3 points, 5 samples.
  std::string odd = FileOf(3, Small(), 7, {3, 0, 4, 1, 2}), told;
  const std::string sound = odd;
  const std::tuple<size_t, int, const char*> sums[] = {{151, 5, "the number of samples"},
                                                       {155, 3, "sample 0"},
                                                       {467, 3, "the number of faces"},
                                                       {475, 0, "vertex a of face 0"}};
  for (const auto& [at, value, field] : sums) {
    odd[at] = char(value * 7 + 6);
    told += std::to_string(at) + ": " + field + " times 7 is " + std::to_string(value * 7 + 6) +
            ", expected a multiple of it\n";
  }
  const MoksetInfo info = ReadBytes(odd, &read);
  EXPECT_TRUE(!info.fault && BytesOf(read) == BytesOf(Small())) << info.fault.text;
  EXPECT_EQ(info.samples, ReadBytes(sound, nullptr).samples);
  EXPECT_EQ(Checked(odd), told);
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
      {151, "\x58\x1B",
       "number of samples times 7 is 7000, but the file of 619 bytes has room for"},
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

// `value` in place of what stands there.
template <class T>
std::string With(std::string bytes, size_t at, T value) {
  return bytes.replace(at, sizeof value, reinterpret_cast<const char*>(&value), sizeof value);
}

TEST_F(MoksetFiles, ACheckTellsWhatNoWriterMakes) {
  using Order = std::vector<std::uint32_t>;
  // No vertices have no box that could be told.
  EXPECT_EQ(Checked(With(FileOf(3, {}, 1, {}), 15, Box3({0, 0, 0}, {0, 0, 0}))), "");
  Order tooMany(3001);
  std::iota(tooMany.begin(), tooMany.end(), 0u);
  // Box, number of samples, bytes of a sample, and faces with 5 + 3 points and 5 samples.
  const std::array<size_t, 4> places[] = {{0, 128, 4, 156}, {15, 147, 4, 447}, {15, 151, 8, 475}};
  for (int generation = 1; generation <= 3; ++generation) {
    const auto [box, samples, sampleBytes, faces] = places[generation - 1];
    const auto file = [&](const Order& order, int m = 7) {
      return FileOf(generation, Small(), m, order);
    };
    const std::string whole = file({3, 0, 4, 1, 2});
    const std::tuple<std::string, size_t, std::string> cases[] = {
        {file({}), samples, "the number of samples is 0, expected 5 of 5 vertices"},
        {file({3, 0, 4, 0, 3}), samples + 4 + 3 * sampleBytes,
         "sample 3 is vertex 0, expected another than sample 1"},
        {With(whole, box, 2.5f), box,
         "the upper corner of the box is 2.5 3 1, expected that of the vertices, 2 3 1"},
        {With(whole, box + 20, -1.5f), box + 12,
         "the lower corner of the box is -5 0 -1.5, expected that of the vertices, -5 0 -1"},
        {whole + "123", whole.size(), "3 bytes follow the end of the mesh, expected 0"},
        // What a reader refuses is all that is told.
        {With(whole, box, INFINITY) + "123", box, "a corner of the box isn't finite"}};
    for (const auto& [bytes, where, text] : cases)
      EXPECT_EQ(Checked(bytes), std::to_string(where) + ": " + text + '\n');
    const std::string beyond = Checked(FileOf(generation, Points(3001), 2, tooMany));
    EXPECT_NE(beyond.find(" is 3001, expected 3000 of 3001 "), beyond.npos) << beyond;
    const std::string multiplied = Checked(file({3, 0, 4, 1, 2}, 101));
    EXPECT_EQ(multiplied.find("the multiplier is 101, expected 1 to 100\n") == multiplied.npos,
              generation == 1);
    // Edges that are floats are visible by any number but 0.
    EXPECT_EQ(Checked(With(whole, faces + 12, 7.5f)).empty(), generation < 3);
  }
}

TEST_F(MoksetFiles, ACheckOfTheThirdGenerationTellsUnitAndEdges) {
  const std::string whole = FileOf(3, Small(), 7, {3, 0, 4, 1, 2});
  for (const int unit : {7, -1})
    EXPECT_EQ(Checked(With(whole, 39, unit)),
              "39: the unit is " + std::to_string(unit) + ", expected 0 to 6\n");
  for (size_t edge = 0; edge < 3; ++edge)
    for (const int value : {-1, 0, 1, 2, 3, 4, 5, 8}) {
      const int allowed = 1 << edge;
      const size_t at = 475 + 44 + 24 + 4 * edge;  // in face 1
      const std::string told = std::to_string(at) + ": edge " + "abc"[edge] + " of face 1 is " +
                               std::to_string(value) + ", expected 0 or " +
                               std::to_string(allowed) + "\n";
      EXPECT_EQ(Checked(With(whole, at, value)), value == 0 || value == allowed ? "" : told);
    }
  // In the order of the file; of the edges the first one.
  std::string odd = With(With(With(whole, 15, 9.0f), 39, 8), 475 + 24, 4);
  odd = With(With(odd, 475 + 88 + 24, 2), 155 + 8, std::int64_t(3 * 7)) + "1";
  std::istringstream told(Checked(odd));
  std::vector<int> places;
  for (std::string line; std::getline(told, line);) places.push_back(std::stoi(line));
  EXPECT_EQ(places, (std::vector{15, 39, 163, 499, 643}));
}

TEST_F(MoksetFiles, ASceneProxysTablesTellItsMesh) {
  auto* proxy = new MoksetProxyObject;
  INode* node = host.Services().CreateObjectNode(proxy);
  IParamBlock2& b = *proxy->GetParamBlock(0);
  const auto fill = [&](ParamID id, const auto& values) {
    b.Append(id, int(values.size()), values.data());
  };
  using Table = std::vector<Point3>;
  const Table verts = {{0, 0, 0}, {1, 0, 0}, {0, 2, 0}, {0, 0, 3}};
  const Table textureVerts = {{0, 0, 0}, {0.5f, 0, 0}, {0, 0.25f, 1}};
  fill(3, verts), fill(4, textureVerts);
  fill(5, Table{{0, 1, 2}, {2, 3, 0}, {1, 3, 2}, {3, 1, 0}});
  fill(6, Table{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {-1, 0.5f, 0}});
  fill(7, std::vector{5, -0x7FFFFFFF, 0, 1 << 20});
  fill(8, Table{{0, 1, 2}, {2, 2, 0}, {1, 0, 1}, {2, 0, 0}});
  fill(9, std::vector{3, 65535, 0, 12});
  Mesh mesh = ReadSceneProxyMesh(node);
  EXPECT_TRUE(std::equal(verts.begin(), verts.end(), mesh.verts.begin(), mesh.verts.end()));
  // The id of a face stands in the upper 16 bits, edges a, b and c are 1, 2 and 4.
  const host::Buffer<Face> faces = {{{0, 1, 2}, 5, 3u << 16 | 1},
                                    {{2, 3, 0}, 0x80000001, 65535u << 16 | 2},
                                    {{1, 3, 2}, 0, 4},
                                    {{3, 1, 0}, 1u << 20, 12u << 16 | 3}};
  const std::vector<TVFace> textureFaces = {{{0, 1, 2}}, {{2, 2, 0}}, {{1, 0, 1}}, {{2, 0, 0}}};
  EXPECT_EQ(mesh.faces, faces);
  EXPECT_TRUE(mesh.mapSupport(1) && mesh.maps[1].verts == textureVerts);
  EXPECT_EQ(mesh.maps[1].faces, textureFaces);
  // Faces that the other tables don't reach, and no texture.
  for (const ParamID id : {6, 7, 9}) b.Delete(id, 1, 3);
  b.Delete(4, 0, 3);
  ReadSceneProxyMeshInto(node, mesh);
  ASSERT_EQ(mesh.faces.size(), 4u);
  EXPECT_EQ(mesh.faces[0], faces[0]);
  for (size_t i = 1; i < 4; ++i) EXPECT_TRUE(mesh.faces[i].flags == 7 && !mesh.faces[i].smGroup);
  EXPECT_FALSE(mesh.mapSupport(1));
  // A vertex that isn't there: no mesh.
  proxy->SetMesh(Small());
  for (const float corner : {5.0f, -1.0f, NAN, 4.0f}) {
    b.SetValue(moksetproxy::kFaces, 0, Point3(0, 1, corner), 1);
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
