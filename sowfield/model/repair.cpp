#include "sowfield/model/repair.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "sowfield/model/displaymode.h"
#include "sowfield/model/distribution.h"
#include "sowfield/model/invariants.h"

namespace sowfield {
namespace {

// Each type needs thousands of bytes, and damage can tell of no end of them.
constexpr size_t kMostTypes = 10'000;

std::string Name(Param id) { return ToUtf8(FindParam(id)->name); }
std::string Text(size_t n) { return std::to_string(n); }
std::string Counted(size_t n, const char* what) {
  return Text(n) + " " + what + (n == 1 ? "" : "s");
}

class Repair {
 public:
  explicit Repair(IParamBlock2& block) : block_(block) {}

  std::vector<std::string> Run() {
    if (FirstBreachAsStored(block_).empty()) return {};
    RepairKinds();
    FindSources();
    RepairSamples();
    RemoveTypes();
    const bool old = LacksNormalRows();
    for (const ParamEntry& e : AllParams()) {
      const bool normalRow = e.id == Tr_Normal_Min || e.id == Tr_Normal_Max || e.id == Rnd_Normal;
      if (!(normalRow && old)) Fit(e);
    }
    RepairPlacements();
    for (const ParamEntry& e : AllParams())
      if (e.role == Role::Kept) RepairValues(e);
    return std::move(lines_);
  }

  std::vector<std::string> RunSettings() {
    if (FirstBreachAsStored(block_).empty())
      for (const ParamEntry& e : AllParams())
        if (e.role == Role::Editable) RepairValues(e);
    return std::move(lines_);
  }

 private:
  void Tell(const std::string& line) { lines_.push_back(line); }
  size_t Count(Param id) const { return size_t(block_.Count(id)); }
  size_t Types() const { return kinds_.size(); }
  size_t NumKinds(int kind) const { return size_t(std::count(kinds_.begin(), kinds_.end(), kind)); }
  size_t NodeTypes() const { return Types() - NumKinds(2); }

  template <class T>
  void Replace(Param id, const std::vector<T>& values) {
    block_.Delete(id, 0, block_.Count(id));
    block_.Append(id, int(values.size()), values.data());
  }

  // Each type has a node, or a file where its kind is 2. Kinds that are lost or make no sense are
  // guessed from the sources that are left over: first the nodes, then the files.
  void RepairKinds() {
    const std::span<const int> stored = block_.Ints(Geo_Kind);
    kinds_.assign(stored.begin(), stored.end());
    const auto sound = [](int kind) { return kind >= 0 && kind < kTypeKinds; };
    size_t nodes = 0, files = 0, guessed = 0;
    for (const int kind : kinds_)
      if (sound(kind)) ++(kind == kFromFile ? files : nodes);
    const auto guess = [&] {
      ++guessed;
      const bool file = nodes >= Count(Geo_Nodes) && files < Count(Proxy_Files);
      ++(file ? files : nodes);
      return file ? 2 : 0;
    };
    for (int& kind : kinds_)
      if (!sound(kind)) kind = guess();
    while (nodes < Count(Geo_Nodes) || files < Count(Proxy_Files)) kinds_.push_back(guess());
    if (guessed == 0) return;
    Tell(Name(Geo_Kind) + ": " + Counted(guessed, "kind") + " of " + Text(Types()) +
         " guessed from the sources");
    Replace(Geo_Kind, kinds_);
  }

