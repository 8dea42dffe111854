#include "host/core/hold.h"

#include <algorithm>
#include <unordered_set>

#include "host/core/session.h"

namespace {

/// A change that no step made, taken into a step that it rolls with. Where a step that can be
/// redone holds the table too, the change is taken into both as a pair, the later one turned round:
/// redoing that step wipes the change out for good, and the pair goes.
class FoldedRecord : public TableRecord {
 public:
  FoldedRecord(std::unique_ptr<TableRecord> inner, bool reversed, std::uint64_t pair)
      : inner_(std::move(inner)), reversed_(reversed), pair_(pair) {}
  TableKey Key() const override { return inner_->Key(); }
  int Rank() const override { return inner_->Rank(); }
  bool Touches() const override { return false; }
  void Undo() override { reversed_ ? inner_->Redo() : inner_->Undo(); }
  void Redo() override { reversed_ ? inner_->Undo() : inner_->Redo(); }
  bool Absorb(const TableRecord& next) override { return pair_ == 0 && inner_->Absorb(next); }
  std::unique_ptr<TableRecord> Copy() const override {
    return std::make_unique<FoldedRecord>(inner_->Copy(), reversed_, pair_);
  }
  void SendChange() const override { inner_->SendChange(); }
  size_t Bytes() const override { return sizeof(*this) + inner_->Bytes(); }
  bool Reversed() const { return reversed_; }
  std::uint64_t Pair() const { return pair_; }

 private:
  std::unique_ptr<TableRecord> inner_;
  bool reversed_;
  std::uint64_t pair_;  // 0 for one without a counterpart
};

class ReferenceRecord : public RestoreObj {
 public:
  ReferenceRecord(ReferenceTarget* owner, int i)
      : owner_(owner), index_(i), other_(owner->GetReference(i)) {}
  void Restore() override { Exchange(); }
  void Redo() override { Exchange(); }
  ReferenceTarget* Target() const override { return owner_.get(); }

 private:
  void Exchange() {
    Pin<ReferenceTarget> present(owner_->GetReference(index_));
    owner_->ReplaceReference(index_, other_.get());
    other_ = present;
  }
  Pin<ReferenceTarget> owner_;
  int index_;
  Pin<ReferenceTarget> other_;
};

}  // namespace

void RecordReference(ReferenceTarget* owner, int i) {
  if (theHold.Holding()) theHold->Put(std::make_unique<ReferenceRecord>(owner, i));
}

void Hold::Steps::Push(Step& step) {
  const size_t place = list_.size();
  if (place == list_.capacity()) list_.reserve(2 * place + 16);
  try {
    for (const auto& record : step.tables) {
      std::vector<size_t>& places = holding_[record->Key()];
      if (places.empty() || places.back() != place) places.push_back(place);
    }
  } catch (...) {
    Unlist(step, place);
    throw;
  }
  list_.push_back(std::move(step));
}

// A key goes with its last step, for that one's records keep the block alive.
void Hold::Steps::Unlist(const Step& step, size_t place) {
  for (const auto& record : step.tables) {
    const auto found = holding_.find(record->Key());
    if (found == holding_.end()) continue;
    std::vector<size_t>& places = found->second;
    if (!places.empty() && places.back() == place) places.pop_back();
    if (places.empty()) holding_.erase(found);
  }
}

void Hold::Steps::MoveTo(Steps& others) {
  others.Push(list_.back());
  list_.pop_back();
  Unlist(others.back(), list_.size());
}

void Hold::Steps::DropNewest() {
  const Step step = std::move(list_.back());
  list_.pop_back();
  Unlist(step, list_.size());
}

Hold::Step* Hold::Steps::Newest(const TableKey& key) {
  const auto found = holding_.find(key);
  return found == holding_.end() ? nullptr : &list_[found->second.back()];
}

Hold::~Hold() { Clear(); }

void Hold::Begin() {
  ++depth_;
  marks_.push_back({open_.elements.size(), open_.tables.size()});
}

void Hold::Accept(const WStr& name) {
  if (depth_ == 0) return;
  --depth_;
  marks_.pop_back();
  if (depth_ > 0) return;

  if (open_.Empty()) return;
  open_.name = name;
  undo_.Push(open_);
  open_ = {};
  DropFrom(redo_);
}

