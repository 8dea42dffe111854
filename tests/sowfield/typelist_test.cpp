#include <numeric>

#include "host/scene/mtl.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

constexpr const wchar_t* kLayer = L"Vorn_Sowfield_Objects";

// Types of the given kinds, boxes t + 1 wide, with placements.
struct Mixed : SowfieldScene {
  explicit Mixed(const std::vector<int>& kinds) {
    for (size_t t = 0; t < kinds.size(); ++t) {
      const auto w = float(t + 1);
      if (kinds[t] == 2) AddFileType(*this, L"file", t == 4 ? nullptr : new StdMtl);
      if (kinds[t] != 2) AddAsType(AddSource(*this, kinds[t], L"type", w, 2, 3, {w, 0, 0}));
      AppendPlacements({{{w, 0, 0}, {}, int(t)}, {{0, w, 0}, {}, 0}});
    }
    Undo().Clear();
  }
  // Back and forth, one refresh each.
  void RollBothWays(const WStr& name) {
    EXPECT_EQ(Undo().UndoNames(), std::vector<WStr>{name});
    for (const bool back : {true, false, true, false}) {
      redraws = 0, log.Clear();
      ASSERT_TRUE(back ? Undo().Undo() : Undo().Redo());
      EXPECT_TRUE(redraws == 1 && D().ListReady() == 1) << redraws;
      EXPECT_TRUE(log.Count(Event::TypeListChanged) == 1 && Breach().empty()) << Breach();
    }
  }
};

WStr LayerOf(INode* n) { return n->GetLayer()->GetName(); }

int DeleteRows(SowfieldScene& s, const std::vector<int>& rows) {
  s.D().lists.SelectObjectRows(rows);
  return DeleteSelectedTypes(s.D());
}

TEST(ReplaceType, OfEachKindByEachKind) {
  for (const int pair : {0, 1, 3, 10, 11, 13, 20, 21, 23, 30, 31, 33}) {
    SCOPED_TRACE(pair);
    const int old = pair / 10, kind = pair % 10;
    Mixed s({2, 3, old, 0, 3, 2});
    INode* node = AddSource(s, kind, L"new", 20, 4, 6, {5, 6, 7});
    node->SetObjectOffset(TransMatrix({1, 2, 3}));
    INode* const gone = Records(s)[2].node;
    s.D().lists.SelectObjectRows({3});
    s.log.Clear();
    ASSERT_TRUE(ReplaceType(s.D(), node));
    const TypeRecord r = Records(s)[2];
    EXPECT_TRUE(r.low == Point3(-10, -2, 0) && r.high == Point3(10, 2, 6));
    EXPECT_EQ(r.samples.size(), 8u);
    for (const Point3& p : r.samples) EXPECT_TRUE(std::abs(p.x) == 10 && std::abs(p.z - 3) == 3);
    for (INode* n : {node, r.node}) {
      EXPECT_EQ(n->GetNodeTM(0).GetTrans(), Point3(6, 8, 10)) << "the floor of its box";
      EXPECT_TRUE(n->GetObjectTM(0).GetTrans() == Point3(6, 8, 10) && LayerOf(n) == kLayer);
    }
    EXPECT_TRUE(!gone || (old == 3 ? !gone->InScene() : gone->InScene() && LayerOf(gone) == L"0"));
    EXPECT_TRUE(s.D().lists.objectRows.empty());
    for (const Event event : {Event::TypeListChanged, Event::PainterListChanged,
                              Event::StatsChanged, Event::VariationsDropped})
      EXPECT_EQ(s.log.Count(event), 1);
    s.RollBothWays(L"Replace Geo");
  }
}

TEST(ReplaceType, NeedsOneSelectedTypeAndKeepsASourceThatIsUsed) {
  Mixed s({0, 3, 0});
  const std::vector<TypeRecord> all = Records(s);
  for (const std::vector<int>& rows : {std::vector<int>{}, {0}, {4}, {1, 2}, {1}}) {
    s.D().lists.SelectObjectRows(rows);
    EXPECT_FALSE(ReplaceType(s.D(), rows == std::vector{1} ? s.node : all[2].node));
  }
  EXPECT_TRUE(Records(s) == all && s.Undo().UndoNames().empty());
  // By itself: every table is touched all the same, so that undo finds its last one.
  ASSERT_TRUE(ReplaceType(s.D(), all[0].node));
  EXPECT_EQ(LayerOf(all[0].node), kLayer);
  s.RollBothWays(L"Replace Geo");
  // A mesh node made for a proxy takes over from it.
  s.D().lists.SelectObjectRows({2});
  EXPECT_TRUE(ReplaceType(s.D(), all[1].node) && all[1].node->InScene() && s.Breach().empty());
}

