#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <random>
#include <set>

#include "host/scene/mtl.h"
#include "sowfield/model/repair.h"
#include "tests/host/sealed.h"
#include "tests/host/tempfolder.h"
#include "tests/sowfield/fixture.h"

namespace sowfield {
namespace {

using nlohmann::json;

const std::vector<Placement> kPlaced = {{{1, 2, -0.0f}, {0.1f, 0.2f, 0.3f}, 0, 3, 17},
                                        {{-4, 5, 6}, {0, -0.0f, 3}, 1, 99, 9999},
                                        {{7, 8, 9}, {0, 0, 0}, 0, 0, 0}};

// Of the objects' blocks, with their places in the bytes.
template <class F>
void EachTable(json& root, F visit) {
  for (json& thing : root["extensions"]["SOWFIELD_scene"]["things"]) {
    if (!thing.contains("blocks")) continue;
    for (json& p : thing["blocks"][0]["params"])
      if (p.contains("/table/view"_json_pointer)) {
        const json& view = root["bufferViews"][p["table"]["view"].get<size_t>()];
        visit(p["id"], p["table"], view["byteOffset"], view["byteLength"]);
      }
  }
}
// The file with another number in a table, and all checksums right.
std::string WithInt(const std::string& glb, Param id, size_t index, int value) {
  std::string text = GlbText(glb), chunks = glb.substr(20 + text.size());
  json root = json::parse(text);
  EachTable(root, [&](int of, json& table, size_t offset, size_t size) {
    if (of != id) return;
    const std::span<char> bytes(&chunks[8 + offset], size);
    std::memcpy(&bytes[index * 4], &value, 4);
    table["crc"] = host::CrcText(host::Crc32c(std::as_bytes(bytes)));
  });
  text = root.dump();
  text.resize((text.size() + 3) / 4 * 4, ' ');
  return GlbOf(Sealed(text), chunks);
}

class Recover : public TempFolder, public SowfieldScene {
 protected:
  void SetUp() override {
    TempFolder::SetUp();
    node->SetName(L"one");
    ASSERT_TRUE(AddAsType(AddBox(L"stone", 1, 2, 3, {9, 0, 0})));
    ASSERT_TRUE(AddAsType(AddSphere(L"tree", 2, 9, {20, 0, 0})));
    AppendPlacements(kPlaced);
    Set(Tr_Random, 1, 2), Set(Tr_ZRot_Max, 90.5f, 2), Set(Geo_Reserved_A, -77);
    Block().SetKey(HueShift, 0, 5), Block().SetKey(HueShift, 480, 50);
    CloseEdit();
    sound_ = Save();
    const std::string text = GlbText(sound_);
    bin_ = 28 + text.size();
    json root = json::parse(text);
    EachTable(root, [&](int id, json&, size_t offset, size_t size) {
      tables_[id] = {bin_ + offset, size};
    });
  }
  std::string Save() {
    const std::vector<std::byte> bytes = SaveBytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
  // The fixture's object is the one that was recovered then.
  bool Open(const std::string& bytes, bool recover = true) {
    lost_.clear(), error_.clear();
    const bool opened = host::OpenSceneBytes(host.Services(), std::as_bytes(std::span(bytes)), "it",
                                             {recover ? &lost_ : nullptr}, error_);
    object = nullptr;
    for (INode* n : host.GetScene().AllNodes())
      if (auto* o = dynamic_cast<Sowfield*>(n->GetObjectRef())) object = o, node = n;
    return opened;
  }
  bool OpenReplaced(const std::string& from, const std::string& to) {
    return Open(WithoutRecords(sound_).replace(sound_.find(from), from.size(), to));
  }
  bool Lost(const std::string& text) const {
    const auto told = [&](auto& line) { return line.find(text) != std::string::npos; };
    return std::any_of(lost_.begin(), lost_.end(), told);
  }
  std::string sound_;
  size_t bin_ = 0;
  std::map<int, std::pair<size_t, size_t>> tables_;  // where they lie in the file, and their size
  std::vector<std::string> lost_;
};

TEST_F(Recover, ACutFileOpensWithWhatIsThere) {
  const size_t positions = tables_[Ins_Pos].first, types = tables_[Ins_Type].first;
  // Far from the ends of tables one place is as another.
  std::set<size_t> cuts;
  for (size_t n = 0; n < sound_.size(); n += 61) cuts.insert(n);
  for (const auto& [id, place] : tables_)
    for (const size_t edge : {place.first, place.first + place.second})
      for (size_t n = edge - 12; n <= edge + 12; ++n) cuts.insert(n);
  for (size_t n = 0; n < 36; ++n) cuts.insert(positions + n);
  for (const size_t n : cuts) {
    if (!Open(sound_.substr(0, n))) {
      ASSERT_LT(n, bin_ - 8);
      ASSERT_FALSE(error_.empty());
    } else {
      ASSERT_TRUE(!lost_.empty() && Breach().empty() && D().TypeCount() == 2) << n;
      const size_t whole = n < positions ? 0 : std::min<size_t>(3, (n - positions) / 12);
      ASSERT_EQ(size_t(D().PlacementCount()), whole) << n;
      for (size_t p = 0; p < whole; ++p) {
        ASSERT_EQ(Block().GetPoint3(Ins_Pos, 0, int(p)), kPlaced[p].position);
        ASSERT_EQ(Block().GetInt(Ins_Type, 0, int(p)),
                  n >= types + 4 * (p + 1) ? kPlaced[p].type : 0);
      }
    }
  }
}

TEST_F(Recover, DamageOfATableLeavesTheRest) {
  const Snapshot original = TakeSnapshot(Block());
  ASSERT_TRUE(Open(sound_));
  EXPECT_TRUE(lost_.empty() && Save() == sound_);
  const Snapshot before = TakeSnapshot(Block());
  EXPECT_EQ(Differences(original, before), "Geo_Nodes") << "of the same names";
  EXPECT_EQ(Block().GetFloat(HueShift, 240), 27.5f) << "half way from 5 to 50";
  EXPECT_TRUE(object->OwnNode() == node && D().rng == Generator() && D().ListReady() == 1);
  for (const Param id : {Geo_BoxMax, Geo_Points, Geo_Names, Tr_ZRot_Max, Rnd_XRot, Ins_Pos}) {
    std::string broken = sound_;
    broken[tables_[id].first + tables_[id].second - 4] ^= 1;  // the last bit of a number, a letter
    ASSERT_FALSE(Open(broken, false));
    ASSERT_TRUE(Open(broken)) << error_;
    const std::string name = ToUtf8(FindParam(id)->name);
    EXPECT_TRUE(Lost("\"one\" (0x") && Lost("(" + name + ") is damaged: its checksum is "));
    EXPECT_EQ(lost_.size(), 1u);
    Snapshot after = TakeSnapshot(Block());
    after["Geo_Nodes"] = before.at("Geo_Nodes");  // other nodes each time
    EXPECT_EQ(Differences(before, after), name);
  }
  for (const size_t at : {size_t(0), size_t(4), size_t(8), size_t(12), bin_ - 8, bin_ - 4}) {
    std::string broken = sound_;  // the headers of the container
    broken[at] ^= 4;
    ASSERT_FALSE(Open(broken, false)) << at;
    ASSERT_TRUE(Open(broken)) << at << error_;
    EXPECT_TRUE(lost_.size() == 1 && Save() == sound_) << at;
  }
}

TEST_F(Recover, ADamagedDescriptionIsReadAsFarAsItMakesSense) {
  ASSERT_TRUE(OpenReplaced("\"segments\":9", "\"segments\":0"));
  EXPECT_TRUE(Lost("its description is damaged: its checksum is "));
  EXPECT_TRUE(Lost("Sphere \"tree\" (0x") && Lost("is dropped: segments is 0, expected "));
  EXPECT_EQ(host.GetScene().FindNodes(L"tree").at(0)->GetObjectRef(), nullptr);
  EXPECT_EQ(D().PlacementCount(), 3);
  ASSERT_TRUE(OpenReplaced("\"name\":\"tree\"", "\"nome\":\"tree\""));
  EXPECT_TRUE(Lost("the member \"name\" is missing"));
  EXPECT_EQ(Block().GetINode(Geo_Nodes, 0, 1)->GetName(), L"Node");
  // A node that can't be referred to: type 1 has no source, and goes with its placement.
  ASSERT_TRUE(OpenReplaced("\"id\":\"0x3\",\"layer\"", "\"id\":\"zz3\",\"layer\""));
  EXPECT_TRUE(Lost("nothing has the id 0x3"));
  EXPECT_TRUE(Lost("Geo_Kind: 1 type of 2 without a source went"));
  EXPECT_TRUE(D().TypeCount() == 1 && D().PlacementCount() == 2);
  ASSERT_TRUE(OpenReplaced("\"blocks\":[", "\"blotks\":["));
  EXPECT_TRUE(Lost("is dropped: the member \"blocks\" is missing"));
  EXPECT_EQ(host.GetScene().AllNodes().size(), 3u);
  EXPECT_EQ(object, nullptr);

  // What can't be opened leaves the scene that was there.
  ASSERT_TRUE(Open(sound_));
  EXPECT_FALSE(OpenReplaced("\"SOWFIELD_scene\":{", "\"SOWFIELD_szene\":{"));
  EXPECT_FALSE(Open("no scene at all"));
  EXPECT_TRUE(Save() == sound_ && D().ListReady() == 1);
}

// Nodes of which nothing is left have others in their place: no type goes, and no placement.
TEST_F(Recover, EmptyNodesStandForThoseWhoseTextAndRecordAreLost) {
  for (int i = 0; i < 200; ++i) AddBox(L"more", 1, 1, 1);
  ASSERT_TRUE(AddAsType(AddBox(L"last", 1, 1, 1)));
  AppendPlacements({{{1, 1, 1}, {0, 0, 0}, 2, 1, 1}});
  const Snapshot before = TakeSnapshot(Block());
  const std::string whole = Save();
  const size_t text = GlbText(whole).size(), nodes = host.GetScene().AllNodes().size();
  std::vector<size_t> records;
  for (size_t at = 0; (at = whole.find(host::kRecordMark, at)) != std::string::npos; ++at)
    records.push_back(at);
  ASSERT_GT(records.size(), 5u);
  size_t renamed = 0;
  for (const size_t record : records) {
    std::string broken = whole;
    broken.replace(20, text, text, ' ');
    broken[record + 60] ^= 1;
    ASSERT_TRUE(Open(broken)) << error_;
    EXPECT_TRUE(Lost("1 of its " + std::to_string(records.size()) + " records are damaged"));
    EXPECT_EQ(host.GetScene().AllNodes().size(), nodes);
    for (const INode* n : host.GetScene().AllNodes()) renamed += n->GetName().starts_with(L"Lost ");
    if (!object) continue;  // its own record
    Snapshot after = TakeSnapshot(Block());
    const std::string hue = ToUtf8(FindParam(HueShift)->name);
    after[hue] = before.at(hue);  // its keys may be in that record
    EXPECT_EQ(Differences(before, after), "Geo_Nodes");
    EXPECT_EQ(D().PlacementCount(), 4);
  }
  EXPECT_EQ(renamed, nodes) << "each is in one record";
}

TEST_F(Recover, TablesAgreeBeforeAnOlderSceneIsUpgraded) {
  DropNormalRows(), Set(PointCloud, -5);
  ASSERT_TRUE(Open(Save(), false) && Breach().empty());
  EXPECT_EQ(Block().GetInt(PointCloud), 1);
  DropNormalRows();
  ASSERT_TRUE(Open(Save()));
  EXPECT_EQ(lost_.size(), 0u);
  const auto rows = Block().Floats(Tr_Normal_Min);
  EXPECT_EQ(std::vector<float>(rows.begin(), rows.end()), (std::vector<float>{0, 100, 100}));
  Generator drawn;  // 100 values a slot, from the start of the sequence
  for (const float value : Block().Floats(Rnd_Normal)) ASSERT_EQ(value, drawn.Random(100));
  EXPECT_TRUE(D().rng == drawn && Undo().UndoCount() == 0 && Breach().empty());
  DropNormalRows();
  const std::string disagreeing = WithInt(Save(), Ins_Type, 1, 1 << 30);
  ASSERT_FALSE(Open(disagreeing, false));  // and no display is built from them
  EXPECT_NE(error_.find("Sowfield \"one\" (0x4): Ins_Type[1] is 1073741824"), std::string::npos)
      << error_;
  ASSERT_TRUE(Open(disagreeing));
  EXPECT_TRUE(Lost("Sowfield \"one\" (0x4): Ins_Type: 1 placement of 3 with a type"));
  EXPECT_EQ(Breach(), "");
  EXPECT_EQ(D().PlacementCount(), 2);
  EXPECT_EQ(Block().GetFloat(Tr_Normal_Min, 0, 1), 100.0f);
  // The same door stands before a save.
  Set(Ins_Rand, 100, 1);
  std::vector<std::byte> bytes;
  EXPECT_FALSE(host::SaveSceneBytes(host.Services(), "/s.glb", bytes, error_));
  EXPECT_EQ(error_,
            "cannot save \"/s.glb\": \"Sowfield\" of the node \"one\": it could not be opened "
            "again: Ins_Rand[1] is 100, allowed is 0 to 99");
}

TEST_F(Recover, APairWithoutItsBytesHasItsNodes) {
  const std::string path = Path("pair.gltf");
  ASSERT_TRUE(host::SaveScene(host.Services(), path, {}, error_)) << error_;
  for (const auto& file : std::filesystem::directory_iterator(folder_))
    if (file.path().extension() == ".bin") std::filesystem::remove(file.path());
  EXPECT_TRUE(host::OpenScene(host.Services(), path, {&lost_}, error_)) << error_;
  EXPECT_EQ(host.GetScene().AllNodes().size(), 3u);
  EXPECT_TRUE(Lost(".bin\": No such file or directory"));
  EXPECT_TRUE(Lost("(Ins_Pos) ends with the file: 0 of 3 entries are there"));
}

auto CopyOf(IParamBlock2& block) {
  RemapDir remap;
  return std::unique_ptr<IParamBlock2, DeleteUnreferenced>(
      static_cast<IParamBlock2*>(block.Clone(remap)));
}

TEST_F(Recover, TablesAreBroughtToAgree) {
  constexpr INode* kNoNode = nullptr;
  const auto gone = [](Param id, int from = 0) {
    return [=](IParamBlock2& b) { b.Delete(id, from, b.Count(id) - from); };
  };
  const auto set = [](Param id, auto value, int index) {
    return [=](IParamBlock2& b) { b.SetValue(id, 0, value, index); };
  };
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const auto shifts = [](IParamBlock2& b) {
    const float four[] = {1, 2, 3, 4};
    for (const Param id : kShiftTables) b.Append(id, id == HueRand ? 4 : 2, four);
  };
  const std::tuple<std::function<void(IParamBlock2&)>, int, int, std::string> cases[] = {
      {[](IParamBlock2&) {}, 2, 3, ""},
      {gone(Ins_Normal, 1), 2, 3, "Ins_Normal has 1 entries, expected 3: 2 are new"},
      {gone(Ins_Pos, 1), 2, 1, "Ins_Normal has 3 entries, expected 1: 2 went"},
      {set(Ins_Pos, Point3(0, nan, 0), 0), 2, 2,
       "Ins_Pos: 1 placement of 3 without a finite position went"},
      {set(Ins_Type, 7, 2), 2, 2, "Ins_Type: 1 placement of 3 with a type that isn't there went"},
      {set(Ins_Rand, 100, 1), 2, 3, "Ins_Rand: 1 of 3 entries were out of range"},
      {set(Geo_Nodes, kNoNode, 0), 1, 1, "Geo_Kind: 1 type of 2 without a source went"},
      {gone(Geo_Nodes), 0, 0, "Geo_Kind: 2 types of 2 without a source went"},
      {gone(Geo_Kind), 2, 3, "Geo_Kind: 2 kinds of 2 guessed from the sources"},
      {set(Geo_Kind, 3, 0), 2, 3, "Geo_Kind: 1 type without entry in Proxy_Nodes got kind 0"},
      {set(Geo_PointCount, -5, 1), 2, 3, "Geo_PointCount: 1 type of 2 got fewer samples: "},
      {gone(Rnd_ZRot), 2, 3, "Rnd_ZRot has 0 entries, expected 300: 300 are new"},
      {set(Tr_AnimOn, 1, 0), 2, 3, "Rnd_Anim has 0 entries, expected 10000: 10000 are new"},
      {shifts, 2, 3, "HueRand has 4 entries, expected 2: 2 went"},
      {set(Tr_ZPos_Min, nan, 1), 2, 3,
       "Tr_ZPos_Min: 1 of 3 entries were out of range, allowed is a finite number"},
      {set(PointCloud, -5, 0), 2, 3, "PointCloud was -5, allowed is 1 to 100: it is 1 now"},
      {set(Brush_Amount, 1 << 30, 0), 2, 3,
       "Brush_Amount was 1073741824, allowed is 0 to 10000: it is 10000 now"},
      {set(Brush_Size, nan, 0), 2, 3, "Brush_Size was nan, allowed is 0 to 10000000: it is 20 now"},
      {set(Display_Type, 3, 0), 2, 3, "Display_Type was 3, allowed is 0 to 2: it is 0 now"},
      {set(Display_Mode, 9, 0), 2, 3, "Display_Mode was 9, allowed is 0 to 6: it is 1 now"}};
  for (const auto& [damage, types, placements, line] : cases) {
    const auto copy = CopyOf(Block());
    damage(*copy);
    EXPECT_EQ(FirstBreach(*copy).empty(), line.empty()) << line;
    // Settings are mended apart, and are no reason to call the tables damaged.
    std::vector<std::string> lines = RepairTables(*copy);
    EXPECT_EQ(FirstBreachAsStored(*copy), "") << line;
    for (const std::string& mended : RepairSettings(*copy)) lines.push_back(mended);
    EXPECT_EQ(FirstBreach(*copy), "") << line;
    EXPECT_TRUE(copy->Count(Geo_Kind) == types && copy->Count(Ins_Pos) == placements) << line;
    EXPECT_EQ(lines.empty() ? "" : lines[0].substr(0, std::max<size_t>(line.size(), 1)), line);
  }
  // The second type's rows follow it where the first one goes.
  const auto copy = CopyOf(Block());
  copy->SetValue(Geo_Nodes, 0, kNoNode, 0);
  RepairTables(*copy);
  EXPECT_TRUE(copy->GetStr(Geo_Names) == WStr(L"tree") &&
              copy->GetFloat(Tr_ZRot_Max, 0, 1) == 90.5f);
  EXPECT_EQ(copy->GetFloat(Rnd_XRot, 0, 100), Block().GetFloat(Rnd_XRot, 0, 200));
  EXPECT_TRUE(copy->GetPoint3(Ins_Pos) == kPlaced[1].position && copy->GetInt(Ins_Type) == 0);
  const int first = Block().GetInt(Geo_PointCount);
  EXPECT_EQ(copy->GetPoint3(Geo_Points), Block().GetPoint3(Geo_Points, 0, first));
  // Counts whose sum is right. No run is found behind a negative one.
  const auto negative = CopyOf(Block());
  negative->SetValue(Geo_PointCount, 0, -5, 0);
  negative->SetValue(Geo_PointCount, 0, Block().Count(Geo_Points) + 5, 1);
  EXPECT_EQ(FirstBreach(*negative).rfind("Geo_PointCount[0] is -5, allowed is at least 0", 0), 0u);
  RepairTables(*negative);
  EXPECT_TRUE(FirstBreach(*negative).empty() && negative->Count(Geo_Points) == 0);

  std::mt19937 random(5);
  const auto params = AllParams();
  for (int round = 0; round < 400; ++round) {
    const auto any = CopyOf(Block());
    for (int i = 0; i < 6; ++i) {
      const ParamEntry& e = params[random() % params.size()];
      if (!e.IsTable() || any->Count(e.id) == 0) continue;
      const int at = int(random() % unsigned(any->Count(e.id))), value = int(random() % 8) - 2;
      if (random() % 2) {
        any->Delete(e.id, at, std::min(any->Count(e.id) - at, 1 + int(random() % 200)));
      } else if (e.type == ParamType::Int) {
        any->Insert(e.id, at, 1, &value);
      } else if (e.type == ParamType::Float) {
        any->SetValue(e.id, 0, float(value) * 1e3f, at);
      }
    }
    const bool sound = FirstBreachAsStored(*any).empty();
    ASSERT_EQ(RepairTables(*any).empty(), sound) << round;
    ASSERT_EQ(FirstBreachAsStored(*any), "") << round;
  }
}

class Merge : public testing::Test, public SowfieldScene {
 protected:
  bool MergeIn(const std::vector<std::byte>& bytes) {
    return host::MergeSceneBytes(host.Services(), bytes, "it", {}, merged_, error_);
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
  AddNode(L"instance", object), AddNode(L"clone", Copied());  // which shares the source
  CloseEdit();
  const std::vector<std::byte> bytes = SaveBytes();
  const Snapshot before = TakeSnapshot(Block());
  const std::vector<WStr> steps = Undo().UndoNames();
  Layers().GetLayer(L"trees")->Hide(true);
  ip.SetAnimRange({5, 6}), ip.SetTime(6, false);

  const size_t nodes = host.GetScene().AllNodes().size();
  ASSERT_TRUE(MergeIn(bytes)) << error_;
  EXPECT_TRUE(merged_.nodes == nodes && merged_.renamed.size() == nodes);
  EXPECT_EQ(merged_.warning, "");
  for (const auto& [from, to] : merged_.renamed) EXPECT_EQ(to, from + L"001");
  ASSERT_TRUE(MergeIn(bytes)) << error_;

  std::set<Object*> objects;
  for (const WStr& end : {WStr(), WStr(L"001"), WStr(L"002")}) {
    INode *its = Named(L"stone" + end), *below = Named(L"shared" + end);
    ASSERT_TRUE(its && below && Named(L"sow" + end));
    EXPECT_TRUE(below->GetParentNode() == its && below->GetObjectRef() == its->GetObjectRef());
    EXPECT_TRUE(below->GetMtl() == its->GetMtl() && below->GetLayer()->GetName() == L"trees");
    auto* sow = static_cast<Sowfield*>(Named(L"sow" + end)->GetObjectRef());
    EXPECT_EQ(Named(L"instance" + end)->GetObjectRef(), sow);
    auto* clone = static_cast<Sowfield*>(Named(L"clone" + end)->GetObjectRef());
    EXPECT_TRUE(clone != sow && clone->pblock2->GetINode(Geo_Nodes) == its);
    EXPECT_EQ(sow->pblock2->GetINode(Geo_Nodes), its);
    EXPECT_EQ(Differences(before, TakeSnapshot(*sow->pblock2)), end.empty() ? "" : "Geo_Nodes");
    EXPECT_TRUE(sow->distribution.ListReady() == 1 && sow->OwnNode()->InScene());
    objects.insert({sow, its->GetObjectRef()});
  }
  EXPECT_EQ(objects.size(), 6u);                         // nothing is shared between the three
  EXPECT_TRUE(Layers().GetLayer(L"trees")->IsHidden());  // as it is here
  EXPECT_TRUE(ip.GetAnimRange() == Interval(5, 6) && ip.GetTime() == 6);

  EXPECT_EQ(Undo().UndoNames(), steps);
  const auto& merged = static_cast<Sowfield*>(Named(L"sow001")->GetObjectRef())->distribution;
  ASSERT_TRUE(Undo().Undo() && Undo().Undo());
  EXPECT_TRUE(D().TypeCount() == 0 && merged.PlacementCount() == 1);
  ASSERT_TRUE(Undo().Redo() && Undo().Redo());
  EXPECT_TRUE(D().PlacementCount() == 1 && host.GetScene().AllNodes().size() == 3 * nodes);
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
  EXPECT_NE(merged_.warning.find("2.0 x inches, here 1.0 x metres"), std::string::npos);
  EXPECT_TRUE(ip.MasterUnitType() == UNITS_METERS && ip.GetAnimRange() == range);
  ASSERT_TRUE(ip.GetLayerManager().GetLayer(L"new"));
  EXPECT_TRUE(ip.GetLayerManager().GetLayer(L"new")->IsHidden());
  EXPECT_EQ(ip.GetLayerManager().GetCurrentLayer()->GetName(), L"0");
  EXPECT_EQ(ip.CreateObjectNode(new BoxObject)->GetName(), L"Box001");
}

TEST_F(Merge, AFailureLeavesTheScene) {
  ASSERT_TRUE(AddAsType(AddBox(L"box", 1, 1, 1)));
  AppendPlacements({kPlaced[0]});
  CloseEdit();
  const std::vector<std::byte> bytes = SaveBytes();
  std::vector<std::byte> broken = bytes;
  broken[40] ^= std::byte{1};
  EXPECT_FALSE(MergeIn(broken));
  EXPECT_EQ(error_.find("cannot merge \"it\": "), 0u) << error_;
  const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  const std::string disagreeing = WithInt(text, Ins_Type, 0, 1);
  const auto all = std::as_bytes(std::span(disagreeing));
  EXPECT_FALSE(MergeIn({all.begin(), all.end()}));
  EXPECT_NE(error_.find("Ins_Type[0] is 1, allowed is 0 to 0"), std::string::npos) << error_;
  theHold.Begin();
  EXPECT_FALSE(MergeIn(bytes));
  theHold.Cancel();
  EXPECT_EQ(SaveBytes(), bytes);
  EXPECT_EQ(D().ListReady(), 1);
}

}  // namespace
}  // namespace sowfield
