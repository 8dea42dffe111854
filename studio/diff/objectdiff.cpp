#include "studio/diff/objectdiff.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <nlohmann/json.hpp>

#include "host/core/control.h"
#include "host/math/samebits.h"
#include "host/scenefile/scenevalues.h"
#include "sowfield/model/placement.h"
#include "studio/diff/align.h"
#include "studio/job/jsonout.h"

namespace studio {
namespace {

using host::BitsOf;
using host::SameBits;
using sowfield::IndexForm;
using sowfield::ParamEntry;
using sowfield::PlacementEvaluator;
using sowfield::TypeRef;

std::string PointText(const Point3& p) {
  return "[" + FloatText(p.x) + "," + FloatText(p.y) + "," + FloatText(p.z) + "]";
}

std::string MatrixText(const Matrix3& m) {
  std::string text = "[";
  for (int row = 0; row < 4; ++row) text += (row ? "," : "") + PointText(m.GetRow(row));
  return text + "]";
}

std::string ValueText(int value, const References&) { return std::to_string(value); }
std::string ValueText(float value, const References&) { return FloatText(value); }
std::string ValueText(const Point3& value, const References&) { return PointText(value); }
std::string ValueText(const WStr& value, const References&) {
  return JsonOut().Text(ToUtf8(value)).Str();
}
template <class T>
std::string ValueText(T* value, const References& refs) {
  return refs.text(TargetOf(value));
}

/// The object types of one side, and what tells where their entries stand in the tables.
struct Types {
  explicit Types(const IParamBlock2& block) {
    for (const WStr& n : block.Strings(sowfield::Geo_Names)) names.push_back(ToUtf8(n));
    for (const TypeRef& ref : sowfield::TypeWalk(block)) refs.push_back(ref);
    firstSample.push_back(0);
    for (const int n : block.Ints(sowfield::Geo_PointCount))
      firstSample.push_back(firstSample.back() + size_t(n));
  }
  std::vector<std::string> names;
  std::vector<TypeRef> refs;
  std::vector<size_t> firstSample;
};

class Comparison {
 public:
  Comparison(const std::string& name, const BlockAt& a, const BlockAt& b, const References& refs)
      : a_(a), b_(b), refs_(refs), typesA_(a.block), typesB_(b.block) {
    change_.name = name;
  }

  ObjectChange Run() {
    PairTypes();
    for (const ParamEntry& entry : sowfield::AllParams())
      if (entry.form != IndexForm::Placement) CompareParam(entry);
    ComparePlacements();
    return std::move(change_);
  }

 private:
  /// Entries that belong together: `countA` from `a` on, `countB` from `b` on.
  struct Stretch {
    std::string label;
    size_t a, countA, b, countB;
  };

  void PairTypes() {
    std::map<std::string, std::vector<int>> byName;
    for (size_t t = typesB_.names.size(); t-- > 0;) byName[typesB_.names[t]].push_back(int(t));
    inA_.assign(typesB_.names.size(), -1);
    for (size_t t = 0; t < typesA_.names.size(); ++t) {
      const std::string& name = typesA_.names[t];
      auto& same = byName[name];
      if (same.empty()) {
        change_.typesOnlyA.push_back(name);
        continue;
      }
      const int other = same.back();
      same.pop_back();
      inA_[size_t(other)] = int(t);
      types_.emplace_back(int(t), other);
      if (other != int(t))
        change_.typesMoved.push_back({name, std::to_string(t), std::to_string(other)});
    }
    for (size_t t = 0; t < inA_.size(); ++t)
      if (inA_[t] < 0) change_.typesOnlyB.push_back(typesB_.names[t]);
  }

  void CompareParam(const ParamEntry& entry) {
    switch (entry.type) {
      case ParamType::Int:
      case ParamType::Bool:
        return Compare(entry, a_.block.Ints(entry.id), b_.block.Ints(entry.id));
      case ParamType::Float:
        return Compare(entry, a_.block.Floats(entry.id), b_.block.Floats(entry.id));
      case ParamType::Point3:
        return Compare(entry, a_.block.Points(entry.id), b_.block.Points(entry.id));
      case ParamType::String:
      case ParamType::Filename:
        return Compare(entry, a_.block.Strings(entry.id), b_.block.Strings(entry.id));
      case ParamType::Node:
        return Compare(entry, a_.block.Nodes(entry.id), b_.block.Nodes(entry.id));
      case ParamType::Mtl:
        return Compare(entry, a_.block.Mtls(entry.id), b_.block.Mtls(entry.id));
    }
  }