TEST(DeleteSelectedTypes, LeavesWhatACopyOfTheObjectUses) {
  for (const bool copied : {false, true}) {
    Mixed s({0, 2, 3, 1, 2, 3, 2});
    const std::vector<TypeRecord> all = Records(s);
    if (copied) s.host.Services().CreateObjectNode(s.Copied());
    for (const int row : {0, 8}) EXPECT_EQ(DeleteRows(s, {row}), 0);
    EXPECT_EQ(DeleteRows(s, {1, 2, 3, 4}), 4);
    for (const size_t t : {0, 2, 3, 5}) {
      INode* const own = all[t].original ? all[t].original : all[t].node;
      EXPECT_TRUE(own->InScene() && LayerOf(own) == (copied || t == 5 ? kLayer : L"0")) << t;
      EXPECT_EQ(all[t].node->InScene(), copied || t != 2) << t;
    }
    s.RollBothWays(L"Delete Geo");
  }
}

TEST(DeleteSelectedTypes, HoldsALockedList) {
  SowfieldScene s;
  for (int t = 0; t < 8; ++t) s.AddAsType(s.AddBox(L"box", 1, 1, 1));
  s.Set(List_Locked, 1), DeleteRows(s, {1, 2}), s.log.Clear(), DeleteRows(s, {1, 2, 3, 4, 5, 6});
  EXPECT_EQ(s.Block().GetInt(Paint_ListExtra), 2);
  EXPECT_EQ(s.log.Count(Event::ColorShiftChanged), 1);
}

TEST(BrushMinimum, IsThatOfTheTypesAsTheyAre) {
  SowfieldScene s;
  const auto expect = [&](float minimum, float line) {
    EXPECT_EQ(s.D().brushMinimum, minimum);
    EXPECT_EQ(s.Block().GetFloat(Brush_LineSize), line);
  };
  INode *large = s.AddBox(L"large", 40, 40, 1), *small = s.AddBox(L"small", 1, 1, 1, {90, 0, 0});
  s.AddAsType(large), expect(20, 40);
  s.AddAsType(small), expect(0.5f, 40);
  s.Set(Brush_LineSize, 3.0f);
  DeleteRows(s, {2}), expect(20, 20);
  s.Undo().Undo(), expect(0.5f, 3);  // the brush is what it was
  s.Undo().Redo(), expect(20, 20);
  s.Undo().Undo();
  // A node that goes is no wish for another brush.
  s.host.Services().DeleteNode(small, true, false), expect(20, 3);
  s.Undo().Undo(), expect(0.5f, 3);
  Sowfield* copy = s.Copied();
  s.AddNode(L"copy", copy);
  EXPECT_EQ(copy->distribution.brushMinimum, 0.5f);
}

// A quarter of 4 and 4, of 12 and 12, of 1 and 1; a node is turned by what it stands under too.
TEST(BrushMinimum, OfATypeThatIsAddedMindsWhatTheOthersDidMeanwhile) {
  SowfieldScene s;
  INode *a = s.AddBox(L"a", 4, 4, 1), *b = s.AddBox(L"b", 12, 12, 1), *group = s.AddNode(L"g", {});
  group->AttachChild(a);
  s.AddAsType(a), s.AddAsType(b);
  EXPECT_EQ(s.D().brushMinimum, 2);
  group->SetNodeTM(0, {{4, 0, 0}, {0, 4, 0}, {0, 0, 4}, {0, 0, 0}});
  s.AddAsType(s.AddBox(L"wide", 100, 100, 1));
  EXPECT_EQ(s.D().brushMinimum, 6) << "of b, now that a has grown with its parent";
  s.Set(Geo_BoxMax, Point3(-5.5f, -5.5f, 1), 1);
  s.AddAsType(s.AddBox(L"wide", 100, 100, 1));
  EXPECT_EQ(s.D().brushMinimum, 0.25f) << "of b, whose stored box was changed";
}