  // Finds the types that have no source. The original of a kind 3 type can be done without.
  void FindSources() {
    const std::span<INode* const> nodes = block_.Nodes(Geo_Nodes);
    const std::span<INode* const> originals = block_.Nodes(Proxy_Nodes);
    std::vector<unsigned char> keep(originals.size());
    size_t plain = 0;
    keeps_.assign(Types(), 1);
    std::vector<int> kinds = kinds_;
    for (const TypeRef& t : TypeWalk(block_)) {
      const auto type = size_t(t.type);
      keeps_[type] = type < kMostTypes && (t.HasNode() ? size_t(t.node) < nodes.size() &&
                                                             CanBeSource(nodes[size_t(t.node)])
                                                       : size_t(t.file) < Count(Proxy_Files));
      if (!t.HasOriginal()) continue;
      const auto original = size_t(t.original);
      if (original < originals.size() && originals[original]) {
        keep[original] = 1;
      } else {
        kinds[type] = 0;
        ++plain;
      }
    }
    if (plain > 0) {
      Tell(Name(Geo_Kind) + ": " + Counted(plain, "type") + " without entry in " +
           Name(Proxy_Nodes) + " got kind 0");
      kinds_ = kinds;
      Replace(Geo_Kind, kinds_);
    }
    const auto spare = std::count(keep.begin(), keep.end(), 0);
    if (spare == 0) return;
    Tell(Name(Proxy_Nodes) + ": " + Counted(size_t(spare), "entry that no type uses") + " went");
    block_.KeepEntries(Proxy_Nodes, keep);
  }

  // A scene from before the N rows gets them when it is open.
  bool LacksNormalRows() const {
    return Count(Tr_Normal_Min) + Count(Tr_Normal_Max) + Count(Rnd_Normal) == 0 && SetUp();
  }
  bool SetUp() const {
    const auto hasRows = [&](Param id) { return Count(id) > 0; };
    return Types() > 0 || Count(Ins_Pos) > 0 ||
           std::any_of(kSlotTables.begin(), kSlotTables.end(), hasRows) ||
           std::any_of(kRandomTables.begin(), kRandomTables.end(), hasRows);
  }

  // Runs are as long as told and end where Geo_Points ends. Behind a negative number no run can be
  // found.
  void RepairSamples() {
    const std::span<const int> stored = block_.Ints(Geo_PointCount);
    std::vector<int>& counts = samples_;
    counts.assign(Types(), 0);
    size_t left = Count(Geo_Points);
    const size_t told = std::min(stored.size(), Types());
    for (size_t t = 0; t < told && stored[t] >= 0; ++t) {
      counts[t] = int(std::min(size_t(stored[t]), left));
      left -= size_t(counts[t]);
    }
    size_t changed = 0;
    for (size_t i = 0; i < told; ++i) changed += counts[i] != stored[i];
    if (changed > 0) {
      Tell(Name(Geo_PointCount) + ": " + Counted(changed, "type") + " of " + Text(Types()) +
           " got fewer samples: " + Name(Geo_Points) + " has " + Text(Count(Geo_Points)));
      Replace(Geo_PointCount, std::vector<int>(counts.begin(), counts.begin() + long(told)));
    }
  }

  size_t Expected(const ParamEntry& e) const {
    const size_t slots = SetUp() ? Types() + 1 : 0;
    switch (e.form) {
      case IndexForm::Scalar:
        return 1;
      case IndexForm::Type:
        return Types();
      case IndexForm::NodeType:
        return NodeTypes();
      case IndexForm::FileType:
        return NumKinds(2);
      case IndexForm::RendererProxyType:
        return NumKinds(3);
      case IndexForm::Slot:
        return slots;
      case IndexForm::RandomBlock:
        return slots * size_t(kBlockSize);
      case IndexForm::Placement:
        return Count(Ins_Pos);
      case IndexForm::Samples:
        return size_t(std::accumulate(samples_.begin(), samples_.end(), 0LL));
      case IndexForm::Variation:
        return FewestShifts();
      case IndexForm::Free:
        break;
    }
    return e.id == Rnd_Anim && NeedsAnimTable() ? size_t(kAnimTableSize) : Count(e.id);
  }

  // Entry k of all four belongs to variant k; what is missing is drawn when it is needed.
  size_t FewestShifts() const {
    size_t fewest = Count(kShiftTables[0]);
    for (const Param id : kShiftTables) fewest = std::min(fewest, Count(id));
    return fewest;
  }

