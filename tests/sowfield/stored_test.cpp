#include <gtest/gtest.h>

#include <cstring>

#include "tests/sowfield/fixture.h"

namespace sowfield {
namespace {

class Stored : public testing::Test, public SowfieldScene {
 protected:
  // Two types, three placements, values of all kinds.
  void FillScene() {
    node->SetName(L"one");
    ASSERT_TRUE(AddAsType(AddBox(L"stone", 1, 2, 3, {9, 0, 0})));
    ASSERT_TRUE(AddAsType(AddSphere(L"tree", 2, 9, {20, 0, 0})));
    AppendPlacements({{{1, 2, -0.0f}, {0.1f, 0.2f, 0.3f}, 0, 3, 17},
                      {{-4, 5, 6}, {0, -0.0f, 3}, 1, 99, 9999},
                      {{7, 8, 9}, {0, 0, 0}, 0, 0, 0}});
    Set(Tr_Random, 1, 2), Set(Tr_ZRot_Max, 90.5f, 2), Set(Display_Mode, 2);
    Set(Geo_Reserved_A, -77), Set(Z_Pos, 12.5f);
    Block().SetKey(HueShift, 0, 5), Block().SetKey(HueShift, 480, 50);
    CloseEdit();
  }
  // The fixture's object is the one of the node "one" from then on.
  bool Open(const std::vector<std::byte>& bytes,
            const std::function<std::string(Scene&)>& accept = nullptr) {
    if (!host::OpenSceneBytes(host.Services(), bytes, "it", {accept}, error)) return false;
    node = Named(L"one");
    object = ObjectOf(L"one");
    return true;
  }
  Sowfield* ObjectOf(const WStr& name) {
    return static_cast<Sowfield*>(Named(name)->GetObjectRef());
  }
  std::string error;
};

TEST_F(Stored, ObjectsComeBackWithAllTheirTables) {
  FillScene();
  RemapDir remap;
  auto* clone = static_cast<Sowfield*>(object->Clone(remap));  // which shares the sources
  clone->RefreshObject();                                      // without a node of its own
  EXPECT_EQ(clone->mesh.getNumVerts(), Shown());
  Named(L"stone")->AttachChild(AddNode(L"two", clone, {0, 0, 5}));
  AddNode(L"instance", object);
  auto* blank = static_cast<Sowfield*>(CreateInstance(GEOMOBJECT_CLASS_ID, kSowfieldClass));
  blank->InitNewObject();
  AddNode(L"nothing painted", blank);
  clone->pblock2->SetValue(Brush_Size, 0, 3.75f);
  const Snapshot one = TakeSnapshot(Block()), two = TakeSnapshot(*clone->pblock2);
  const int shown = Shown();
  const std::vector<std::byte> bytes = SaveBytes();

  ASSERT_TRUE(Open(bytes)) << error;
  // Other nodes stand in the table of sources, of the same names.
  EXPECT_EQ(Differences(one, TakeSnapshot(Block())), "Geo_Nodes");
  EXPECT_EQ(Differences(two, TakeSnapshot(*ObjectOf(L"two")->pblock2)), "Geo_Nodes");
  for (Sowfield* o : {object, ObjectOf(L"two")}) {
    EXPECT_EQ(o->pblock2->GetINode(Geo_Nodes, 0, 0), Named(L"stone"));
    EXPECT_EQ(o->pblock2->GetINode(Geo_Nodes, 0, 1), Named(L"tree"));
    EXPECT_EQ(o->distribution.ListReady(), 1);
    EXPECT_EQ(FirstBreach(*o->pblock2), "");
    EXPECT_EQ(o->distribution.rng, Generator());
  }
  EXPECT_EQ(Block().GetFloat(HueShift, 240), 27.5f);  // half way from 5 to 50
  EXPECT_EQ(ObjectOf(L"instance"), object);
  EXPECT_TRUE(object->OwnNode() == node && Shown() == shown && Undo().UndoCount() == 0);
  EXPECT_EQ(SaveBytes(), bytes);

  // It goes on as a new object would: undo and the deletion of a source work.
  host.Services().DeleteNode(Named(L"stone"), false, false);
  EXPECT_TRUE(D().TypeCount() == 1 && D().PlacementCount() == 1);
  ASSERT_TRUE(Undo().Undo());
  EXPECT_EQ(D().PlacementCount(), 3);
}

TEST_F(Stored, AnOlderSceneGetsItsNormalRows) {
  FillScene();
  DropNormalRows();
  ASSERT_TRUE(Open(SaveBytes())) << error;
  const auto rows = Block().Floats(Tr_Normal_Min);
  EXPECT_EQ(std::vector<float>(rows.begin(), rows.end()), (std::vector<float>{0, 100, 100}));
  EXPECT_EQ(Breach(), "");
  Generator drawn;  // 100 values a slot, from the start of the sequence
  for (const float value : Block().Floats(Rnd_Normal)) ASSERT_EQ(value, drawn.Random(100));
  EXPECT_EQ(D().rng, drawn);
  EXPECT_EQ(Undo().UndoCount(), 0u);
}

TEST_F(Stored, DamageIsNamedAndLeavesTheSceneReady) {
  FillScene();
  const std::vector<std::byte> bytes = SaveBytes();
  const Point3 first(1, 2, -0.0f);  // of Ins_Pos
  auto broken = bytes;
  auto at = broken.begin();
  for (; std::memcmp(&*at, &first, sizeof first) != 0; ++at) ASSERT_NE(at, broken.end());
  *at ^= std::byte{1};
  Sowfield* const before = object;
  ASSERT_FALSE(Open(broken));
  EXPECT_NE(error.find("Sowfield \"one\" (0x"), std::string::npos) << error;
  EXPECT_NE(error.find("parameter 87 (Ins_Pos) is damaged: its checksum is"), std::string::npos);
  ASSERT_FALSE(Open(bytes, [](Scene&) { return std::string("no"); }));
  EXPECT_EQ(ObjectOf(L"one"), before);
  EXPECT_TRUE(D().ListReady() == 1 && D().PlacementCount() == 3);
}

}  // namespace
}  // namespace sowfield
