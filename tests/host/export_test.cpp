// What other programs see of a scene.
#include <set>

#include "host/files/png.h"
#include "host/host.h"
#include "host/scene/mtl.h"
#include "host/scene/primitives.h"
#include "host/scenefile/scenefile.h"
#include "tests/host/sealed.h"
#include "tests/host/tempfolder.h"
#include "tests/host/viewerfile.h"

namespace {

using nlohmann::json;

class Export : public TempFolder {
 protected:
  INode* Box(const Point3& size, Mtl* mtl = nullptr) {
    auto* box = new BoxObject;
    box->SetSize(size.x, size.y, size.z);
    INode* node = host_.Services().CreateObjectNode(box);
    node->SetName(L"b" + std::to_wstring(count_++));
    if (mtl) node->SetMtl(mtl);
    return node;
  }
  static StdMtl* Paint(float red, const WStr& picture = L"") {
    auto* mtl = new StdMtl;
    mtl->SetDiffuse({red, 0, 0}, 0);
    if (picture.empty()) return mtl;
    auto* map = new BitmapTex;
    map->SetPicture(picture);
    mtl->SetSubTexmap(StdMtl::kDiffuseMap, map);
    return mtl;
  }
  std::vector<std::byte> Save() {
    std::vector<std::byte> bytes;
    EXPECT_TRUE(host::SaveSceneBytes(host_.Services(), Path("a.glb"), bytes, error_)) << error_;
    return bytes;
  }
  std::string SavedAs(const std::string& name) {
    EXPECT_TRUE(host::SaveScene(host_.Services(), Path(name), {}, error_, &saved_)) << error_;
    return Content(Path(name));
  }
  host::Host host_;
  host::SavedScene saved_;
  int count_ = 0;
};

TEST_F(Export, WhatIsEqualIsThereOnce) {
  for (int i = 0; i < 20; ++i) Box({1, 2, 3}, i % 2 == 0 ? Paint(0.5f) : nullptr);
  for (int i = 0; i < 20; ++i) Box({4, 5, float(i % 4 + 1)}, Paint(i < 10 ? 0.5f : 0.25f));
  const ViewerFile v(Save());
  EXPECT_EQ(v.root["materials"].size(), 3u);  // two colours, and that of the wires
  // One box in two materials, four others in two.
  EXPECT_EQ(v.root["meshes"].size(), 2u + 4 * 2);
  std::set<std::string> arrays;
  for (const json& mesh : v.root["meshes"]) {
    ASSERT_EQ(mesh["primitives"].size(), 1u);
    arrays.insert(mesh["primitives"][0]["attributes"]["POSITION"].dump());
    EXPECT_EQ(mesh["primitives"][0]["attributes"]["TEXCOORD_0"],
              v.PartsAt(1)[0]["attributes"]["TEXCOORD_0"]);
  }
  EXPECT_EQ(arrays.size(), 5u);
  const json &first = v.PartsAt(1)[0]["attributes"], &last = v.PartsAt(40)[0]["attributes"];
  EXPECT_EQ(first["NORMAL"], last["NORMAL"]);
  float far = 0;
  for (const auto& row : v.Rows<float>(last["POSITION"])) far = std::max(far, row[2]);
  EXPECT_EQ(far, 4);
}

TEST_F(Export, FacesArePartedByTheirMaterialAlone) {
  auto* multi = new MultiMtl;
  for (int id = 0; id < 6; ++id) multi->SetSubMtl(id, Paint(id % 3 == 0 ? 0.5f : 0.25f));
  Box({1, 1, 1}, multi), Box({1, 1, 1}, multi->GetSubMtl(0)), Box({1, 1, 1});
  const ViewerFile v(Save());
  std::vector<size_t> corners;
  for (size_t node = 1; node <= 3; ++node)
    for (const json& part : v.PartsAt(node))
      corners.push_back(v.Rows<std::uint32_t>(part["indices"]).size());
  // Two of the six sides have one colour, four the other; a side has two triangles.
  EXPECT_EQ(corners, (std::vector<size_t>{2 * 6, 4 * 6, 6 * 6, 6 * 6}));
}

TEST_F(Export, ABoxTakesLessThanAKilobyteBesideItsVertices) {
  constexpr size_t kBoxes = 500, kOwn = 24 * sizeof(Point3);  // its corners, three to a vertex
  for (size_t i = 0; i < kBoxes; ++i)
    Box({1.1f, 2.2f, 3.3f})->SetNodeTM(0, TransMatrix({0.1f, float(i) / 7, 0}));
  EXPECT_LT(Save().size(), kBoxes * 1024);
  for (size_t i = 0; i < kBoxes; ++i) Box({1.1f, float(i) / 7, 3.3f});
  EXPECT_LT(Save().size(), 2 * kBoxes * 1024 + kBoxes * kOwn);
}

TEST_F(Export, PicturesGoIntoAGlbAndLieBesideAPair) {
  std::vector<std::byte> png;
  EXPECT_FALSE(host::EncodePng(1, 2, std::vector<std::uint8_t>{1, 2, 3}, png, error_));
  ASSERT_TRUE(host::EncodePng(1, 1, std::vector<std::uint8_t>{1, 2, 3}, png, error_)) << error_;
  const std::string bytes = Raw(png);
  const WStr leaf = FromUtf8(Put("leaf.png", bytes)), twin = FromUtf8(Put("twin.png", bytes));
  const WStr lost = FromUtf8(Path("lost.png")), text = FromUtf8(Put("text.png", "no picture"));
  for (const WStr& picture : {leaf, leaf, twin, lost, text}) Box({1, 1, 1}, Paint(0.5f, picture));
  const std::string file = SavedAs("a.glb");
  const ViewerFile v(std::as_bytes(std::span(file)));
  ASSERT_EQ(v.root["images"].size(), 2u);
  EXPECT_EQ(v.root["images"][0], v.root["images"][1]) << "equal bytes are there once";
  EXPECT_EQ(v.root["images"][0]["mimeType"], "image/png");
  const json& view = v.root["bufferViews"][v.root["images"][0]["bufferView"].get<size_t>()];
  EXPECT_EQ(Raw(v.bin).substr(view["byteOffset"], view["byteLength"]), bytes);
  EXPECT_EQ(v.root["materials"].size(), 4u);
  ASSERT_EQ(saved_.warnings.size(), 2u);
  EXPECT_NE(saved_.warnings[0].find("lost.png\": No such file"), std::string::npos)
      << saved_.warnings[0];
  EXPECT_NE(saved_.warnings[1].find("text.png\" is no PNG or JPEG"), std::string::npos)
      << saved_.warnings[1];

  const json pair = json::parse(SavedAs("a.gltf"));
  ASSERT_EQ(pair["images"].size(), 4u);
  EXPECT_EQ(pair["images"][0]["uri"], "leaf.png");
  EXPECT_TRUE(saved_.warnings.empty());
}

}  // namespace