TEST(BrushMinimum, TakesNoTypeThatIsLargerThanAnyBrush) {
  SowfieldScene s;
  const IParamBlock2& b = s.Block();
  ASSERT_TRUE(s.AddAsType(s.AddBox(L"vast", 1e30f, 1e30f, 1)));
  EXPECT_EQ(b.GetFloat(Brush_Size), 1e7f);
  EXPECT_EQ(b.GetFloat(Brush_LineSize), 1e7f);
  EXPECT_EQ(b.GetFloat(Brush_Collision), 1e6f);
  for (const auto& [size, minimum] : {std::pair(2.5e7f, 0.0f), {2e7f, 1e7f}, {40, 20}}) {
    ASSERT_TRUE(s.AddAsType(s.AddBox(L"box", size, size, 1)));
    EXPECT_EQ(s.D().brushMinimum, minimum);
  }
  // Nor one whose box is empty.
  s.Set(Geo_BoxMax, Point3(-25, -17, 0), 3);
  TakeBrushMinimum(s.D());
  EXPECT_EQ(s.D().brushMinimum, 1e7f);
}

TEST(AddType, OfAMoksetProxyTakesItsOwnSamples) {
  SowfieldScene s;
  Mesh cloud;
  for (int i = 0; i < 4000; ++i) cloud.verts.push_back({float(i), 0, 1});
  auto* proxy = ProxyOf<MoksetProxyObject>(cloud);
  IParamBlock2& b = *proxy->GetParamBlock(0);
  std::vector<int> list(3500);
  std::iota(list.rbegin(), list.rend(), 100);
  b.Delete(46, 0, b.Count(46)), b.Append(46, 3500, list.data());
  b.SetValue(2, 0, Point3(0, -2, 1)), b.SetValue(1, 0, Point3(4000, 2, 5));
  INode* node = s.AddNode(L"cloud", proxy, {1, 1, 1});
  ASSERT_TRUE(s.AddAsType(node));
  EXPECT_EQ(node->GetNodeTM(0).GetTrans(), Point3(2000.5f, 1, 2)) << "the floor of what is seen";
  EXPECT_EQ(s.Block().GetFloat(Brush_Collision), 4000);
  proxy->SetProxyFile(L"elsewhere.Vorn");
  ASSERT_TRUE(s.AddAsType(node));
  EXPECT_EQ(node->GetNodeTM(0).GetTrans(), Point3(2001, 1, 2)) << "the floor of the told box";
  EXPECT_EQ(s.Ints(Geo_PointCount), (std::vector{3500, 3500})) << "more than of a mesh";
  EXPECT_EQ(s.Ints(Geo_VertCount), (std::vector{4000, 3500})) << "in a file, the points are these";
  for (int i : {3499, 6999}) EXPECT_EQ(s.Block().GetPoint3(Geo_Points, 0, i).x, 100);
  // Tables that can't be.
  const auto refused = [&](const char* why) {
    EXPECT_NE(WhyNotASource(node, 0).find(why), std::string::npos) << why;
  };
  const int beyond = 3500;
  b.SetValue(50, 0, 0), b.Append(46, 1, &beyond), refused("sample list");
  b.SetValue(46, 0, 0, b.Count(46) - 1), b.SetValue(1, 0, Point3(-1, 2, 5)), refused("box");
  b.SetValue(3, 0, Point3(0, NAN, 0), 7), refused("finite");
}

