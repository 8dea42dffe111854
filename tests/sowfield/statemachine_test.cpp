// Long random sequences of everything that changes the type list and the placements, held against
// a plain model: a list of records, and a full copy of it for each undo step. Row selections,
// brush sizes and Paint_ListExtra are left out: operations write them outside their steps.
//
// SOWFIELD_STEPS sets the number of steps, 20,000 without it.

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <numeric>
#include <set>

#include "host/scenefile/scenefile.h"
#include "sowfield/objects/proxylife.h"
#include "sowfield/proxy/moksetfile.h"
#include "tests/sowfield/paint_fixture.h"
#include "tests/sowfield/placement_twin.h"
#include "tests/sowfield/typelist_fixture.h"

namespace sowfield {
namespace {

namespace fs = std::filesystem;

struct Operation {
  int what;
  std::uint32_t seed;
};
constexpr const char* kNames[] = {"add",  "replace", "delete", "paint",       "erase",
                                  "set",  "convert", "load",   "export back", "update all",
                                  "node", "undo",    "redo",   "clone",       "save and open"};
// How often each comes.
constexpr int kShares[] = {12, 6, 5, 20, 10, 10, 8, 3, 6, 2, 4, 12, 8, 1, 2};
constexpr int kOperations = int(std::size(kNames));
constexpr size_t kMostTypes = 8, kMostCopies = 2;

// What is compared: the types with their placements, the order in which these were painted, the
// global row, which type is shown alone (0 all), and the shifts of colour variants, table by table.
struct Model {
  std::vector<TypeRecord> types;
  std::vector<int> order;
  std::vector<float> global;
  int shown = 0, variants = 12;
  std::vector<float> shifts;
  bool operator==(const Model&) const = default;
};

Model ModelOf(const SowfieldScene& s) {
  const IParamBlock2& b = *s.object->pblock2;
  Model m;
  m.types = Records(s);
  m.order.assign(b.Ints(Ins_Type).begin(), b.Ints(Ins_Type).end());
  m.shown = b.GetInt(ParamID(98)), m.variants = b.GetInt(ParamID(34));
  for (const int id : {39, 40, 41, 42})
    for (const float v : b.Floats(ParamID(id))) m.shifts.push_back(v);
  for (const int id : {12, 13, 14, 15, 16, 17, 58, 59, 60, 61, 63, 64, 65, 66, 101, 102})
    m.global.push_back(b.GetFloat(ParamID(id), 0, 0));
  for (const int id : {8, 9, 10, 54, 55, 56, 57, 100})
    for (int i = 0; i < 100; ++i) m.global.push_back(b.GetFloat(ParamID(id), 0, i));
  return m;
}

// A quarter of |x| + |y| of the smallest type's box, turned as its node is.
float LeastBrush(const std::vector<TypeRecord>& types) {
  std::vector<float> all;
  for (const TypeRecord& r : types) {
    Point3 s = r.high - r.low;
    if (r.node) {
      const Matrix3 tm = r.node->GetNodeTM(0);
      s = tm.GetRow(0) * s.x + tm.GetRow(1) * s.y + tm.GetRow(2) * s.z;
    }
    all.push_back((std::abs(s.x) + std::abs(s.y)) / 4);
  }
  return all.empty() ? 0 : *std::min_element(all.begin(), all.end());
}

class Machine {
 public:
  explicit Machine(const fs::path& folder) : folder_(folder), s_(0, PaintScene::kScripted) {
    s_.Set(Display_Mode, 4);  // placements are part of the mesh
    FillPool();
    for (int i = 0; i < 2; ++i) {
      files_.push_back((folder_ / ("loaded" + std::to_string(i) + ".Vorn")).wstring());
      WriteMoksetFile(BoxMeshOf(1, 2 + float(i), 1), files_.back(), s_.D().rng);
    }
    s_.Undo().Clear();
    model_ = ModelOf(s_);
  }

  // Empty if all is well, else what is wrong.
  std::string Do(const Operation& op) {
    Draws draw(op.seed);
    const Model before = model_;
    step_ = travelled_ = false;
    s_.redraws = 0;
    Act(op.what, draw);
    for (const std::string& breach : {s_.Breach(), BreachOfCopies()})
      if (!breach.empty()) return breach;
    if (!(ModelOf(s_) == model_)) return "the tables aren't those of the model: " + Difference();
    if (std::abs(s_.D().brushMinimum - LeastBrush(model_.types)) > 1e-5f)
      return "the brush minimum";
    if (step_) {
      undo_.push_back(before);
      redo_.clear();
    }
    // Copies refresh too where their types went with a node; updating an empty list moves the
    // object's node at most.
    const bool none = !copies_.empty() || (before.types.empty() && model_.types.empty());
    const int most = 1 + int(copies_.size());
    if (travelled_ && !(s_.redraws <= most && (none || s_.redraws == 1)))
      return std::to_string(s_.redraws) + " refreshes";
    return {};
  }

