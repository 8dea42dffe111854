#include "host/core/hold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>

#include "host/host.h"
#include "recording_owner.h"

namespace {

using Owner = RecordingOwner;
using Texts = std::vector<std::string>;

class Undo : public testing::Test {
 protected:
  IParamBlock2& Block() { return owner->Block(); }
  Scene& TheScene() { return host.GetScene(); }
  INode* NewNode() { return TheScene().CreateObjectNode(nullptr); }
  void Append(ParamID id, int v) {
    const float f = float(v);
    const Point3 p(f, f, f);
    const WStr s = std::to_wstring(v);
    switch (Owner::Desc().Find(id)->type) {
      case ParamType::Int: Block().Append(id, 1, &v); break;
      case ParamType::Float: Block().Append(id, 1, &f); break;
      case ParamType::Point3: Block().Append(id, 1, &p); break;
      default: Block().Append(id, 1, &s); break;
    }
  }
  void AppendNode(INode* n) { Block().Append(Owner::kNodes, 1, &n); }
  std::vector<int> Ints() {
    const auto span = Block().Ints(Owner::kInts);
    return {span.begin(), span.end()};
  }
  void Delete(std::vector<INode*> nodes) { TheScene().DeleteNodes(nodes); }

  host::Host host;
  std::unique_ptr<Owner, DeleteUnreferenced> owner{new Owner};
};

using Row = std::vector<int>;

TEST_F(Undo, AStepSendsOneMessageATableByRankAndFirstTouch) {
  theHold.Begin();
  for (const ParamID id : {Owner::kLast, Owner::kFloats, Owner::kInts, Owner::kPoints,
                           Owner::kFloats, Owner::kFirst, Owner::kInts})
    Append(id, 1);
  EXPECT_EQ(owner->log.size(), 7u) << "while recording, each write is told at once";
  theHold.Accept(L"Step");
  owner->TakeLog();

  ASSERT_TRUE(theHold->Undo());
  for (const SeenMessage& m : owner->log)
    for (ParamID id = Owner::kFirst; id <= Owner::kLast; ++id) EXPECT_EQ(m.counts[size_t(id)], 0);
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 6", "undo:change 2", "undo:change 3",
                                     "undo:change 4", "undo:change 1"}));
  ASSERT_TRUE(theHold->Redo());
  for (const SeenMessage& m : owner->log)
    EXPECT_EQ(m.counts, owner->log.front().counts) << "data stand before the first message";
  EXPECT_EQ(owner->log.front().counts[Owner::kInts], 2);
  EXPECT_EQ(owner->TakeLog(), (Texts{"redo:change 1", "redo:change 4", "redo:change 3",
                                     "redo:change 2", "redo:change 6"}));
}

TEST_F(Undo, ATouchedTableCountsEvenIfNothingDiffers) {
  Append(Owner::kStrings, 3);
  theHold.Begin();
  Block().SetValue(Owner::kNumber, 0, 7);
  Block().SetValue(Owner::kStrings, 0, Block().Strings(Owner::kStrings)[0], 0);
  Block().Delete(Owner::kInts, 0, 0);
  theHold.Accept(L"Step");
  EXPECT_EQ(owner->TakeLog(), (Texts{"change 5", "change 8", "change 5", "change 2"}));
  EXPECT_STREQ(Block().GetStr(Owner::kStrings), L"3");
  theHold->Undo();
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 2", "undo:change 5", "undo:change 8"}));
  theHold->Redo();
  EXPECT_EQ(owner->TakeLog(), (Texts{"redo:change 8", "redo:change 5", "redo:change 2"}));
}

TEST_F(Undo, NestedStepsJoinTheOuterOneUnderItsName) {
  theHold.Begin();
  Append(Owner::kInts, 1);
  theHold.Begin();
  EXPECT_TRUE(theHold.Holding());
  Append(Owner::kInts, 2);
  theHold.Accept(L"Inner");
  EXPECT_TRUE(theHold.Holding());
  theHold.Begin();
  Append(Owner::kInts, 3);
  Append(Owner::kFloats, 3);
  owner->TakeLog();
  theHold.Cancel();
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 3", "undo:change 2"}));
  EXPECT_EQ(Ints(), (Row{1, 2}));
  EXPECT_EQ(theHold.RestoreOrRedoing(), 0);
  EXPECT_FALSE(theHold->Undo()) << "a step is open";
  theHold.Accept(L"Outer");
  EXPECT_FALSE(theHold.Holding());
  EXPECT_EQ(theHold->UndoNames(), std::vector<WStr>{L"Outer"});
  theHold->Undo();
  EXPECT_TRUE(Ints().empty());
  theHold.Accept(L"No Begin");
  theHold.Cancel();
  EXPECT_EQ(theHold->RedoNames(), std::vector<WStr>{L"Outer"});
}