void Hold::Cancel() {
  if (depth_ == 0) return;
  --depth_;
  const Mark mark = marks_.back();
  marks_.pop_back();

  Step taken;
  const auto move = [](auto& from, size_t start, auto& to) {
    to.assign(std::make_move_iterator(from.begin() + long(start)),
              std::make_move_iterator(from.end()));
    from.resize(start);
  };
  move(open_.elements, mark.elements, taken.elements);
  move(open_.tables, mark.tables, taken.tables);
  Restore(taken, Way::Undo);
}

bool Hold::Undo() {
  if (depth_ > 0 || restoring_ != 0 || undo_.empty()) return false;
  undo_.MoveTo(redo_);
  Restore(redo_.back(), Way::Undo);
  return true;
}

bool Hold::Redo() {
  if (depth_ > 0 || restoring_ != 0 || redo_.empty()) return false;
  redo_.MoveTo(undo_);
  Restore(undo_.back(), Way::Redo);
  return true;
}

void Hold::Restore(Step& step, Way way) {
  const int outer = std::exchange(restoring_, way == Way::Undo ? 1 : 4);
  const auto each = [&](auto& records, auto&& act) {
    if (way == Way::Undo) {
      for (size_t i = records.size(); i-- > 0;) act(*records[i]);
    } else {
      for (auto& r : records) act(*r);
    }
  };

  // Who is told is settled before the messages: handlers may add to the step's records.
  std::vector<ReferenceTarget*> elements;
  std::unordered_set<const ReferenceTarget*> known;
  std::vector<Pin<ReferenceTarget>> alive;
  each(step.elements, [&](RestoreObj& r) {
    way == Way::Undo ? r.Restore() : r.Redo();
    ReferenceTarget* target = r.Target();
    if (!known.insert(target).second) return;
    elements.push_back(target);
    alive.emplace_back(target);
  });

  each(step.tables, [&](TableRecord& r) { way == Way::Undo ? r.Undo() : r.Redo(); });
  if (way == Way::Redo) DropWipedOut(step);
  std::vector<const TableRecord*> order;
  for (const auto& r : step.tables) {
    const auto same = [&](const TableRecord* o) { return o->Key() == r->Key(); };
    if (r->Touches() && std::none_of(order.begin(), order.end(), same)) order.push_back(r.get());
  }
  std::stable_sort(order.begin(), order.end(),
                   [](const auto* a, const auto* b) { return a->Rank() < b->Rank(); });
  each(step.elements, [](RestoreObj& r) { r.Settled(); });
  SendMessages(elements, order, way);
  restoring_ = outer;
}

void Hold::SendMessages(const std::vector<ReferenceTarget*>& elements,
                        std::vector<const TableRecord*> tables, Way way) {
  if (way == Way::Redo) std::reverse(tables.begin(), tables.end());
  std::vector<TableKey> keys;
  for (const TableRecord* t : tables) keys.push_back(t->Key());
  const std::vector<TableKey> outer = std::exchange(untold_, std::move(keys));
  for (ReferenceTarget* e : elements) e->NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
  for (size_t i = tables.size(); i-- > 0;) {
    untold_.pop_back();
    tables[i]->SendChange();
  }
  untold_ = outer;
}

bool Hold::WillTell(const TableKey& table) const {
  return std::find(untold_.begin(), untold_.end(), table) != untold_.end();
}

std::vector<WStr> Hold::UndoNames() const {
  std::vector<WStr> names;
  for (const Step& s : undo_) names.push_back(s.name);
  return names;
}

std::vector<WStr> Hold::RedoNames() const {
  std::vector<WStr> names;
  for (const Step& s : redo_) names.push_back(s.name);
  return names;
}

size_t Hold::NewestStepBytes() const {
  if (undo_.empty()) return 0;
  size_t bytes = sizeof(Step);
  for (const auto& r : undo_.back().tables) bytes += r->Bytes();
  for (const auto& r : undo_.back().elements) bytes += sizeof(*r) + r->ExtraBytes();
  return bytes;
}

void Hold::DropFrom(Steps& steps) {
  while (!steps.empty()) steps.DropNewest();
}