  std::string UndoAndRedoAll() {
    while (!undo_.empty())
      if (const std::string why = Do({11, 0}); !why.empty()) return "undoing all: " + why;
    if (s_.Undo().Undo()) return "the host has a step more than the model";
    while (!redo_.empty())
      if (const std::string why = Do({12, 0}); !why.empty()) return "redoing all: " + why;
    return {};
  }

 private:
  std::string Difference() {
    const Model actual = ModelOf(s_);
    if (actual.types.size() != model_.types.size()) return "number of types";
    for (size_t t = 0; t < actual.types.size(); ++t)
      if (!(actual.types[t] == model_.types[t])) return "type " + std::to_string(t);
    if (actual.order != model_.order) return "painting order";
    return actual.global != model_.global ? "global row" : "shown type or shifts";
  }

  void FillPool() {
    for (int i = int(pool_.size()); i < 6; ++i)
      NewSource(i % 4 == 3 ? 3 : i % 4 == 2 ? 1 : 0, float(i));
  }
  void NewSource(int kind, float size) {
    INode* node = AddSource(s_, kind, L"Source", 1 + size, 2, 1 + 0.5f * size, {50 + size, 40, 0});
    Matrix3 tm = node->GetNodeTM(0);
    tm.RotateZ(0.3f * size);
    node->SetNodeTM(0, tm);
    if (int(size) % 2) node->SetMtl(new StdMtl);
    pool_.push_back(Pin<INode>(node));
  }
  INode* Pick(Draws& draw) {
    std::vector<INode*> there;
    for (const Pin<INode>& n : pool_)
      if (n->InScene() && WhyNotASource(n.get(), 0).empty()) there.push_back(n.get());
    return there.empty() ? nullptr : there[size_t(draw.Int(0, int(there.size()) - 1))];
  }
  int AnyType(Draws& draw, auto&& fits) {
    std::vector<int> types;
    for (size_t t = 0; t < model_.types.size(); ++t)
      if (fits(model_.types[t])) types.push_back(int(t));
    return types.empty() ? -1 : types[size_t(draw.Int(0, int(types.size()) - 1))];
  }
  static bool Any(const TypeRecord&) { return true; }
  static bool InFile(const TypeRecord& r) { return r.kind == 2; }

  // What an operation reads from its source, the model takes over for that type alone.
  void TakeData(size_t t) {
    TypeRecord now = Records(s_).at(t);
    const TypeRecord& r = model_.types[t];
    now.material = r.material, now.share = r.share, now.rows = r.rows, now.random = r.random;
    now.placements = r.placements;
    model_.types[t] = now;
  }
  void RemoveTypes(auto&& goes) {
    std::vector<int> number(model_.types.size(), -1);
    std::vector<TypeRecord> left;
    for (size_t t = 0; t < model_.types.size(); ++t) {
      if (goes(model_.types[t], int(t))) continue;
      number[t] = int(left.size());
      left.push_back(model_.types[t]);
    }
    model_.types = left;
    if (model_.shown > 0) model_.shown = number[size_t(model_.shown - 1)] + 1;
    std::erase_if(model_.order, [&](int t) { return number[size_t(t)] < 0; });
    for (int& t : model_.order) t = number[size_t(t)];
  }
  void SelectOne(int type) { s_.D().lists.SelectObjectRows({type + 1}); }
  void Paint(int tool, const std::vector<PainterEvent>& events) {
    if (model_.types.empty()) return;
    s_.D().lists.SelectPainterRows({});
    s_.Set(Brush_Collision, 0.0f);
    ASSERT_TRUE(PressToolButton(tool));
    s_.Give(events);
    PressToolButton(kNoTool);
  }

