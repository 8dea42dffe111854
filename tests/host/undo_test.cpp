#include "host/core/hold.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <random>

#include "host/host.h"
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
  MultiMtl multi;
  multi.SetNumSubMtls(2);
  auto* map = new BitmapTex;
  map->SetPicture(L"/a.png", std::make_shared<std::vector<std::byte>>(2));
  for (int i = 0; i < 2; ++i) {
    multi.SetSubMtl(i, new StdMtl);
    multi.GetSubMtl(i)->SetSubTexmap(StdMtl::kDiffuseMap, map);
  }
  const auto shown = [](MultiMtl& m, int i) {
    return m.GetSubMtl(i)->GetSubTexmap(StdMtl::kDiffuseMap);
  };
  RemapDir remap;
  const std::unique_ptr<MultiMtl> copy(static_cast<MultiMtl*>(multi.Clone(remap)));
  ASSERT_TRUE(shown(*copy, 0) && shown(*copy, 0) != map);
  EXPECT_EQ(shown(*copy, 0), shown(*copy, 1)) << "copies share a copy";
  ILayer* layer = host_.GetScene().Layers().CreateLayer(L"Other");
  INode* n = Add();
  ILayer* before = n->GetLayer();
  n->SetMtl(watched);
  Block().Append(Owner::kMtls, 1, &watched);
  Step([&] {
    n->SetMtl(new StdMtl);
    Block().Delete(Owner::kMtls, 0, 1);
    multi.SetSubMtl(4, new StdMtl);
    multi.GetSubMtl(0)->SetSubTexmap(StdMtl::kDiffuseMap, nullptr);
    map->SetPicture(L"/c.png");
    layer->AddToLayer(n);
  });
  EXPECT_FALSE(gone);
  theHold->Undo();
  EXPECT_TRUE(n->GetMtl() == watched && Block().GetMtl(Owner::kMtls) == watched);
  EXPECT_EQ(multi.NumSubMtls(), 2) << "the count decides which slot an id shows";
  EXPECT_EQ(n->GetLayer(), before);
  EXPECT_TRUE(shown(multi, 0) == map && map->GetBytes() && map->GetMapName() == L"/a.png");
  theHold->Redo();
  EXPECT_TRUE(multi.GetSubMtl(4) && n->GetLayer() == layer);
  EXPECT_TRUE(!shown(multi, 0) && !map->GetBytes());
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

using Row = std::vector<int>;  // any table as whole numbers; see Harness::Write
using State = std::vector<Row>;

constexpr ParamID kTables[] = {Owner::kNodes,  Owner::kFirst,   Owner::kInts, Owner::kFloats,
                               Owner::kPoints, Owner::kStrings, Owner::kLast};
constexpr ParamID kReactsTo = Owner::kInts;
constexpr ParamID kReactsIn = Owner::kFloats;
constexpr int kReaction = 77;
constexpr int kNodePool = 4;

int RankOf(ParamID id) { return Owner::Desc().Find(id)->undoRank; }

// What undo promises, told in full copies: a step keeps each touched table as it stood at the
// first touch, and as it stood when the step was undone.
struct Model {
  Model() : now(Owner::kParamCount) { now[Owner::kNumber] = {7}; }

  State now;
  std::vector<std::pair<std::string, State>> heard;
  bool reacts = false;

  Row& Edit(ParamID id) {
    if (!openSteps.empty()) Touch(openSteps.back(), id, now[size_t(id)]);
    return now[size_t(id)];
  }
  void Say(ParamID id, RefMessage message, int restoring = 0) {
    heard.emplace_back(SeenMessage{message, id, restoring}.Text(), now);
    if (!reacts || restoring == 0 || message != REFMSG_CHANGE || id != kReactsTo) return;
    now[size_t(kReactsIn)].push_back(kReaction);
    Say(kReactsIn, REFMSG_CHANGE, restoring);
  }
  void Told(ParamID id, int restoring = 0) {
    Say(id, REFMSG_CHANGE, restoring);
    if (id == Owner::kNodes) Say(id, REFMSG_NODE_TABLE_SET, restoring);
  }

  void Begin() { openSteps.emplace_back(); }
  void Accept() {
    if (openSteps.empty()) return;
    Step step = std::move(openSteps.back());
    openSteps.pop_back();
    if (!openSteps.empty()) {
      for (const ParamID id : step.order) Touch(openSteps.back(), id, step.before[id]);
    } else if (!step.order.empty()) {
      undoSteps.push_back(std::move(step));
      redoSteps.clear();
    }
  }
  void Cancel() {
    if (openSteps.empty()) return;
    Step step = std::move(openSteps.back());
    openSteps.pop_back();
    for (const ParamID id : step.order) now[size_t(id)] = step.before[id];
    Tell(step, 1);
  }
  bool Undo() { return Travel(undoSteps, redoSteps, true); }
  bool Redo() { return Travel(redoSteps, undoSteps, false); }