void Hold::Clear() {
  marks_.clear();
  depth_ = 0;
  open_ = {};
  DropFrom(redo_);
  DropFrom(undo_);
}

void Hold::Put(std::unique_ptr<RestoreObj> record) {
  if (Holding()) open_.elements.push_back(std::move(record));
}

void Hold::PutTable(std::unique_ptr<TableRecord> record) {
  if (!Holding()) {
    if (!TakeIntoOpen(record)) TakeIntoSteps(std::move(record));
    return;
  }
  // Merged with the newest record of the same table, unless that one lies before an inner Begin.
  const size_t floor = marks_.back().tables;
  for (size_t i = open_.tables.size(); i-- > floor;) {
    if (open_.tables[i]->Key() != record->Key()) continue;
    if (open_.tables[i]->Touches() == record->Touches() && open_.tables[i]->Absorb(*record)) return;
    break;
  }
  open_.tables.push_back(std::move(record));
}

// A handler's write while an inner step is cancelled: the innermost step that touched the table
// takes it, as that step's full copy would.
bool Hold::TakeIntoOpen(std::unique_ptr<TableRecord>& record) {
  const TableKey key = record->Key();
  size_t end = open_.tables.size();
  for (size_t k = marks_.size(); k-- > 0; end = marks_[k].tables) {
    const auto first = open_.tables.begin() + long(marks_[k].tables);
    const auto last = open_.tables.begin() + long(end);
    if (std::none_of(first, last, [&](const auto& r) { return r->Key() == key; })) continue;
    open_.tables.insert(last, std::make_unique<FoldedRecord>(std::move(record), false, 0));
    for (size_t inner = k + 1; inner < marks_.size(); ++inner) ++marks_[inner].tables;
    return true;
  }
  return false;
}

void Hold::TakeIntoSteps(std::unique_ptr<TableRecord> record) {
  const TableKey key = record->Key();
  Step *later = redo_.Newest(key), *earlier = undo_.Newest(key);
  std::uint64_t pair = 0;
  if (later) {
    pair = ++lastPair_;
    later->tables.insert(later->tables.begin(),
                         std::make_unique<FoldedRecord>(record->Copy(), true, pair));
  }
  if (!earlier) return;
  auto& tables = earlier->tables;
  const auto before =
      std::find_if(tables.rbegin(), tables.rend(), [&](const auto& r) { return r->Key() == key; });
  if (pair == 0 && (*before)->Absorb(*record)) return;
  tables.push_back(std::make_unique<FoldedRecord>(std::move(record), false, pair));
}

void Hold::DropWipedOut(Step& step) {
  std::vector<std::uint64_t> pairs;
  std::erase_if(step.tables, [&](const auto& r) {
    const auto* folded = dynamic_cast<const FoldedRecord*>(r.get());
    if (!folded || !folded->Reversed()) return false;
    pairs.push_back(folded->Pair());
    return true;
  });
  if (pairs.empty()) return;
  for (Step& s : undo_) {
    std::erase_if(s.tables, [&](const auto& r) {
      const auto* folded = dynamic_cast<const FoldedRecord*>(r.get());
      return folded && std::find(pairs.begin(), pairs.end(), folded->Pair()) != pairs.end();
    });
  }
}

bool Hold::DropIfMadeHere(const ReferenceTarget* target, bool (*made)(const RestoreObj&)) {
  if (!Holding()) return false;
  const auto start = open_.elements.begin() + long(marks_.back().elements);
  const bool found = std::any_of(start, open_.elements.end(),
                                 [&](const auto& r) { return r->Target() == target && made(*r); });
  if (!found) return false;
  const auto gone = std::remove_if(start, open_.elements.end(),
                                   [&](const auto& r) { return r->Target() == target; });
  open_.elements.erase(gone, open_.elements.end());
  return true;
}

Hold* HoldAccess::operator->() const { return &host::CoreSession::InForce().hold; }
void HoldAccess::Begin() const { (*this)->Begin(); }
void HoldAccess::Accept(const WStr& name) const { (*this)->Accept(name); }
void HoldAccess::Cancel() const { (*this)->Cancel(); }
bool HoldAccess::Holding() const { return (*this)->Holding(); }
int HoldAccess::RestoreOrRedoing() const { return (*this)->RestoreOrRedoing(); }