  void Act(int what, Draws& draw) {
    switch (what) {
      case 0: {
        INode* node = model_.types.size() < kMostTypes ? Pick(draw) : nullptr;
        if (!node) return;
        step_ = AddType(s_.D(), node);
        ASSERT_TRUE(step_);
        model_.types.push_back(Records(s_).back());
        EXPECT_EQ(model_.types.back().name, node->GetName());
        return;
      }
      case 1: {
        const int type = AnyType(draw, Any);
        INode* node = Pick(draw);
        if (type < 0 || !node) return;
        SelectOne(type);
        step_ = ReplaceType(s_.D(), node);
        ASSERT_TRUE(step_);
        TakeData(size_t(type));
        model_.types[size_t(type)].material = nullptr;
        return;
      }
      case 2: {
        std::vector<int> rows;
        for (size_t t = 0; t < model_.types.size(); ++t)
          if (draw.Int(0, 3) == 0) rows.push_back(int(t) + 1);
        s_.D().lists.SelectObjectRows(rows);
        step_ = DeleteSelectedTypes(s_.D()) > 0;
        EXPECT_EQ(step_, !rows.empty());
        RemoveTypes([&](const TypeRecord&, int t) {
          return std::find(rows.begin(), rows.end(), t + 1) != rows.end();
        });
        return;
      }
      case 3:
      case 4:
        return PaintOrErase(what, draw);
      case 5: {
        if (model_.types.empty()) return;
        const int type = AnyType(draw, Any);
        const float value = draw.Float(0, 50);
        const int share = draw.Int(0, 100), frames = draw.Int(-50, 50);
        theHold.Begin();
        s_.Block().SetValue(Geo_PaintPct, 0, share, type);
        s_.Block().SetValue(Tr_AnimMin, 0, frames, type);
        s_.Block().SetValue(Tr_ZPos_Min, 0, value, type + 1);
        model_.shown = draw.Int(0, int(model_.types.size()));
        s_.Block().SetValue(Display_Type, 0, model_.shown);
        if (draw.Int(0, 1)) DrawShifts(draw);
        theHold.Accept(L"Set");
        step_ = true;
        TypeRecord& r = model_.types[size_t(type)];
        r.share = share, r.rows[0] = value, r.rows[20] = float(frames);
        return;
      }
      default:
        return ActOnFilesAndHistory(what, draw);
    }
  }

  // As a render does: every variant of every type gets its shifts, by the types that are there now.
  void DrawShifts(Draws& draw) {
    IParamBlock2& b = s_.Block();
    model_.variants = draw.Int(2, 5);
    b.SetValue(ColorVariation, 0, model_.variants);
    model_.shifts.clear();
    for (const int id : {39, 40, 41, 42}) {
      b.Delete(ParamID(id), 0, b.Count(ParamID(id)));
      for (size_t i = 0; i < size_t(model_.variants) * model_.types.size(); ++i) {
        model_.shifts.push_back(draw.Float(-20, 20));
        b.Append(ParamID(id), 1, &model_.shifts.back());
      }
    }
  }

  void PaintOrErase(int what, Draws& draw) {
    const size_t count = model_.order.size();
    std::vector<PainterEvent> events;
    for (int i = draw.Int(1, 6); i-- > 0;)
      events.push_back(PaintScene::On({draw.Float(-9, 9), draw.Float(-9, 9), 0}, 2));
    Paint(what == 3 ? kLineTool : kEraseTool, events);
    const std::span<const Point3> positions = s_.Block().Points(Ins_Pos);
    if (what == 3) {
      ASSERT_GE(positions.size(), count);
      const std::vector<TypeRecord> now = Records(s_);
      for (size_t p = count; p < positions.size(); ++p) {
        const int type = s_.Block().GetInt(Ins_Type, 0, int(p));
        auto& own = model_.types[size_t(type)].placements;
        own.push_back(now[size_t(type)].placements.at(own.size()));
        model_.order.push_back(type);
      }
      step_ = positions.size() > count;
      return;
    }
    std::vector<size_t> seen(model_.types.size(), 0);
    std::vector<int> order;
    for (const int type : model_.order) {
      auto& own = model_.types[size_t(type)].placements;
      const auto& p = own[seen[size_t(type)]];
      const bool goes = std::any_of(events.begin(), events.end(), [&](const PainterEvent& e) {
        return Length(Point3(p[0], p[1], p[2]) - e.worldPoint) < 2;
      });
      if (goes) {
        own.erase(own.begin() + std::ptrdiff_t(seen[size_t(type)]));
      } else {
        ++seen[size_t(type)];
        order.push_back(type);
      }
    }
    step_ = order.size() < model_.order.size();
    model_.order = order;
  }