  template <class T>
  void Compare(const ParamEntry& entry, std::span<const T> a, std::span<const T> b) {
    TableChange table{ToUtf8(entry.name), a.size(), b.size(), {}};
    for (const Stretch& run : RunsOf(entry, a.size(), b.size())) {
      const size_t common = std::min(run.countA, run.countB);
      for (size_t i = 0; i < common; ++i) {
        const T &x = a[run.a + i], &y = b[run.b + i];
        const std::string place = run.label.empty() ? std::to_string(i)
                                  : run.countA > 1  ? run.label + " #" + std::to_string(i)
                                                    : run.label;
        if (!Same(x, y, table.name))
          table.entries.push_back({place, ValueText(x, refs_), ValueText(y, refs_)});
      }
      if (run.countA != run.countB)
        table.entries.push_back({run.label.empty() ? "entries" : "entries of " + run.label,
                                 std::to_string(run.countA), std::to_string(run.countB)});
    }
    if (!entry.IsTable()) {
      for (const Change& c : table.entries) change_.params.push_back({table.name, c.a, c.b});
      return CompareControls(entry, table.name);
    }
    if (!table.entries.empty()) change_.tables.push_back(std::move(table));
  }

  template <class T>
  bool Same(const T& x, const T& y, const std::string& name) const {
    if constexpr (std::is_pointer_v<T>) {
      return refs_.same(TargetOf(x), TargetOf(y), name + " of object \"" + change_.name + "\"");
    } else if constexpr (std::is_same_v<T, WStr>) {
      return x == y;
    } else {
      return SameBits(x, y);
    }
  }

  void CompareControls(const ParamEntry& entry, const std::string& name) {
    FloatControl *x = a_.block.GetController(entry.id), *y = b_.block.GetController(entry.id);
    if (!refs_.same(x, y, name + " of object \"" + change_.name + "\""))
      change_.params.push_back({name + " controller", refs_.text(x), refs_.text(y)});
  }

  std::vector<Stretch> RunsOf(const ParamEntry& entry, size_t countA, size_t countB) const {
    std::vector<Stretch> runs;
    const auto add = [&](const std::string& label, size_t a, size_t b, size_t n) {
      runs.push_back({label, a, n, b, n});
    };
    switch (entry.form) {
      case IndexForm::Slot:
        add("all", 0, 0, 1);
        break;
      case IndexForm::RandomBlock:
        add("all", 0, 0, sowfield::kBlockSize);
        break;
      case IndexForm::Scalar:
      case IndexForm::Free:
      case IndexForm::Variation:
      case IndexForm::Placement:
        return {{"", 0, countA, 0, countB}};
      default:
        break;
    }
    for (const auto& [t, u] : types_) AddType(runs, entry.form, size_t(t), size_t(u));
    // An object that was never set up has no entries at all.
    for (Stretch& r : runs) {
      r.countA = std::min(r.countA, countA - std::min(r.a, countA));
      r.countB = std::min(r.countB, countB - std::min(r.b, countB));
    }
    return runs;
  }

  void AddType(std::vector<Stretch>& runs, IndexForm form, size_t t, size_t u) const {
    const std::string& name = typesA_.names[t];
    const TypeRef &x = typesA_.refs[t], &y = typesB_.refs[u];
    const auto add = [&](int a, int b) { runs.push_back({name, size_t(a), 1, size_t(b), 1}); };
    switch (form) {
      case IndexForm::Type:
        return add(x.type, y.type);
      case IndexForm::Slot:
        return add(x.type + 1, y.type + 1);
      case IndexForm::NodeType:
        if (x.HasNode() && y.HasNode()) add(x.node, y.node);
        return;
      case IndexForm::FileType:
        if (!x.HasNode() && !y.HasNode()) add(x.file, y.file);
        return;
      case IndexForm::RendererProxyType:
        if (x.HasOriginal() && y.HasOriginal()) add(x.original, y.original);
        return;
      case IndexForm::RandomBlock: {
        constexpr size_t n = sowfield::kBlockSize;
        runs.push_back({name, (t + 1) * n, n, (u + 1) * n, n});
        return;
      }
      case IndexForm::Samples: {
        const auto &a = typesA_.firstSample, &b = typesB_.firstSample;
        runs.push_back({name, a[t], a[t + 1] - a[t], b[u], b[u + 1] - b[u]});
        return;
      }
      default:
        return;
    }
  }

  // A placement's numbers, with its type as side a counts types; types of b alone come behind.
  struct Numbers {
    Point3 position, angles;
    int type, row, animRow;
  };
  Numbers NumbersOf(const IParamBlock2& block, size_t p, bool isA) const {
    using namespace sowfield;
    const int type = block.Ints(Ins_Type)[p];
    int known = type;
    if (!isA) known = inA_[size_t(type)] >= 0 ? inA_[size_t(type)] : -1 - type;
    return {block.Points(Ins_Pos)[p], block.Points(Ins_Normal)[p], known, block.Ints(Ins_Rand)[p],
            block.Ints(Ins_AnimRand)[p]};
  }