TEST_F(Undo, CancelAndEmptyStepsKeepWhatCanBeRedone) {
  theHold.Begin();
  Append(Owner::kInts, 1);
  theHold.Accept(L"One");
  theHold->Undo();

  theHold.Begin();
  Append(Owner::kInts, 2);
  INode* node = NewNode();
  const Pin<INode> alive(node);
  theHold.Cancel();
  EXPECT_FALSE(node->InScene());
  theHold.Begin();
  theHold.Accept(L"Empty");
  EXPECT_EQ(theHold->UndoCount(), 0u);
  ASSERT_TRUE(theHold->Redo());
  EXPECT_EQ(Ints(), Row{1});

  theHold->Undo();
  theHold.Begin();
  Append(Owner::kFloats, 2);
  theHold.Accept(L"Two");
  EXPECT_FALSE(theHold->Redo()) << "a new step ends what could be redone";
}

TEST_F(Undo, EditsOutsideAnyStepRollWithTheStepBefore) {
  theHold.Begin();
  for (int v : {1, 2, 3}) Append(Owner::kInts, v);
  theHold.Accept(L"Three");
  const int front = 9;
  Block().Insert(Owner::kInts, 0, 1, &front);  // moves the places that the step knows
  Block().SetValue(Owner::kInts, 0, 8, 2);
  Append(Owner::kFloats, 4);  // no step holds this table
  ASSERT_EQ(theHold->UndoCount(), 1u);
  owner->TakeLog();
  theHold->Undo();
  EXPECT_TRUE(Ints().empty());
  EXPECT_EQ(Block().Count(Owner::kFloats), 1);
  EXPECT_EQ(owner->TakeLog(), Texts{"undo:change 2"});
  Append(Owner::kInts, 5);
  theHold->Redo();
  EXPECT_EQ(Ints(), (Row{9, 1, 8, 3})) << "as it stood when the step was undone";
  theHold->Undo();
  EXPECT_TRUE(Ints().empty());
}

TEST_F(Undo, WhatHandlersWriteDuringUndoIsNoStepAndKeepsRedo) {
  owner->onMessage = [&](const SeenMessage& m) {
    if (m.restoring == 0 || m.id != Owner::kInts) return;
    EXPECT_FALSE(theHold.Holding());
    EXPECT_FALSE(theHold->Undo());
    EXPECT_FALSE(theHold->Redo());
    theHold.Begin();
    Append(Owner::kFloats, 1);
    INode* node = NewNode();
    Delete({node});
    theHold.Accept(L"Reaction");
    theHold.Begin();
    theHold.Cancel();
    EXPECT_EQ(theHold.RestoreOrRedoing(), m.restoring);
  };
  theHold.Begin();
  Append(Owner::kInts, 1);
  Append(Owner::kFloats, 1);
  theHold.Accept(L"Step");
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(theHold->Undo());
    EXPECT_EQ(Block().Count(Owner::kFloats), 1) << "the step's own copy and one reaction";
    EXPECT_EQ(theHold->UndoCount(), 0u);
    ASSERT_TRUE(theHold->Redo());
    EXPECT_EQ(Block().Count(Owner::kFloats), 2 + i) << "as the undo met it, and one reaction";
    EXPECT_EQ(theHold->RedoCount(), 0u);
  }
}

TEST_F(Undo, AStepKeepsWhatChangedAndNotTheTable) {
  const std::vector<float> many(1000000, 1.0f), stroke(1000, 2.0f);
  Block().Append(Owner::kFloats, int(many.size()), many.data());
  theHold.Begin();
  Block().Append(Owner::kFloats, int(stroke.size()), stroke.data());
  theHold.Accept(L"Stroke");
  EXPECT_LT(theHold->NewestStepBytes(), 1000u);

  theHold.Begin();
  for (const float v : stroke) Block().Append(Owner::kFloats, 1, &v);
  theHold.Accept(L"One by one");
  EXPECT_LT(theHold->NewestStepBytes(), 1000u);

  // An eraser that takes a thousand out of a million keeps those and their places.
  std::vector<unsigned char> mask(size_t(Block().Count(Owner::kFloats)), 1);
  for (size_t i = 0; i < 1000; ++i) mask[i * 999] = 0;
  theHold.Begin();
  Block().KeepEntries(Owner::kFloats, mask);
  theHold.Accept(L"Eraser");
  EXPECT_GE(theHold->NewestStepBytes(), 1000 * sizeof(float));
  EXPECT_LT(theHold->NewestStepBytes(), 40000u);
  EXPECT_EQ(Block().Count(Owner::kFloats), 1001000);
  theHold->Undo(), theHold->Undo(), theHold->Undo();
  EXPECT_EQ(Block().Count(Owner::kFloats), 1000000);
}