  void ActOnFilesAndHistory(int what, Draws& draw) {
    const std::string_view name = kNames[what];
    if (name == "convert") {
      const int type = AnyType(draw, [](const TypeRecord& r) { return r.kind < 2; });
      if (type < 0) return;
      INode* node = model_.types[size_t(type)].node;
      const WStr path = (folder_ / ("made" + std::to_string(draw.Int(0, 3)) + ".Vorn")).wstring();
      bool written = false;
      step_ = ConvertType(s_.D(), type, path, written);
      ASSERT_TRUE(step_ && written);
      TypeRecord& r = model_.types[size_t(type)];
      const WStr shown = r.name;  // conversion leaves it
      TakeData(size_t(type));
      EXPECT_EQ(r.samples, ReadMoksetInfo(path).samples);
      r.kind = 2, r.node = nullptr, r.file = path, r.material = node->GetMtl(), r.name = shown;
    } else if (name == "load") {
      const int type = AnyType(draw, InFile);
      if (type < 0) return;
      const WStr& path = files_[size_t(draw.Int(0, 1))];
      step_ = PointTypeAtFile(s_.D(), type, path);
      ASSERT_TRUE(step_);
      TakeData(size_t(type));
      EXPECT_EQ(model_.types[size_t(type)].file, path);
    } else if (name == "export back") {
      const int type = AnyType(draw, InFile);
      if (type < 0) return;
      TypeRecord& r = model_.types[size_t(type)];
      step_ = ExportMoksetToObject(s_.D(), type);
      ASSERT_TRUE(step_);
      const TypeRecord now = Records(s_)[size_t(type)];
      EXPECT_EQ(now.node->GetMtl(), r.material);
      r.kind = 0, r.node = now.node, r.name = now.node->GetName();
      r.file.clear(), r.material = nullptr;
    } else if (name == "update all") {
      UpdateAllTypes(s_.D());
      for (size_t t = 0; t < model_.types.size(); ++t) TakeData(t);
      step_ = true;
    } else if (name == "node") {
      const int type = AnyType(draw, [](const TypeRecord& r) { return r.kind != 2; });
      if (type < 0) return;
      const TypeRecord& r = model_.types[size_t(type)];
      INode* picked = r.original && draw.Int(0, 1) ? r.original : r.node;
      step_ = true;
      // Of the two nodes of a kind 3 type the other one goes too, and with it what else needs it.
      std::set<INode*> gone = {picked};
      const auto goes = [&](const TypeRecord& t, int) {
        return gone.count(t.node) + gone.count(t.original) > 0 && t.kind != 2;
      };
      for (size_t round = 0; round < kMostTypes; ++round)
        for (const TypeRecord& t : model_.types)
          if (t.kind == 3 && goes(t, 0)) gone.insert({t.node, t.original});
      RemoveTypes(goes);
      s_.host.Services().DeleteNode(picked, true, false);
    } else if (name == "undo" || name == "redo") {
      Travel(name == "undo");
    } else if (name == "save and open") {
      SaveAndOpen();
    } else {
      Copy();
    }
  }

  // Other things stand where the old ones stood: each old one has one that follows it.
  void SaveAndOpen() {
    const std::vector<INode*> before = s_.host.GetScene().AllNodes();
    const auto place = std::find(before.begin(), before.end(), s_.object->OwnNode());
    const Snapshot tables = TakeSnapshot(s_.Block());
    const std::vector<std::byte> bytes = s_.SaveBytes();
    std::string error;
    ASSERT_TRUE(host::OpenSceneBytes(s_.host.Services(), bytes, "/s.glb", {}, error)) << error;
    const std::vector<INode*> after = s_.host.GetScene().AllNodes();
    ASSERT_EQ(after.size(), before.size());
    s_.node = after[size_t(place - before.begin())];
    s_.object = static_cast<Sowfield*>(s_.node->GetObjectRef());
    Snapshot opened = TakeSnapshot(s_.Block());
    for (const char* its : {"Geo_Nodes", "Proxy_Nodes", "Proxy_Mtls"}) opened[its] = tables.at(its);
    EXPECT_EQ(Differences(tables, opened), "");
    EXPECT_EQ(s_.SaveBytes(), bytes);
    EXPECT_EQ(s_.D().rng, Generator());
    EXPECT_EQ(s_.D().ListReady(), 1);

    std::map<INode*, INode*> nodes = {{nullptr, nullptr}};
    for (size_t i = 0; i < before.size(); ++i) nodes[before[i]] = after[i];
    std::map<Mtl*, Mtl*> materials = {{nullptr, nullptr}};
    std::set<Mtl*> different = {nullptr};
    const std::vector<TypeRecord> now = Records(s_);
    ASSERT_EQ(now.size(), model_.types.size());
    for (size_t t = 0; t < now.size(); ++t) {
      TypeRecord& r = model_.types[t];
      r.node = nodes.at(r.node), r.original = nodes.at(r.original);
      r.material = materials.emplace(r.material, now[t].material).first->second;
      different.insert(r.material);
    }
    EXPECT_EQ(different.size(), materials.size());
    for (auto* pins : {&pool_, &copies_}) {
      std::vector<Pin<INode>> left;
      for (const Pin<INode>& n : *pins)
        if (const auto found = nodes.find(n.get()); found != nodes.end())
          left.emplace_back(found->second);
      *pins = std::move(left);
    }
    s_.D().AddListener(&s_.log);
    s_.object->BeginEditParams(&s_.host.Services(), kEditModify, nullptr);
    FillPool();
    // How edits outside steps roll with them is the undo system's own test.
    s_.Undo().Clear();
    undo_.clear(), redo_.clear();
  }

