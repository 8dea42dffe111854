#include <gtest/gtest.h>

#include <set>

#include "host/scene/mtl.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {
namespace {

class Merge : public testing::Test, public SowfieldScene {
 protected:
  bool MergeIn(const std::vector<std::byte>& bytes, const host::OpenOptions& options = {}) {
    return host::MergeSceneBytes(host.Services(), bytes, "it", options, merged_, error_);
  }
  ILayerManager& Layers() { return host.Services().GetLayerManager(); }
  host::MergedScene merged_;
  std::string error_;
};

TEST_F(Merge, ASceneIntoItselfTwice) {
  Interface& ip = host.Services();
  node->SetName(L"sow");
  INode* stone = AddBox(L"stone", 1, 2, 3, {9, 0, 0});
  INode* child = AddNode(L"shared", stone->GetObjectRef());
  stone->AttachChild(child, false);
  child->SetMtl(new StdMtl), stone->SetMtl(child->GetMtl());
  Layers().CreateLayer(L"trees")->AddToLayer(child);
  ASSERT_TRUE(AddAsType(stone));
  theHold.Begin();
  AppendPlacements({{{1, 2, 3}, {0, 0, 0}, 0, 3, 17}});
  theHold.Accept(L"Paint");
  AddNode(L"instance", object);
  CloseEdit();
  const std::vector<std::byte> bytes = SaveBytes();
  const Snapshot before = TakeSnapshot(Block());
  const std::vector<WStr> steps = Undo().UndoNames();
  Layers().GetLayer(L"trees")->Hide(true);
  ip.SetAnimRange({5, 6}), ip.SetTime(6, false);

  const size_t nodes = host.GetScene().AllNodes().size();
  ASSERT_TRUE(MergeIn(bytes)) << error_;
  EXPECT_EQ(merged_.nodes, nodes);
  EXPECT_EQ(merged_.warning, "");
  ASSERT_EQ(merged_.renamed.size(), nodes);
  for (const auto& [from, to] : merged_.renamed) EXPECT_EQ(to, from + L"001");
  ASSERT_TRUE(MergeIn(bytes)) << error_;

  std::set<Object*> objects;
  for (const WStr& end : {WStr(), WStr(L"001"), WStr(L"002")}) {
    INode *its = Named(L"stone" + end), *below = Named(L"shared" + end);
    ASSERT_TRUE(its && below && Named(L"sow" + end));
    EXPECT_EQ(below->GetParentNode(), its);
    EXPECT_EQ(below->GetObjectRef(), its->GetObjectRef());
    EXPECT_EQ(below->GetMtl(), its->GetMtl());
    EXPECT_EQ(below->GetLayer(), Layers().GetLayer(L"trees"));
    auto* sow = static_cast<Sowfield*>(Named(L"sow" + end)->GetObjectRef());
    EXPECT_EQ(Named(L"instance" + end)->GetObjectRef(), sow);
    EXPECT_EQ(sow->pblock2->GetINode(Geo_Nodes), its);
    EXPECT_EQ(Differences(before, TakeSnapshot(*sow->pblock2)), end.empty() ? "" : "Geo_Nodes");
    EXPECT_EQ(FirstBreach(*sow->pblock2), "");
    EXPECT_TRUE(sow->distribution.ListReady() == 1 && sow->OwnNode()->InScene());
    objects.insert({sow, its->GetObjectRef()});
  }
  EXPECT_EQ(objects.size(), 6u);                         // nothing is shared between the three
  EXPECT_TRUE(Layers().GetLayer(L"trees")->IsHidden());  // as it is here
  EXPECT_EQ(ip.GetAnimRange(), Interval(5, 6));
  EXPECT_EQ(ip.GetTime(), 6);

  EXPECT_EQ(Undo().UndoNames(), steps);
  const auto& merged = static_cast<Sowfield*>(Named(L"sow001")->GetObjectRef())->distribution;
  for (const int types : {1, 0}) {
    ASSERT_TRUE(Undo().Undo());
    EXPECT_TRUE(D().TypeCount() == types && D().PlacementCount() == 0) << types;
    EXPECT_EQ(merged.PlacementCount(), 1);
  }
  ASSERT_TRUE(Undo().Redo() && Undo().Redo());
  EXPECT_EQ(D().PlacementCount(), 1);
  EXPECT_EQ(host.GetScene().AllNodes().size(), 3 * nodes);
}

TEST_F(Merge, OnlyNamesThatAreTakenChange) {
  host.Services().SetMasterUnit(UNITS_INCHES, 2);
  node->SetName(L"a");
  for (const wchar_t* name : {L"a001", L"twin", L"twin"}) AddBox(name, 1, 1, 1);
  Layers().CreateLayer(L"new")->Hide(true);
  CloseEdit();
  const std::vector<std::byte> bytes = SaveBytes();
  host::Host other;
  std::string why;
  ASSERT_TRUE(other.Classes().AddPlugin(Entries(), why)) << why;
  Interface& ip = other.Services();
  ip.CreateObjectNode(nullptr)->SetName(L"a");
  const Interval range = ip.GetAnimRange();
  ASSERT_TRUE(host::MergeSceneBytes(ip, bytes, "it", {}, merged_, error_)) << error_;
  ASSERT_EQ(merged_.renamed.size(), 1u);
  EXPECT_EQ(merged_.renamed[0], std::pair(WStr(L"a"), WStr(L"a002")));  // a001 comes too
  EXPECT_EQ(other.GetScene().FindNodes(L"twin").size(), 2u);
  EXPECT_NE(merged_.warning.find("2.0 x inches, here 1.0 x metres"), std::string::npos)
      << merged_.warning;
  EXPECT_EQ(ip.MasterUnitType(), UNITS_METERS);
  EXPECT_EQ(ip.GetAnimRange(), range);
  ASSERT_TRUE(ip.GetLayerManager().GetLayer(L"new"));
  EXPECT_TRUE(ip.GetLayerManager().GetLayer(L"new")->IsHidden());
  EXPECT_EQ(ip.GetLayerManager().GetCurrentLayer()->GetName(), L"0");
  EXPECT_EQ(ip.CreateObjectNode(new BoxObject)->GetName(), L"Box001");
}

TEST_F(Merge, AFailureLeavesTheScene) {
  CloseEdit();
  const std::vector<std::byte> bytes = SaveBytes();
  std::vector<std::byte> broken = bytes;
  broken[40] ^= std::byte{1};
  EXPECT_FALSE(MergeIn(broken));
  EXPECT_EQ(error_.find("cannot merge \"it\": "), 0u) << error_;
  EXPECT_FALSE(MergeIn(bytes, {[](Scene&) { return std::string("no"); }}));
  theHold.Begin();
  EXPECT_FALSE(MergeIn(bytes));
  theHold.Cancel();
  EXPECT_EQ(SaveBytes(), bytes);
  EXPECT_EQ(D().ListReady(), 1);
}

}  // namespace
}  // namespace sowfield
