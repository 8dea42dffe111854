#include "host/core/hold.h"

#include <algorithm>
#include <memory>

#include "tests/host/extras.h"
#include "tests/host/recording_owner.h"

namespace {

using Owner = RecordingOwner;
using Texts = std::vector<std::string>;

class Undo : public Staged {
 protected:
  IParamBlock2& Block() { return owner->Block(); }
  void AppendInt(int v) { Block().Append(Owner::kInts, 1, &v); }
  void AppendNode(INode* n) { Block().Append(Owner::kNodes, 1, &n); }
  void Delete(std::vector<INode*> nodes) { host_.GetScene().DeleteNodes(nodes); }

  std::unique_ptr<Owner, DeleteUnreferenced> owner{new Owner};
};

TEST_F(Undo, AStepKeepsWhatChangedAndNotTheTable) {
  const std::vector<float> many(1000000, 1.0f);
  Block().Append(Owner::kFloats, int(many.size()), many.data());
  Step([&] {
    for (int i = 0; i < 1000; ++i) Block().Append(Owner::kFloats, 1, &many[0]);
  });
  EXPECT_LT(theHold->NewestStepBytes(), 1000u);
  // An eraser that takes a thousand out of a million keeps those and their places.
  std::vector<unsigned char> mask(1001000, 1);
  for (size_t i = 0; i < 1000; ++i) mask[i * 999] = 0;
  Step([&] { Block().KeepEntries(Owner::kFloats, mask); });
  EXPECT_LT(theHold->NewestStepBytes(), 40000u);
}

TEST_F(Undo, DeletedNodesTakeTheirEntriesAlongBeforeAnyoneIsTold) {
  INode *a = Add(), *b = Add();
  AppendNode(a), AppendNode(b), AppendNode(a);
  Block().SetValue(Owner::kCamera, 0, b);
  owner->TakeLog();
  owner->onMessage = [&](const SeenMessage& m) {
    if (m.message != REFMSG_TAB_ELEMENT_NULLED) return;
    for (INode* n : Block().Nodes(Owner::kNodes)) EXPECT_EQ(n, nullptr);
    EXPECT_EQ(Block().GetINode(Owner::kCamera), nullptr);
    EXPECT_TRUE(theHold.Holding());
    EXPECT_TRUE(a->InScene()) << "nodes leave after the owners were told";
  };
  Delete({a, b, a, nullptr});
  EXPECT_EQ(owner->TakeLog(), (Texts{"nulled 0", "nulled 7"}));
  EXPECT_EQ(theHold->UndoNames(), std::vector<WStr>{L"Delete"});
  EXPECT_FALSE(a->InScene());
  ASSERT_TRUE(theHold->Undo());
  EXPECT_TRUE(a->InScene() && b->InScene());
  const auto nodes = Block().Nodes(Owner::kNodes);
  EXPECT_EQ(std::vector<INode*>(nodes.begin(), nodes.end()), (std::vector<INode*>{a, b, a}));
  EXPECT_EQ(Block().GetINode(Owner::kCamera), b);
  EXPECT_EQ(std::count(a->Dependents().begin(), a->Dependents().end(), &Block()), 2);
  // The host's own nulling is no touch; what is told is that the nodes changed, under the name of
  // each parameter that holds them, once.
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 0", "undo:change 7", "undo:change 0"}));
}

TEST_F(Undo, WhatAHandlerOfADeletionEditsJoinsTheDeletion) {
  INode *a = Add(), *twin = Add();
  AppendNode(a);
  AppendInt(5);
  owner->onMessage = [&](const SeenMessage& m) {
    if (m.message != REFMSG_TAB_ELEMENT_NULLED) return;
    Block().Delete(Owner::kNodes, 0, 1);
    Block().Delete(Owner::kInts, 0, 1);
    Delete({twin, a});
  };
  Delete({a});
  EXPECT_EQ(theHold->UndoCount(), 1u);
  EXPECT_FALSE(twin->InScene());
  owner->onMessage = nullptr;
  owner->TakeLog();
  theHold->Undo();
  EXPECT_TRUE(a->InScene() && twin->InScene());
  EXPECT_EQ(Block().GetINode(Owner::kNodes), a);
  EXPECT_EQ(Block().GetInt(Owner::kInts), 5);
  // Elements first, then the touched tables.
  EXPECT_EQ(owner->TakeLog(),
            (Texts{"undo:change 0", "undo:change 2", "undo:change 0", "undo:set 0"}));
}

TEST_F(Undo, ADeletionOpensAStepOnlyIfSomeoneWouldNotice) {
  Delete({Add()});
  INode* made = nullptr;
  Step([&] { Delete({made = Add()}); });
  EXPECT_EQ(theHold->UndoCount(), 0u);
  INode* held = Add();
  AppendNode(held);
  Delete({held});
  Delete({held});
  EXPECT_EQ(theHold->UndoCount(), 1u);
  Step([&] { made = Add(); });
  Delete({made});
  EXPECT_EQ(theHold->UndoCount(), 3u) << "the undo list knows it";
}

TEST_F(Undo, NodesTellTheirChangesBeforeTables) {
  INode* n = Add();
  AppendNode(n);
  theHold.Begin();
  n->SetNodeTM(0, TransMatrix({1, 0, 0}));
  n->SetNodeTM(0, TransMatrix({2, 0, 0}));
  n->SetName(L"Moved");
  AppendInt(1);
  theHold.Accept(L"Step");
  owner->TakeLog();
  owner->onMessage = [&](const SeenMessage&) {
    EXPECT_EQ(n->GetNodeTM(0).GetTrans(), Point3(0, 0, 0));
    EXPECT_EQ(Block().Count(Owner::kInts), 0);
  };
  theHold->Undo();
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 0", "undo:change 2"}));
  owner->onMessage = nullptr;
  theHold->Redo();
  EXPECT_EQ(n->GetNodeTM(0).GetTrans(), Point3(2, 0, 0));
  EXPECT_EQ(n->GetName(), L"Moved");
}

TEST_F(Undo, MaterialsSlotsAndLayersComeBackAndLiveAsLongAsTheRecord) {
  struct Watched : StdMtl {
    bool* gone;
    explicit Watched(bool* flag) : gone(flag) {}
    ~Watched() override { *gone = true; }
  };
  bool gone = false;
  Mtl* watched = new Watched(&gone);
  const auto multi = std::make_unique<MultiMtl>();
  multi->SetNumSubMtls(2);
  ILayer* layer = host_.GetScene().Layers().CreateLayer(L"Other");
  INode* n = Add();
  ILayer* before = n->GetLayer();
  n->SetMtl(watched);
  Block().Append(Owner::kMtls, 1, &watched);
  theHold.Begin();
  n->SetMtl(new StdMtl);
  Block().Delete(Owner::kMtls, 0, 1);
  multi->SetSubMtl(4, new StdMtl);
  layer->AddToLayer(n);
  theHold.Accept(L"Step");
  EXPECT_FALSE(gone);
  theHold->Undo();
  EXPECT_EQ(n->GetMtl(), watched);
  EXPECT_EQ(Block().GetMtl(Owner::kMtls), watched);
  EXPECT_EQ(multi->NumSubMtls(), 2) << "the count decides which slot an id shows";
  EXPECT_EQ(n->GetLayer(), before);
  theHold->Redo();
  EXPECT_NE(multi->GetSubMtl(4), nullptr);
  EXPECT_EQ(n->GetLayer(), layer);
  theHold->Clear();
  EXPECT_TRUE(gone);
}

TEST_F(Undo, AMovedNodeHasNotLeftTheSceneAndADeletedOneHas) {
  std::vector<INode*> left;
  const auto hear = [](void* list, NotifyInfo* info) {
    static_cast<std::vector<INode*>*>(list)->push_back(static_cast<INode*>(info->subject));
  };
  RegisterNotification(hear, &left, NOTIFY_NODE_LEFT_SCENE);
  INode *parent = Add(), *child = Add();
  Step([&] { parent->AttachChild(child); });
  theHold->Undo();
  EXPECT_EQ(child->GetParentNode(), host_.GetScene().GetRootNode());
  theHold->Redo();
  EXPECT_TRUE(left.empty());
  Delete({parent});
  theHold->Undo();
  theHold->Redo();
  EXPECT_EQ(left, (std::vector<INode*>{parent, parent}));
  UnRegisterNotification(hear, &left, NOTIFY_NODE_LEFT_SCENE);
}

TEST_F(Undo, TextureSlotsComeBackAndCopiesOfMaterialsShareOneCopyOfTheirPicture) {
  MultiMtl multi;
  auto* first = new BitmapTex;
  first->SetPicture(L"/a.png", std::make_shared<std::vector<std::byte>>(2));
  for (int i = 0; i < 2; ++i) {
    multi.SetSubMtl(i, new StdMtl);
    multi.GetSubMtl(i)->SetSubTexmap(StdMtl::kDiffuseMap, first);
  }
  const auto shown = [](MultiMtl& m, int i) {
    return dynamic_cast<BitmapTex*>(m.GetSubMtl(i)->GetSubTexmap(StdMtl::kDiffuseMap));
  };
  RemapDir remap;
  const std::unique_ptr<MultiMtl> copy(static_cast<MultiMtl*>(multi.Clone(remap)));
  ASSERT_TRUE(shown(*copy, 0) && shown(*copy, 0) != first);
  EXPECT_EQ(shown(*copy, 0), shown(*copy, 1));
  EXPECT_EQ(shown(*copy, 0)->GetBytes(), first->GetBytes());
  Step([&] {
    multi.GetSubMtl(0)->SetSubTexmap(StdMtl::kDiffuseMap, nullptr);
    first->SetPicture(L"/c.png");
  });
  theHold->Undo();
  EXPECT_EQ(shown(multi, 0), first);
  EXPECT_EQ(first->GetMapName(), L"/a.png");
  theHold->Redo();
  EXPECT_EQ(shown(multi, 0), nullptr);
  EXPECT_EQ(first->GetBytes(), nullptr);
  theHold->Clear();  // it must not outlive the material
}

}  // namespace