TEST_F(Undo, ValuesOfTheTableItselfMayBeWrittenIntoIt) {
  for (int v : {1, 2, 3}) Append(Owner::kInts, v);
  for (int i = 0; i < 6; ++i)  // through several growths
    Block().Insert(Owner::kInts, 1, 2, Block().Ints(Owner::kInts).data() + 1);
  EXPECT_EQ(Ints(), (Row{1, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3, 2, 3}));
}

TEST_F(Undo, DeletedNodesTakeTheirEntriesAlongBeforeAnyoneIsTold) {
  INode* a = NewNode();
  INode* b = NewNode();
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
  EXPECT_EQ(a->Dependents().size(), 0u);

  ASSERT_TRUE(theHold->Undo());
  EXPECT_TRUE(a->InScene() && b->InScene());
  EXPECT_EQ(Block().GetINode(Owner::kNodes, 0, 0), a);
  EXPECT_EQ(Block().GetINode(Owner::kNodes, 0, 1), b);
  EXPECT_EQ(Block().GetINode(Owner::kNodes, 0, 2), a);
  EXPECT_EQ(Block().GetINode(Owner::kCamera), b);
  EXPECT_EQ(std::count(a->Dependents().begin(), a->Dependents().end(), &Block()), 2);
  // The host's own nulling is no touch; what is told is that the nodes changed, under the name of
  // each parameter that holds them, once.
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 0", "undo:change 7", "undo:change 0"}));

  ASSERT_TRUE(theHold->Redo());
  EXPECT_FALSE(a->InScene());
  EXPECT_EQ(Block().GetINode(Owner::kNodes, 0, 2), nullptr);
  for (const std::string& text : owner->TakeLog()) EXPECT_NE(text, "redo:nulled 0");
}

TEST_F(Undo, WhatAHandlerOfADeletionEditsJoinsTheDeletion) {
  INode* a = NewNode();
  INode* twin = NewNode();
  AppendNode(a);
  Append(Owner::kInts, 5);
  owner->onMessage = [&](const SeenMessage& m) {
    if (m.message != REFMSG_TAB_ELEMENT_NULLED) return;
    Block().Delete(Owner::kNodes, 0, 1);
    Block().Delete(Owner::kInts, 0, 1);
    Delete({twin, a});
  };
  Delete({a});
  EXPECT_EQ(theHold->UndoCount(), 1u);
  EXPECT_EQ(Block().Count(Owner::kNodes), 0);
  EXPECT_FALSE(twin->InScene());
  owner->onMessage = nullptr;
  owner->TakeLog();
  theHold->Undo();
  EXPECT_TRUE(a->InScene() && twin->InScene());
  EXPECT_EQ(Block().GetINode(Owner::kNodes), a);
  EXPECT_EQ(Ints(), Row{5});
  // Elements first, then the touched tables.
  EXPECT_EQ(owner->TakeLog(),
            (Texts{"undo:change 0", "undo:change 2", "undo:change 0", "undo:set 0"}));
}

TEST_F(Undo, ANodeMadeAndDeletedInOneStepLeavesNoTrace) {
  theHold.Begin();
  INode* made = NewNode();
  made->SetName(L"Preview");
  made->SetNodeTM(0, TransMatrix({1, 2, 3}));
  made->Hide(true);
  Delete({made});
  theHold.Accept(L"Nothing");
  EXPECT_EQ(theHold->UndoCount(), 0u);
  EXPECT_TRUE(TheScene().AllNodes().empty());
}

TEST_F(Undo, ADeletionOpensAStepOnlyIfSomeoneWouldNotice) {
  Delete({NewNode()});
  EXPECT_EQ(theHold->UndoCount(), 0u) << "a helper node that nobody refers to just goes";

  INode* held = NewNode();
  AppendNode(held);
  Delete({held});
  EXPECT_EQ(theHold->UndoNames(), std::vector<WStr>{L"Delete"});
  Delete({held});
  EXPECT_EQ(theHold->UndoCount(), 1u) << "it is gone already";

  theHold.Begin();
  INode* made = NewNode();
  theHold.Accept(L"Make");
  Delete({made});
  EXPECT_EQ(theHold->UndoCount(), 3u) << "the undo list knows it";
  theHold->Undo();
  EXPECT_TRUE(made->InScene());
  theHold->Undo();
  EXPECT_FALSE(made->InScene());
}

