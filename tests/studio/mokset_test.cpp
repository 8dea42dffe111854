#include <cmath>

#include "host/host.h"
#include "sowfield/proxy/moksetfile.h"
#include "tests/sowfield/moksetbytes.h"
#include "tests/studio/jobfixture.h"

namespace studio {
namespace {

using nlohmann::json;
using namespace std::string_literals;

// Two triangles that meet in a smoothed edge, with textures and ids 3 and 0, in feet.
Mesh Roof() {
  Mesh mesh;
  mesh.verts = {{0, 0, 0}, {4, 0, 0.1f}, {2, 1, 3}, {2, 5, 1}};
  mesh.faces = {{{0, 1, 2}, 1, EDGE_ALL}, {{1, 3, 2}, 1, EDGE_ALL}};
  mesh.setFaceMtlIndex(0, 3);
  mesh.maps[1].verts = {{0, 0, 0}, {1, 0, 0}, {0.5f, 0.25f, 0}, {NAN, 1, 0}};
  mesh.maps[1].faces = {{{0, 1, 2}}, {{1, 3, 2}}};
  mesh.maps[1].used = true;
  return mesh;
}

struct Mokset : JobTest {
  void SetUp() override {
    JobTest::SetUp();
    host::Host host;
    host.Services().SetMasterUnit(UNITS_FEET, 1);
    sowfield::Generator generator;
    ASSERT_TRUE(sowfield::WriteMoksetFile(Roof(), Path("roof.Vorn").wstring(), generator));
  }
  int Run(const std::string& line) {
    const Result r = Command("mokset " + line);
    out = r.out, err = r.err;
    return r.status;
  }
  Mesh Meshed(const char* name) { return sowfield::ReadMoksetMesh(Path(name).wstring()); }
  std::string out, err;
};

TEST_F(Mokset, InfoTellsTheHead) {
  Write("empty.Vorn", sowfield::FileOf(3, {}, 1, {}));
  ASSERT_EQ(Run("info @roof.Vorn --json"), 0) << err;
  EXPECT_TRUE(Says(out, R"("unit":"feet")") && Says(out, R"("max":[4,5,3])")) << out;
  ASSERT_EQ(Run("info @empty.Vorn --json"), 0) << err;
  EXPECT_TRUE(json::parse(out).at("box").is_null()) << out;
  for (const auto& [file, box] :
       {std::pair("roof", "0 0 0 to 4 5 3"), std::pair("empty", "empty")}) {
    Run("info @"s + file + ".Vorn");
    EXPECT_TRUE(Says(out, "  box               "s + box + "\n"));
  }
  // The last number of the file is a texture vertex of its last face, of 4.
  const std::string whole = Read("roof.Vorn");
  Write("broken.Vorn", std::string(whole).replace(whole.size() - 4, 1, "\x04"));
  EXPECT_EQ(Run("info @broken.Vorn --json"), 1);
  EXPECT_TRUE(json::parse(out)["ok"] == false && json::parse(out)["faces"] == 2) << out;
  EXPECT_TRUE(Says(err, "a texture vertex of face 1 is 4, allowed are 0 to 3")) << err;
}

TEST_F(Mokset, VerifyNamesEachFaultWithItsPlace) {
  const std::string whole = Read("roof.Vorn"), end = "byte " + std::to_string(whole.size());
  Write("cut.Vorn", whole.substr(0, 60));
  Write("moved.Vorn", std::string(whole).replace(49, 1, "\x01"));
  // The unit is at 39.
  Write("two.Vorn", std::string(whole).replace(39, 1, "\x09") + "1");
  Write("text.Vorn", std::string(200, 'x'));
  EXPECT_EQ(Run("verify @cut.Vorn @roof.Vorn @moved.Vorn @two.Vorn @text.Vorn"), 1);
  EXPECT_EQ(out, Path("roof.Vorn").string() + ": sound, generation 3, 4 vertices, 2 faces\n");
  const std::string noMark = "(it has no Mokset mark, so it was read as generation 1)\n";
  for (const std::string& told : {"cut.Vorn: byte 43: the number of vertices is 4"s,
                                  "moved.Vorn: byte 27: the lower corner of the box is 0 0 0"s,
                                  "two.Vorn: byte 39: the unit is 9, expected 0 to 6\n"s,
                                  "two.Vorn: " + end + ": 1 bytes follow", noMark})
    EXPECT_TRUE(Says(err, told));
  EXPECT_EQ(Run("info @text.Vorn"), 1);
  EXPECT_TRUE(Says(err, noMark));

  EXPECT_EQ(Run("verify --json @none.Vorn @roof.Vorn @two.Vorn"), 1);
  const json told = json::parse(out);
  EXPECT_TRUE(told[0]["ok"] == false && told[1]["faces"] == 2 && told[2]["ok"] == false) << out;
  EXPECT_TRUE(told[2]["errors"].size() == 2 && told[2]["error"]["byte"] == 39) << out;
  EXPECT_EQ(told[2]["errors"][0], told[2]["error"]);
}

TEST_F(Mokset, AModelThatWasExportedComesBack) {
  // Its name becomes one line of an OBJ.
  Write("two\nf 9\r9 \\.Vorn", Read("roof.Vorn"));
  for (const std::string ending : {"obj", "gltf", "GLB"}) {
    SCOPED_TRACE(ending);
    ASSERT_EQ(Run("export '@two\nf 9\r9 \\\\.Vorn' @roof." + ending), 0) << err;
    ASSERT_EQ(Run("import --force --join @roof." + ending + " @back.Vorn"), 0) << err;
    const Mesh back = Meshed("back.Vorn");
    ASSERT_EQ(back.getNumFaces(), 2);
    // glTF tells its length in metres, which is the unit of the program; OBJ tells none.
    const float unit = ending == "obj" ? 1 : 0.3048f;
    for (const Point3& corner : Roof().verts) {
      const auto near = [&](auto& v) { return Length(v - corner * unit) < 1e-5f; };
      EXPECT_EQ(std::count_if(back.verts.begin(), back.verts.end(), near), 1);
    }
    const auto level = [](auto& v) { return v.y == 0; };
    EXPECT_EQ(std::count_if(back.verts.begin(), back.verts.end(), level), 2)
        << "upright to the bit";
    EXPECT_NE(back.faces[0].smGroup & back.faces[1].smGroup, 0u);
    EXPECT_NE(back.faces[0].getMatID(), back.faces[1].getMatID());
    const auto middle = [](auto& v) { return v == Point3(0.5f, 0.25f, 0); };
    EXPECT_TRUE(std::any_of(back.maps[1].verts.begin(), back.maps[1].verts.end(), middle));
  }
  EXPECT_TRUE(Read("roof.obj").starts_with("o two_f 9_9 _\nv ")) << Read("roof.obj");
  EXPECT_EQ(Run("export @roof.Vorn @roof.fbx"), 2);
}

TEST_F(Mokset, ImportTakesOneNodeOrAll) {
  Write("pair.obj", "v 5 0 0\nv 6 0 0\nv 5 4 0\no left\nf 1 3 2\no right\nf 1 2 3\n");
  EXPECT_EQ(Run("import @pair.obj @a.Vorn"), 1);
  EXPECT_TRUE(Says(err, "2 nodes have a mesh") && Says(err, ": left, right\n")) << err;
  EXPECT_FALSE(std::filesystem::exists(Path("a.Vorn")));
  ASSERT_EQ(Run("import @pair.obj @a.Vorn --node right"), 0) << err;
  // Where it stands in the world; the file's Y is up.
  EXPECT_EQ(Meshed("a.Vorn").getBoundingBox(), Box3({5, 0, 0}, {6, 0, 4}));
  EXPECT_EQ(Run("import @pair.obj @a.Vorn --node left --join"), 2);
}

}  // namespace
}  // namespace studio