  template <class T>
  static std::uint64_t KeyOf(const T& numbers) {
    std::uint64_t key = 0x9E3779B97F4A7C15u;
    for (const std::uint32_t word : BitsOf(numbers)) {
      key = (key ^ word) * 0xD6E8FEB86659FD93u;
      key ^= key >> 32;
    }
    return key;
  }

  // Keys may fall together: what is paired is compared whole.
  void ComparePlacements() {
    AlignKeys all, position;
    const auto fill = [&](const IParamBlock2& block, bool isA) {
      for (size_t p = 0; p < size_t(block.Count(sowfield::Ins_Pos)); ++p) {
        const Numbers n = NumbersOf(block, p, isA);
        (isA ? all.a : all.b).push_back(KeyOf(n));
        (isA ? position.a : position.b).push_back(KeyOf(n.position));
      }
    };
    fill(a_.block, true);
    fill(b_.block, false);
    change_.placementsA = all.a.size();
    change_.placementsB = all.b.size();
    const AlignKeys levels[] = {std::move(all), std::move(position)};
    const PlacementEvaluator evalA(a_.block, a_.time), evalB(b_.block, b_.time);
    for (const AlignedPair& pair : Align(levels)) {
      if (pair.b < 0) {
        change_.onlyA.push_back(pair.a);
      } else if (pair.a < 0) {
        change_.onlyB.push_back(pair.b);
      } else if (const unsigned parts = PartsOf(evalA, evalB, size_t(pair.a), size_t(pair.b))) {
        change_.changed.push_back({pair.a, pair.b, parts});
      }
    }
  }

  unsigned PartsOf(const PlacementEvaluator& evalA, const PlacementEvaluator& evalB, size_t p,
                   size_t q) const {
    const Numbers a = NumbersOf(a_.block, p, true), b = NumbersOf(b_.block, q, false);
    const auto formA = evalA.Form(evalA.Type(p), a.row), formB = evalB.Form(evalB.Type(q), b.row);
    return (SameBits(a.position, b.position) ? 0u : kPosition) |
           (SameBits(a.angles, b.angles) ? 0u : kOrientation) |
           (SameBits(formA.scale, formB.scale) ? 0u : kScale) | (a.type == b.type ? 0u : kType) |
           (a.row == b.row && a.animRow == b.animRow ? 0u : kRandom) |
           (SameBits(evalA.Matrix(p), evalB.Matrix(q)) ? 0u : kMatrix);
  }

  const BlockAt &a_, &b_;
  const References& refs_;
  Types typesA_, typesB_;
  std::vector<std::pair<int, int>> types_;  // that belong together, a's and b's number
  std::vector<int> inA_;                    // of each type of b, -1 for none
  ObjectChange change_;
};

}  // namespace

std::string FloatText(float value) {
  return std::isfinite(value) ? JsonOut().Float(value).Str() : host::FloatValue(value).dump();
}

ObjectChange CompareObjects(const std::string& name, const BlockAt& a, const BlockAt& b,
                            const References& refs) {
  return Comparison(name, a, b, refs).Run();
}

struct PlacementValues::Both {
  PlacementEvaluator a, b;
  const IParamBlock2 &blockA, &blockB;
};

PlacementValues::PlacementValues(const BlockAt& a, const BlockAt& b)
    : both_(new Both{{a.block, a.time}, {b.block, b.time}, a.block, b.block}) {}

PlacementValues::~PlacementValues() = default;

std::vector<Change> PlacementValues::Of(const PlacementChange& change) const {
  const auto values = [](const PlacementEvaluator& e, const IParamBlock2& block, int place) {
    const auto p = size_t(place);
    const WStr& type = block.Strings(sowfield::Geo_Names)[size_t(e.Type(p))];
    return std::array{PointText(e.Position(p)),
                      PointText(e.Angles()[p]),
                      PointText(e.Form(e.Type(p), e.Rows()[p]).scale),
                      JsonOut().Text(ToUtf8(type)).Str(),
                      "[" + std::to_string(e.Rows()[p]) + "," +
                          std::to_string(block.Ints(sowfield::Ins_AnimRand)[p]) + "]",
                      MatrixText(e.Matrix(p))};
  };
  const auto a = values(both_->a, both_->blockA, change.a);
  const auto b = values(both_->b, both_->blockB, change.b);
  std::vector<Change> changes;
  for (size_t i = 0; i < a.size(); ++i)
    if (change.parts & (1u << i)) changes.push_back({kPlacementParts[i], a[i], b[i]});
  return changes;
}

}  // namespace studio