  // The copy shares the sources from then on, and goes its own way.
  void Copy() {
    if (copies_.size() == kMostCopies) return;
    theHold.Begin();
    Sowfield* copy = s_.Copied();
    copies_.emplace_back(s_.AddNode(L"copy", copy));
    theHold.Accept(L"Clone");
    EXPECT_EQ(copy->distribution.rng, Generator()) << "it draws from the start";
    copy->UpdateMesh(0);  // the logo and a pyramid for each placement that is shown
    const auto shown = [&](int t) { return model_.shown == 0 || t == model_.shown - 1; };
    EXPECT_EQ(copy->mesh.getNumVerts(),
              786 + 4 * std::count_if(model_.order.begin(), model_.order.end(), shown));
    EXPECT_EQ(Differences(TakeSnapshot(*copy->pblock2), TakeSnapshot(s_.Block())), "");
    step_ = true;
  }
  std::string BreachOfCopies() {
    std::string breach;
    for (const Pin<INode>& n : copies_)
      if (breach.empty() && n->InScene())
        breach = FirstBreach(*static_cast<Sowfield*>(n->GetObjectRef())->pblock2);
    return breach.empty() ? "" : "a copy: " + breach;
  }

  void Travel(bool back) {
    std::vector<Model>&from = back ? undo_ : redo_, &to = back ? redo_ : undo_;
    EXPECT_EQ(back ? s_.Undo().Undo() : s_.Undo().Redo(), !from.empty());
    travelled_ = !from.empty();
    if (!travelled_) return;
    to.push_back(model_);
    model_ = from.back();
    from.pop_back();
  }

  fs::path folder_;
  PaintScene s_;
  std::vector<Pin<INode>> pool_, copies_;
  std::vector<WStr> files_;
  Model model_;
  std::vector<Model> undo_, redo_;
  bool step_ = false, travelled_ = false;
};

std::string RunAll(const fs::path& folder, const std::vector<Operation>& operations) {
  Machine machine(folder);
  for (size_t i = 0; i < operations.size(); ++i) {
    const std::string why = machine.Do(operations[i]);
    if (!why.empty() || testing::Test::HasFailure())
      return "step " + std::to_string(i) + ", " + kNames[operations[i].what] + ": " + why;
  }
  return machine.UndoAndRedoAll();
}

std::vector<Operation> Sequence(std::uint32_t seed, size_t length) {
  Draws draw(seed);
  std::vector<Operation> operations;
  const int all = std::accumulate(std::begin(kShares), std::end(kShares), 0);
  while (operations.size() < length) {
    int share = draw.Int(0, all - 1), what = 0;
    while (share >= kShares[what]) share -= kShares[what++];
    // Every other sequence keeps its undo steps from the first operation to the last.
    if (seed % 2 == 0 || kNames[what] != std::string_view("save and open"))
      operations.push_back({what, draw.Bits()});
  }
  return operations;
}

TEST(StateMachine, TheTablesAreThoseOfAPlainModelAfterEveryStep) {
  static_assert(std::size(kShares) == kOperations);
  const fs::path folder = fs::path(testing::TempDir()) / ("machine_" + std::to_string(getpid()));
  fs::create_directories(folder);
  const char* asked = std::getenv("SOWFIELD_STEPS");
  const size_t steps = asked ? size_t(std::atoll(asked)) : 20000, length = 400;
  for (std::uint32_t seed = 1; size_t(seed - 1) * length < steps; ++seed) {
    const std::string why = RunAll(folder, Sequence(seed, length));
    ASSERT_TRUE(why.empty() && !HasFailure()) << "seed " << seed << ", " << why;
  }
  fs::remove_all(folder);
}

}  // namespace
}  // namespace sowfield