  bool NeedsAnimTable() const {
    const std::span<const int> on = block_.Ints(Tr_AnimOn);
    return Count(Rnd_Anim) != 0 || std::any_of(on.begin(), on.end(), [](int v) { return v != 0; });
  }

  // Cuts a table, or fills it with defaults.
  void Fit(const ParamEntry& e) {
    const size_t found = Count(e.id), expected = Expected(e);
    if (found == expected) return;
    const std::string numbers =
        Name(e.id) + " has " + Text(found) + " entries, expected " + Text(expected) + ": ";
    if (found > expected) {
      Tell(numbers + Text(found - expected) + " went");
      block_.Delete(e.id, int(expected), int(found - expected));
      return;
    }
    const size_t missing = expected - found;
    Tell(numbers + Text(missing) + (missing == 1 ? " is" : " are") + " new");
    switch (e.type) {
      case ParamType::Int:
      case ParamType::Bool:
        return Fill<int>(e, found, missing);
      case ParamType::Float:
        return Fill<float>(e, found, missing);
      case ParamType::Point3:
        return Append(e.id, std::vector<Point3>(missing, Point3(0, 0, 0)));
      case ParamType::String:
      case ParamType::Filename:
        return Append(e.id, std::vector<WStr>(missing));
      case ParamType::Node:
        return Append(e.id, std::vector<INode*>(missing, nullptr));
      case ParamType::Mtl:
        return Append(e.id, std::vector<Mtl*>(missing, nullptr));
    }
  }

  template <class T>
  void Append(Param id, const std::vector<T>& values) {
    block_.Append(id, int(values.size()), values.data());
  }

  template <class T>
  void Fill(const ParamEntry& e, size_t found, size_t missing) {
    std::vector<T> values(missing, T(e.newEntry));
    if (e.form == IndexForm::Slot && found == 0) values[0] = T(e.initial);
    Append(e.id, values);
  }

  void RepairPlacements() {
    const std::span<const Point3> positions = block_.Points(Ins_Pos);
    const std::span<const int> types = block_.Ints(Ins_Type);
    std::vector<unsigned char> keep(positions.size());
    size_t placeless = 0, typeless = 0;
    for (size_t p = 0; p < positions.size(); ++p) {
      const bool placed = IsFinite(positions[p]);
      const bool typed = types[p] >= 0 && size_t(types[p]) < Types();
      keep[p] = placed && typed;
      placeless += !placed;
      typeless += placed && !typed;
    }
    if (placeless > 0)
      Tell(Name(Ins_Pos) + ": " + Counted(placeless, "placement") + " of " + Text(keep.size()) +
           " without a finite position went");
    if (typeless > 0)
      Tell(Name(Ins_Type) + ": " + Counted(typeless, "placement") + " of " + Text(keep.size()) +
           " with a type that isn't there went");
    if (placeless + typeless == 0) return;
    for (const Param id : kPlacementTables) block_.KeepEntries(id, keep);
  }

  // Takes the rows of types without a source out of the tables, as far as those go.
  void RemoveTypes() {
    const auto gone = size_t(std::count(keeps_.begin(), keeps_.end(), 0));
    if (gone == 0) return;
    Tell(Name(Geo_Kind) + ": " + Counted(gone, "type") + " of " + Text(Types()) +
         " without a source went");
    for (const ParamEntry& e : AllParams()) {
      if (!e.IsTable()) continue;
      std::vector<unsigned char> keep = Kept(e);
      if (keep.empty()) continue;
      keep.resize(Count(e.id), 1);
      block_.KeepEntries(e.id, keep);
    }
    std::vector<int> newType(Types()), kinds, samples, types;
    for (size_t t = 0; t < Types(); ++t) {
      newType[t] = keeps_[t] ? int(kinds.size()) : -1;
      if (!keeps_[t]) continue;
      kinds.push_back(kinds_[t]);
      samples.push_back(samples_[t]);
    }
    for (const int t : block_.Ints(Ins_Type))
      types.push_back(t >= 0 && size_t(t) < Types() ? newType[size_t(t)] : -1);
    Replace(Ins_Type, types);
    kinds_ = std::move(kinds), samples_ = std::move(samples);
  }