  struct Step {
    std::vector<ParamID> order;
    std::map<ParamID, Row> before, after;
  };
  static void Touch(Step& step, ParamID id, const Row& copy) {
    if (step.before.contains(id)) return;
    step.order.push_back(id);
    step.before[id] = copy;
  }
  bool Travel(std::vector<Step>& from, std::vector<Step>& to, bool undo) {
    if (!openSteps.empty() || from.empty()) return false;
    Step step = std::move(from.back());
    from.pop_back();
    for (const ParamID id : step.order) {
      if (undo) step.after[id] = now[size_t(id)];
      now[size_t(id)] = undo ? step.before[id] : step.after[id];
    }
    to.push_back(step);
    Tell(step, undo ? 1 : 4);
    return true;
  }
  void Tell(const Step& step, int restoring) {
    std::vector<ParamID> order = step.order;
    std::stable_sort(order.begin(), order.end(),
                     [](ParamID a, ParamID b) { return RankOf(a) < RankOf(b); });
    if (restoring == 1) std::reverse(order.begin(), order.end());
    for (const ParamID id : order) Told(id, restoring);
  }

  std::vector<Step> openSteps, undoSteps, redoSteps;
};

enum Kind { Insert, Delete, Set, Keep, Number, Begin, Accept, Cancel, Back, Redo, Reacts };

struct Op {
  Kind kind;
  ParamID id;
  unsigned a, b, c;
};

// Follows a point table beside it, as a multiset.
class Mirror : public PointTableObserver {
 public:
  void PointsAdded(std::span<const Point3> points) override {
    for (const Point3& p : points) ++count[int(p.x)];
  }
  void PointsRemoved(std::span<const Point3> points) override {
    for (const Point3& p : points)
      if (--count[int(p.x)] == 0) count.erase(int(p.x));
  }
  std::map<int, int> count;
};

// Runs operations on the host and on the model until they differ.
class Harness {
 public:
  Harness() : owner_(new Owner) {
    for (int i = 0; i < kNodePool; ++i) pool_.push_back(host_.GetScene().CreateObjectNode(nullptr));
    Block().SetObserver(Owner::kPoints, &mirror_);
    owner_->onMessage = [this](const SeenMessage& m) {
      heard_.emplace_back(m.Text(), Read());
      if (!model_.reacts || m.restoring == 0 || m.message != REFMSG_CHANGE || m.id != kReactsTo)
        return;
      // A handler that opens a step of its own writes no less outside of undo.
      const float value = kReaction;
      theHold.Begin();
      Block().Append(kReactsIn, 1, &value);
      theHold.Accept(L"Reaction");
    };
  }
  ~Harness() { Block().SetObserver(Owner::kPoints, nullptr); }

  void Run(const std::vector<Op>& ops) {
    for (size_t i = 0; i < ops.size() && !testing::Test::HasFailure(); ++i) {
      SCOPED_TRACE("operation " + std::to_string(i) + " of kind " + std::to_string(ops[i].kind));
      Do(ops[i]);
      ExpectAgreement();
    }
  }

 private:
  IParamBlock2& Block() { return owner_->Block(); }
  INode* NodeOf(int v) { return v < kNodePool ? pool_[size_t(v)] : nullptr; }
  int ValueOf(ParamID id, unsigned v) { return int(v % (id == Owner::kNodes ? kNodePool + 1 : 9)); }

  State Read() {
    State s(Owner::kParamCount);
    for (ParamID id = 0; id < Owner::kMtls; ++id) {
      if (id == Owner::kCamera) continue;
      Row& row = s[size_t(id)];
      for (INode* n : Block().Nodes(id))
        row.push_back(int(std::find(pool_.begin(), pool_.end(), n) - pool_.begin()));
      for (const int v : Block().Ints(id)) row.push_back(v);
      for (const float v : Block().Floats(id)) row.push_back(int(v));
      for (const Point3& p : Block().Points(id)) row.push_back(int(p.x));
      for (const WStr& w : Block().Strings(id)) row.push_back(std::stoi(w.substr(w.rfind(L' '))));
    }
    return s;
  }

  // Calls `act` with the values in the type of the table.
  template <class F>
  void Typed(ParamID id, const Row& row, F&& act) {
    const auto as = [&]<class T>(T, auto&& make) {
      std::vector<T> values;
      for (const int v : row) values.push_back(make(v));
      act(values);
    };
    const ParamType type = Owner::Desc().Find(id)->type;
    if (type == ParamType::Node) as((INode*)(nullptr), [&](int v) { return NodeOf(v); });
    if (type == ParamType::Int) as(0, [](int v) { return v; });
    if (type == ParamType::Float) as(0.0f, [](int v) { return float(v); });
    if (type == ParamType::Point3) as(Point3(), [](int v) { return Point3(float(v), 1, 2); });
    if (type == ParamType::String)
      as(WStr(), [](int v) { return L"a name of its own " + std::to_wstring(v); });
  }