TEST(AddType, OfAVRayProxyMakesAHiddenCopyOfItsWholeMesh) {
  SowfieldScene s;
  Mesh mesh = BoxMeshOf(2, 4, 6);
  mesh.verts.push_back({0, 0, 1});
  auto* proxy = ProxyOf<VRayProxyObject>(mesh);
  INode* node = s.AddNode(L"tree", proxy);
  node->SetNodeTM(0, {{0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {10, 20, 30}});
  node->SetObjectOffset(TransMatrix({1, 0, 5}));
  node->SetWireColor(0x123456), node->SetMtl(new StdMtl);
  const Matrix3 shown = node->GetObjectTM(0);
  ASSERT_TRUE(s.AddAsType(node));
  INode* copy = s.Block().GetINode(Geo_Nodes);
  EXPECT_TRUE(copy != node && copy->IsHidden() && !node->IsHidden() && LayerOf(copy) == kLayer);
  EXPECT_TRUE(copy->GetName() == L"tree001" && s.Block().GetStr(Geo_Names) == WStr(L"tree"));
  EXPECT_TRUE(copy->GetWireColor() == 0x123456u && copy->GetMtl() == node->GetMtl());
  EXPECT_EQ(EvalMesh(copy, 0).mesh->getNumVerts(), 9);
  EXPECT_TRUE(s.Ints(Geo_VertCount) == std::vector{9} && proxy->pblock2->GetInt(1) == 0);
  // Both stand where they stood, on a pivot at the floor of the turned, doubled box.
  for (INode* n : {node, copy}) {
    EXPECT_LT(Apart(n->GetObjectTM(0), shown), 2e-5);
    EXPECT_LT(Apart(n->GetNodeTM(0).GetTrans(), {10, 22, 40}), 2e-5);
  }
  EXPECT_NEAR(s.Block().GetFloat(Brush_Collision), 8, 1e-5);
  // A pivot that was turned in the object stays so for replacing, and turns back for adding.
  INode* turned = s.AddNode(L"turned", ProxyOf<VRayProxyObject>(mesh));
  turned->SetObjectOffset({{0, 1, 0}, {-1, 0, 0}, {0, 0, 1}, {0, 0, 0}});
  s.D().lists.SelectObjectRows({1});
  ASSERT_TRUE(ReplaceType(s.D(), turned));
  for (INode* n : {turned, s.Block().GetINode(Geo_Nodes)})
    EXPECT_LT(Apart(n->GetNodeTM(0), TransMatrix(n->GetNodeTM(0).GetTrans())), 1e-6);
  ASSERT_TRUE(s.AddAsType(turned));
  for (INode* n : {turned, s.Block().GetINode(Geo_Nodes, 0, 1)})
    EXPECT_LT(Apart(n->GetNodeTM(0).GetRow(0), {0, 1, 0}), 1e-6);
  // One without a mesh is refused without a trace.
  INode* none = s.AddNode(L"none", new VRayProxyObject);
  EXPECT_TRUE(!s.AddAsType(none) && LayerOf(none) == L"0");
  // A moving one moves its copy.
  INode* moving = s.AddNode(L"moving", ProxyOf<VRayProxyObject>(mesh));
  host::Track way({0, 0, 0});
  way.SetKey(0, {0, 0, 0}), way.SetKey(1600, {8, 0, 0});
  moving->GetTMController()->SetTracks(&way, nullptr, nullptr);
  ASSERT_TRUE(s.AddAsType(moving));
  copy = s.Block().GetINode(Geo_Nodes, 0, 2);
  for (const float f : {0, 4, 8}) EXPECT_EQ(copy->GetNodeTM(int(200 * f)).GetTrans().x, f);
}

// Hears of the tables of a block as its object does; several messages of one table in a row count
// once.
class Recorder : public ReferenceTarget {
 public:
  explicit Recorder(IParamBlock2& block) { ReplaceReference(0, &block); }
  ~Recorder() override { DeleteAllRefsFromMe(); }
  int NumRefs() const override { return 1; }
  ReferenceTarget* GetReference(int) const override { return block_; }
  RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&,
                             RefMessage message) override {
    const int id = message == REFMSG_CHANGE ? block_->LastNotifyParamID() : last_;
    if (id != last_) text_ += " " + ToUtf8(FindParam(ParamID(id))->name);
    last_ = id;
    return REF_SUCCEED;
  }
  std::string Take() {
    last_ = -1;
    return std::exchange(text_, "");
  }

 protected:
  void SetReference(int, ReferenceTarget* t) override { block_ = static_cast<IParamBlock2*>(t); }

 private:
  IParamBlock2* block_ = nullptr;
  int last_ = -1;
  std::string text_;
};

const std::string kRandom =
    " Rnd_ZPos Rnd_Normal Rnd_XRot Rnd_YRot Rnd_ZRot Rnd_XScale Rnd_YScale Rnd_ZScale";
const std::string kShares = " Geo_Reserved_C Geo_PaintPct";
const std::string kBoxes = " Geo_BoxMax Geo_BoxMin";
const std::string kSamples = " Geo_Points Geo_PointCount Geo_VertCount Geo_FaceCount";
// What goes of a type behind its data, up to its name.
const std::string kRowsThatGo =
    " Tr_Random Tr_ZPos_Min Tr_Normal_Min Tr_XRot_Min Tr_YRot_Min Tr_ZRot_Min Tr_XScale_Min"
    " Tr_YScale_Min Tr_ZScale_Min Tr_ZPos_Max Tr_Normal_Max Tr_XRot_Max Tr_YRot_Max Tr_ZRot_Max"
    " Tr_XScale_Max Tr_YScale_Max Tr_ZScale_Max Tr_Unify Tr_AnimOn Tr_AnimMin Tr_AnimMax" +
    kRandom + " Random_Trans Unify_Scale";
const std::string kPlacementsThatGo = " Ins_Pos Ins_Normal Ins_Type Ins_Rand Ins_AnimRand";