  // Which entries of a table belong to the types that stay; empty for a table of other things.
  std::vector<unsigned char> Kept(const ParamEntry& e) const {
    std::vector<unsigned char> keep;
    const auto row = size_t(e.form == IndexForm::RandomBlock ? kBlockSize : 1);
    if (e.form == IndexForm::Slot || e.form == IndexForm::RandomBlock) keep.assign(row, 1);
    const size_t most = Count(e.id);
    for (size_t t = 0; t < Types() && keep.size() < most; ++t) {
      size_t entries = 0;
      switch (e.form) {
        case IndexForm::Type:
        case IndexForm::Slot:
        case IndexForm::RandomBlock:
          entries = row;
          break;
        case IndexForm::NodeType:
          entries = kinds_[t] != 2;
          break;
        case IndexForm::FileType:
          entries = kinds_[t] == 2;
          break;
        case IndexForm::RendererProxyType:
          entries = kinds_[t] == 3;
          break;
        case IndexForm::Samples:
          entries = size_t(samples_[t]);
          break;
        default:
          return {};
      }
      keep.insert(keep.end(), entries, keeps_[t]);
    }
    return keep;
  }

  // Display_Mode is answered by a refresh at once: it may not be a heavy one, which asks more of
  // the scene than a half opened one has.
  static double Instead(const ParamEntry& e, double value, const Range& range, int index) {
    const bool amount = e.unit[0] != 0 && std::isfinite(value);
    if (amount) return std::clamp(value, range.low, range.high);
    return e.id == Display_Mode ? double(kShowDot) : e.Default(index);
  }

  template <class T>
  void MendTable(const ParamEntry& e, std::span<const T> values, const Range& range, auto mend) {
    std::vector<T> mended(values.begin(), values.end());
    size_t changed = 0;
    for (size_t i = 0; i < mended.size(); ++i) changed += mend(mended[i], int(i));
    if (changed == 0) return;
    Tell(Name(e.id) + ": " + Text(changed) + " of " + Text(mended.size()) +
         " entries were out of range, allowed is " + RangeText(range));
    Replace(e.id, mended);
  }

  template <class T>
  void MendNumbers(const ParamEntry& e, std::span<const T> values, const Range& range) {
    if (e.IsTable())
      return MendTable(e, values, range, [&](T& v, int i) {
        const bool wrong = !range.Contains(v);
        if (wrong) v = T(Instead(e, v, range, i));
        return wrong;
      });
    if (values.empty() || range.Contains(values[0])) return;
    const T was = values[0], is = T(Instead(e, was, range, 0));
    Tell(Name(e.id) + " was " + NumberText(was) + ", allowed is " + RangeText(range) + ": it is " +
         NumberText(is) + " now");
    block_.SetValue(e.id, 0, is);
  }

  void RepairValues(const ParamEntry& e) {
    const Range range = HardRangeIn(block_, e);
    if (range == Range{} || block_.GetController(e.id)) return;
    MendNumbers(e, block_.Ints(e.id), range);
    MendNumbers(e, block_.Floats(e.id), range);
    MendTable(e, block_.Points(e.id), range, [&](Point3& p, int) {
      const bool sound = range.Contains(p.x) && range.Contains(p.y) && range.Contains(p.z);
      if (!sound) p = {0, 0, 0};
      return !sound;
    });
  }

  IParamBlock2& block_;
  std::vector<std::string> lines_;
  std::vector<int> kinds_;
  std::vector<unsigned char> keeps_;  // by type, until those without a source are gone
  std::vector<int> samples_;          // of each type
};

}  // namespace

std::vector<std::string> RepairTables(IParamBlock2& block) { return Repair(block).Run(); }

std::vector<std::string> RepairSettings(IParamBlock2& block) { return Repair(block).RunSettings(); }

}  // namespace sowfield