TEST_F(Undo, NodesAreTellingTheirChangesBeforeTables) {
  INode* n = NewNode();
  AppendNode(n);
  theHold.Begin();
  n->SetNodeTM(0, TransMatrix({1, 0, 0}));
  n->SetNodeTM(0, TransMatrix({2, 0, 0}));
  n->SetName(L"Moved");
  Append(Owner::kInts, 1);
  theHold.Accept(L"Step");
  owner->TakeLog();
  owner->onMessage = [&](const SeenMessage&) {
    EXPECT_EQ(n->GetNodeTM(0).GetTrans(), Point3(0, 0, 0));
    EXPECT_NE(n->GetName(), L"Moved");
    EXPECT_EQ(Block().Count(Owner::kInts), 0);
  };
  theHold->Undo();
  EXPECT_EQ(owner->TakeLog(), (Texts{"undo:change 0", "undo:change 2"}));
  owner->onMessage = nullptr;
  theHold->Redo();
  EXPECT_EQ(n->GetNodeTM(0).GetTrans(), Point3(2, 0, 0));
  EXPECT_EQ(n->GetName(), L"Moved");
}

TEST_F(Undo, NodesAndMaterialsOfTheRecordLiveAsLongAsItDoes) {
  auto* material = new StdMtl;
  struct Watched : StdMtl {
    bool* gone;
    explicit Watched(bool* flag) : gone(flag) {}
    ~Watched() override { *gone = true; }
  };
  bool gone = false;
  Mtl* watched = new Watched(&gone);
  INode* n = NewNode();
  n->SetMtl(watched);
  Block().Append(Owner::kMtls, 1, &watched);
  theHold.Begin();
  n->SetMtl(material);
  Block().Delete(Owner::kMtls, 0, 1);
  theHold.Accept(L"Other material");
  EXPECT_FALSE(gone);
  theHold->Undo();
  EXPECT_EQ(n->GetMtl(), watched);
  EXPECT_EQ(Block().GetMtl(Owner::kMtls), watched);
  theHold->Redo();
  theHold->Clear();
  EXPECT_TRUE(gone);
  EXPECT_EQ(n->GetMtl(), material);
}

TEST_F(Undo, AMovedNodeHasNotLeftTheSceneAndADeletedOneHas) {
  static std::vector<INode*> left;
  left.clear();
  const auto hear = [](void*, NotifyInfo* info) {
    left.push_back(static_cast<INode*>(info->subject));
    EXPECT_FALSE(left.back()->InScene());
  };
  RegisterNotification(hear, nullptr, NOTIFY_NODE_LEFT_SCENE);
  INode* parent = NewNode();
  INode* child = NewNode();
  theHold.Begin();
  parent->AttachChild(child);
  theHold.Accept(L"Attach");
  theHold->Undo();
  EXPECT_EQ(child->GetParentNode(), TheScene().GetRootNode());
  theHold->Redo();
  EXPECT_EQ(child->GetParentNode(), parent);
  EXPECT_TRUE(left.empty());

  AppendNode(parent);
  Delete({parent});
  EXPECT_EQ(left, std::vector<INode*>{parent});
  theHold->Undo();
  EXPECT_EQ(child->GetParentNode(), parent);
  EXPECT_EQ(left.size(), 1u);
  theHold->Redo();
  EXPECT_EQ(left, (std::vector<INode*>{parent, parent}));
  UnRegisterNotification(hear, nullptr, NOTIFY_NODE_LEFT_SCENE);
}

TEST_F(Undo, ATargetThatIsDestroyedIsKeptByNoRecord) {
  auto* material = new StdMtl;
  Mtl* entry = material;
  Block().Append(Owner::kMtls, 1, &entry);
  theHold.Begin();
  Append(Owner::kInts, 1);
  delete material;
  EXPECT_EQ(Block().GetMtl(Owner::kMtls), nullptr);
  theHold.Accept(L"Step");
  theHold->Undo();
  EXPECT_EQ(Block().GetMtl(Owner::kMtls), nullptr);
}

TEST_F(Undo, SlotsAndLayersComeBack) {
  const auto multi = std::make_unique<MultiMtl>();
  multi->SetNumSubMtls(2);
  ILayer* layer = host.GetScene().Layers().CreateLayer(L"Other");
  INode* n = NewNode();
  ILayer* before = n->GetLayer();
  theHold.Begin();
  multi->SetSubMtl(4, new StdMtl);
  layer->AddToLayer(n);
  theHold.Accept(L"Step");
  EXPECT_EQ(multi->NumSubMtls(), 5);
  theHold->Undo();
  EXPECT_EQ(multi->NumSubMtls(), 2) << "the count decides which slot an id shows";
  EXPECT_EQ(n->GetLayer(), before);
  theHold->Redo();
  EXPECT_EQ(multi->NumSubMtls(), 5);
  EXPECT_NE(multi->GetSubMtl(4), nullptr);
  EXPECT_EQ(n->GetLayer(), layer);
  theHold->Clear();
}

}  // namespace