struct TableOrder : testing::Test, SowfieldScene {
  std::string Change(int row, INode* by = nullptr) {
    D().lists.SelectObjectRows({row});
    heard.Take();
    EXPECT_TRUE(by ? ReplaceType(D(), by) : DeleteSelectedTypes(D()) == 1);
    return heard.Take();
  }
  Recorder heard{Block()};
};

TEST_F(TableOrder, OfANewTypeAndOfATypesNewSource) {
  const std::string counts = " Geo_Kind Geo_VertCount Geo_FaceCount";
  const std::string added = counts + " Geo_PointCount Geo_Points" + kBoxes;
  const std::string replaced = counts + " Geo_Points Geo_PointCount" + kBoxes;
  const std::string rows =
      kShares +
      " Tr_Random Tr_ZPos_Min Tr_ZPos_Max Tr_Normal_Min Tr_Normal_Max Tr_XRot_Min Tr_XRot_Max"
      " Tr_YRot_Min Tr_YRot_Max Tr_ZRot_Min Tr_ZRot_Max Tr_Unify Tr_XScale_Min Tr_XScale_Max"
      " Tr_YScale_Min Tr_YScale_Max Tr_ZScale_Min Tr_ZScale_Max Tr_AnimOn Tr_AnimMin Tr_AnimMax" +
      kRandom + " Geo_Names Paint_ListExtra";
  INode* box = AddBox(L"a", 1, 1, 1);
  ASSERT_TRUE(AddAsType(box));
  EXPECT_EQ(heard.Take(), added + " Brush_LineSize Brush_Size Brush_Collision Geo_Nodes" + rows);
  ASSERT_TRUE(AddAsType(AddSource(*this, 3, L"b", 1, 1, 1)));
  EXPECT_EQ(heard.Take(), added + " Geo_Nodes Proxy_Nodes" + rows);
  for (int i = 0; i < 2; ++i) AddFileType(*this, L"file", new StdMtl);
  EXPECT_EQ(Change(1, AddBox(L"c", 1, 1, 1)), replaced + " Geo_Nodes Geo_Names");
  EXPECT_EQ(Change(1, AddSource(*this, 3, L"d", 1, 1, 1)),
            replaced + " Geo_Nodes Proxy_Nodes Geo_Names");
  EXPECT_EQ(Change(3, box),
            replaced + " Proxy_MtlIndex Proxy_Mtls Proxy_MtlIndex Proxy_Files Geo_Nodes Geo_Names");
}

TEST_F(TableOrder, OfATypeThatGoes) {
  for (const int kind : {0, 1, 3}) ASSERT_TRUE(AddAsType(AddSource(*this, kind, L"a", 1, 1, 1)));
  AddFileType(*this, L"file", new StdMtl);
  INode* picked = AddBox(L"b", 1, 1, 1);
  ASSERT_TRUE(AddAsType(picked) && AddAsType(AddBox(L"c", 1, 1, 1)));
  AppendPlacements({{{1, 0, 0}, {}, 0}, {{2, 0, 0}, {}, 5}, {{3, 0, 0}, {}, 2}});
  const std::string asked = kShares + kBoxes + kSamples + kRowsThatGo + kPlacementsThatGo;
  EXPECT_EQ(Change(4), " Geo_Kind Proxy_Mtls Proxy_MtlIndex Proxy_Files" + asked +
                           " Geo_Names Paint_ListExtra");
  EXPECT_EQ(Change(3), " Geo_Kind Geo_Nodes Proxy_Nodes" + asked + " Geo_Names Paint_ListExtra");
  EXPECT_EQ(Change(1), " Geo_Kind Geo_Nodes" + asked + " Geo_Names Paint_ListExtra");

  // By its node; the mirrors of the panel follow the global row.
  Set(Tr_Random, 1), Set(Tr_Unify, 0), Set(Random_Trans, 0), Set(Unify_Scale, 1);
  heard.Take();
  host.Services().DeleteNode(picked, true, false);
  const std::string went =
      " Geo_Kind Geo_Nodes" + kBoxes + kSamples + kShares + kRowsThatGo + kPlacementsThatGo;
  EXPECT_EQ(heard.Take(), went + " Geo_Names");
  EXPECT_TRUE(Block().GetInt(Random_Trans) == 1 && Block().GetInt(Unify_Scale) == 0);
  // Types that no placement stands at or above leave the placements alone.
  EXPECT_EQ(Ints(Ins_Type), std::vector{1});
  Set(Ins_Type, 0);
  EXPECT_EQ(Change(2).find("Ins_"), std::string::npos);
}

}  // namespace
}  // namespace sowfield