  void Do(const Op& op) {
    if (op.kind == Begin) theHold.Begin(), model_.Begin();
    if (op.kind == Accept) theHold.Accept(L"Step"), model_.Accept();
    if (op.kind == Cancel) theHold.Cancel(), model_.Cancel();
    if (op.kind == Back) same_ = theHold->Undo() == model_.Undo();
    if (op.kind == Redo) same_ = theHold->Redo() == model_.Redo();
    if (op.kind == Reacts) model_.reacts = !model_.reacts;
    if (op.kind < Begin) Write(op);
  }

  void Write(const Op& op) {
    if (op.kind == Number) {
      model_.Edit(Owner::kNumber) = {int(op.a % 5)};
      Block().SetValue(Owner::kNumber, 0, int(op.a % 5));
      return model_.Told(Owner::kNumber);
    }
    const int n = int(model_.now[size_t(op.id)].size());
    if (op.kind == Set && n == 0) return;
    Row& row = model_.Edit(op.id);
    if (op.kind == Insert) {
      const int at = op.a % 2 ? n : int(op.b % unsigned(n + 1));
      Row values;
      for (unsigned i = 0; i < op.c % 4; ++i) values.push_back(ValueOf(op.id, op.a / 2 + op.c + i));
      row.insert(row.begin() + at, values.begin(), values.end());
      Typed(op.id, values,
            [&](const auto& v) { Block().Insert(op.id, at, int(v.size()), v.data()); });
    } else if (op.kind == Delete) {
      const int at = int(op.a % unsigned(n + 1)), count = std::min(int(op.b % 4), n - at);
      row.erase(row.begin() + at, row.begin() + at + count);
      Block().Delete(op.id, at, count);
    } else if (op.kind == Set) {
      const int at = int(op.a % unsigned(n));
      row[size_t(at)] = ValueOf(op.id, op.b);
      Typed(op.id, {row[size_t(at)]}, [&](const auto& v) { Block().SetValue(op.id, 0, v[0], at); });
    } else {
      std::vector<unsigned char> mask;
      Row kept;
      for (int i = 0; i < n; ++i) {
        mask.push_back(((op.a >> (i % 16)) ^ op.b) & 1);
        if (mask.back()) kept.push_back(row[size_t(i)]);
      }
      row = kept;
      Block().KeepEntries(op.id, mask);
      model_.Say(op.id, REFMSG_CHANGE);
      return model_.Say(op.id, REFMSG_CHANGE);
    }
    op.kind == Delete ? model_.Say(op.id, REFMSG_CHANGE) : model_.Told(op.id);
  }

  void ExpectAgreement() {
    EXPECT_TRUE(same_) << "undo or redo was refused or done against the model";
    EXPECT_EQ(theHold->UndoCount(), model_.undoSteps.size());
    EXPECT_EQ(theHold->RedoCount(), model_.redoSteps.size());
    EXPECT_EQ(theHold.Holding(), !model_.openSteps.empty());
    EXPECT_EQ(theHold.RestoreOrRedoing(), 0);
    EXPECT_EQ(heard_, model_.heard);
    heard_.clear();
    model_.heard.clear();
    EXPECT_EQ(Read(), model_.now);
    // What stands beside the tables: the mirror of the points, and who refers to the nodes.
    std::map<int, int> points;
    for (const int v : model_.now[Owner::kPoints]) ++points[v];
    EXPECT_EQ(points, mirror_.count);
    const Row& nodes = model_.now[Owner::kNodes];
    for (int i = 0; i < kNodePool; ++i) {
      const auto& users = pool_[size_t(i)]->Dependents();
      EXPECT_EQ(std::count(users.begin(), users.end(), &Block()),
                std::count(nodes.begin(), nodes.end(), i));
    }
  }

  host::Host host_;
  std::unique_ptr<Owner, DeleteUnreferenced> owner_;
  std::vector<INode*> pool_;
  Mirror mirror_;
  Model model_;
  std::vector<std::pair<std::string, State>> heard_;
  bool same_ = true;
};

std::vector<Op> DrawOps(unsigned seed, int count) {
  std::mt19937 engine(seed);
  const auto below = [&](unsigned n) { return unsigned(engine() % n); };
  // Some runs use few tables, so that their steps meet in the same one.
  const unsigned tables = 1 + below(unsigned(std::size(kTables)));
  const unsigned first = below(unsigned(std::size(kTables)));
  std::discrete_distribution<int> kinds({8, 5, 6, 3, 1, 6, 5, 2, 6, 4, 0.5});
  std::vector<Op> ops;
  for (int i = 0; i < count; ++i) {
    const ParamID id = kTables[(first + below(tables)) % std::size(kTables)];
    ops.push_back({Kind(kinds(engine)), id, below(1 << 16), below(1 << 16), below(1 << 16)});
  }
  return ops;
}

TEST(UndoModel, DifferenceRecordsActLikeFullCopies) {
  for (unsigned seed = 1; seed <= 600 && !HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Harness().Run(DrawOps(seed, seed % 6 == 0 ? 300 : 60));
  }
}

}  // namespace
