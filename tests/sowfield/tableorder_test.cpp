// The order in which a change of the type list reaches its tables.

#include <gtest/gtest.h>

#include "host/scene/mtl.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

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
  std::string Delete(int row) {
    D().lists.SelectObjectRows({row});
    heard.Take();
    EXPECT_EQ(DeleteSelectedTypes(D()), 1);
    return heard.Take();
  }
  std::string Replace(int row, INode* by) {
    D().lists.SelectObjectRows({row});
    heard.Take();
    EXPECT_TRUE(ReplaceType(D(), by));
    return heard.Take();
  }
  Recorder heard{Block()};
};

TEST_F(TableOrder, OfANewType) {
  const std::string data =
      " Geo_Kind Geo_VertCount Geo_FaceCount Geo_PointCount Geo_Points Geo_BoxMax Geo_BoxMin";
  const std::string rows =
      kShares +
      " Tr_Random Tr_ZPos_Min Tr_ZPos_Max Tr_Normal_Min Tr_Normal_Max Tr_XRot_Min Tr_XRot_Max"
      " Tr_YRot_Min Tr_YRot_Max Tr_ZRot_Min Tr_ZRot_Max Tr_Unify Tr_XScale_Min Tr_XScale_Max"
      " Tr_YScale_Min Tr_YScale_Max Tr_ZScale_Min Tr_ZScale_Max Tr_AnimOn Tr_AnimMin Tr_AnimMax" +
      kRandom + " Geo_Names Paint_ListExtra";
  ASSERT_TRUE(AddAsType(AddBox(L"a", 1, 1, 1)));
  EXPECT_EQ(heard.Take(), data + " Brush_LineSize Brush_Size Brush_Collision Geo_Nodes" + rows);
  ASSERT_TRUE(AddAsType(AddSource(*this, 3, L"b", 1, 1, 1)));
  EXPECT_EQ(heard.Take(), data + " Geo_Nodes Proxy_Nodes" + rows);
}

TEST_F(TableOrder, OfATypesNewSource) {
  const std::string data =
      " Geo_Kind Geo_VertCount Geo_FaceCount Geo_Points Geo_PointCount" + kBoxes;
  ASSERT_TRUE(AddAsType(AddBox(L"a", 1, 1, 1)));
  for (int i = 0; i < 2; ++i) AddFileType(*this, L"file", new StdMtl);
  INode *box = AddBox(L"b", 1, 1, 1), *proxy = AddSource(*this, 3, L"c", 1, 1, 1);
  EXPECT_EQ(Replace(1, box), data + " Geo_Nodes Geo_Names");
  EXPECT_EQ(Replace(1, proxy), data + " Geo_Nodes Proxy_Nodes Geo_Names");
  EXPECT_EQ(Replace(2, box),
            data + " Proxy_MtlIndex Proxy_Mtls Proxy_MtlIndex Proxy_Files Geo_Nodes Geo_Names");
}

TEST_F(TableOrder, OfATypeThatGoes) {
  for (const int kind : {0, 1, 3}) ASSERT_TRUE(AddAsType(AddSource(*this, kind, L"a", 1, 1, 1)));
  AddFileType(*this, L"file", new StdMtl);
  INode* picked = AddBox(L"b", 1, 1, 1);
  ASSERT_TRUE(AddAsType(picked) && AddAsType(AddBox(L"c", 1, 1, 1)));
  AppendPlacements({{{1, 0, 0}, {}, 0}, {{2, 0, 0}, {}, 5}, {{3, 0, 0}, {}, 2}});
  const std::string asked = kShares + kBoxes + kSamples + kRowsThatGo + kPlacementsThatGo;
  EXPECT_EQ(Delete(4), " Geo_Kind Proxy_Mtls Proxy_MtlIndex Proxy_Files" + asked +
                           " Geo_Names Paint_ListExtra");
  EXPECT_EQ(Delete(3), " Geo_Kind Geo_Nodes Proxy_Nodes" + asked + " Geo_Names Paint_ListExtra");
  EXPECT_EQ(Delete(1), " Geo_Kind Geo_Nodes" + asked + " Geo_Names Paint_ListExtra");

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
  EXPECT_EQ(Delete(2).find("Ins_"), std::string::npos);
}

}  // namespace
}  // namespace sowfield
