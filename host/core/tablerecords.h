#pragma once

#include <algorithm>
#include <memory>
#include <type_traits>
#include <vector>

#include "host/core/paramblock.h"

/// The raw edits of a table: they move data and keep references and observers in step, and do
/// nothing else. Edits, undo and redo all come down to these four.
struct TableAccess {
  template <class T>
  static std::vector<T>& Values(IParamBlock2& block, ParamID id);
  template <class T>
  static void Insert(IParamBlock2& block, ParamID id, size_t start, std::span<const T> values);
  template <class T>
  static std::vector<T> Remove(IParamBlock2& block, ParamID id, size_t start, size_t count);
  template <class T>
  static T Exchange(IParamBlock2& block, ParamID id, size_t index, const T& value);
  /// Takes out the entries at the given places (ascending) in one pass, and puts them back.
  template <class T>
  static std::vector<T> TakeOut(IParamBlock2& block, ParamID id, const std::vector<size_t>& places);
  template <class T>
  static void PutBack(IParamBlock2& block, ParamID id, const std::vector<size_t>& places,
                      const std::vector<T>& values);
  /// Lets go of entries that a removal gave, once whoever records them has pinned them.
  template <class T>
  static void Release(IParamBlock2& block, const std::vector<T>& values) {
    if constexpr (std::is_pointer_v<T>)
      for (T v : values) block.LetGo(TargetOf(v));
  }
  static void ExchangeControl(IParamBlock2& block, ParamID id, FloatControl* control) {
    FloatControl* old = std::exchange(block.Find(id)->control, control);
    block.ReferTo(control);
    block.LetGo(old);
  }
  static FloatControl* ControlOf(IParamBlock2& block, ParamID id) {
    return block.GetController(id);
  }
  static void SendRestored(IParamBlock2& block, ParamID id) { block.SendRestored(id); }
  static int Rank(const IParamBlock2& block, ParamID id) { return block.Find(id)->def->undoRank; }
};

template <class T>
void TellAdded(PointTableObserver* observer, std::span<const T> values) {
  if constexpr (std::is_same_v<T, Point3>)
    if (observer && !values.empty()) observer->PointsAdded(values);
}

template <class T>
void TellRemoved(PointTableObserver* observer, std::span<const T> values) {
  if constexpr (std::is_same_v<T, Point3>)
    if (observer && !values.empty()) observer->PointsRemoved(values);
}

template <class T>
std::vector<T>& TableAccess::Values(IParamBlock2& block, ParamID id) {
  return std::get<std::vector<T>>(block.Find(id)->values);
}

template <class T>
void TableAccess::Insert(IParamBlock2& block, ParamID id, size_t start, std::span<const T> values) {
  auto& table = Values<T>(block, id);
  table.insert(table.begin() + long(start), values.begin(), values.end());
  if constexpr (std::is_pointer_v<T>)
    for (T v : values) block.ReferTo(TargetOf(v));
  TellAdded<T>(block.Find(id)->observer, values);
}

template <class T>
std::vector<T> TableAccess::Remove(IParamBlock2& block, ParamID id, size_t start, size_t count) {
  auto& table = Values<T>(block, id);
  const auto first = table.begin() + long(start), last = first + long(count);
  std::vector<T> removed(std::make_move_iterator(first), std::make_move_iterator(last));
  table.erase(first, last);
  TellRemoved<T>(block.Find(id)->observer, removed);
  return removed;
}

template <class T>
T TableAccess::Exchange(IParamBlock2& block, ParamID id, size_t index, const T& value) {
  T& entry = Values<T>(block, id)[index];
  T added = value;  // which may be the entry itself
  const T old = std::exchange(entry, std::move(added));
  if constexpr (std::is_pointer_v<T>) block.ReferTo(TargetOf(entry));
  TellRemoved<T>(block.Find(id)->observer, std::span<const T>(&old, 1));
  TellAdded<T>(block.Find(id)->observer, std::span<const T>(&entry, 1));
  return old;
}

template <class T>
std::vector<T> TableAccess::TakeOut(IParamBlock2& block, ParamID id,
                                    const std::vector<size_t>& places) {
  auto& table = Values<T>(block, id);
  std::vector<T> removed;
  if (places.empty()) return removed;
  removed.reserve(places.size());
  size_t to = places.front();
  for (size_t i = 0; i < places.size(); ++i) {
    removed.push_back(std::move(table[places[i]]));
    const size_t end = i + 1 < places.size() ? places[i + 1] : table.size();
    std::move(table.begin() + long(places[i]) + 1, table.begin() + long(end),
              table.begin() + long(to));
    to += end - places[i] - 1;
  }
  table.resize(to);
  TellRemoved<T>(block.Find(id)->observer, removed);
  return removed;
}

template <class T>
void TableAccess::PutBack(IParamBlock2& block, ParamID id, const std::vector<size_t>& places,
                          const std::vector<T>& values) {
  auto& table = Values<T>(block, id);
  if (places.empty()) return;
  size_t from = table.size();
  table.resize(table.size() + values.size());
  for (size_t i = places.size(), end = table.size(); i-- > 0; end = places[i]) {
    const size_t run = end - places[i] - 1;
    std::move_backward(table.begin() + long(from - run), table.begin() + long(from),
                       table.begin() + long(end));
    from -= run;
    table[places[i]] = values[i];
  }
  if constexpr (std::is_pointer_v<T>)
    for (T v : values) block.ReferTo(TargetOf(v));
  TellAdded<T>(block.Find(id)->observer, values);
}

namespace host {

template <class T>
constexpr bool isReference = std::is_pointer_v<T>;

// What a record holds for an entry: a reference is pinned, so that what went can come back.
template <class T>
using Kept = std::conditional_t<isReference<T>, Pin<ReferenceTarget>, T>;

template <class T>
std::vector<Kept<T>> Keep(const std::vector<T>& values) {
  if constexpr (isReference<T>) {
    std::vector<Kept<T>> kept;
    for (T v : values) kept.emplace_back(TargetOf(v));
    return kept;
  } else {
    return values;
  }
}

template <class T>
std::vector<T> Give(const std::vector<Kept<T>>& kept) {
  if constexpr (isReference<T>) {
    std::vector<T> values(kept.size());
    for (size_t i = 0; i < kept.size(); ++i) FromTarget(kept[i].get(), values[i]);
    return values;
  } else {
    return kept;
  }
}

template <class T>
size_t BytesOf(const std::vector<Kept<T>>& kept) {
  size_t bytes = kept.capacity() * sizeof(Kept<T>);
  if constexpr (std::is_same_v<T, WStr>)
    for (const WStr& s : kept) bytes += s.capacity() * sizeof(wchar_t);
  return bytes;
}

template <class T>
class Record : public TableRecord {
 public:
  Record(IParamBlock2* block, ParamID id) : block_(block), id_(id) {}
  TableKey Key() const override { return {block_.get(), id_}; }
  int Rank() const override { return TableAccess::Rank(*block_.get(), id_); }
  void SendChange() const override { TableAccess::SendRestored(*block_.get(), id_); }

 protected:
  IParamBlock2& Block() const { return *block_.get(); }
  Pin<IParamBlock2> block_;
  ParamID id_;
};

// A run of entries that one way puts in and the other takes out.
template <class T>
class RunRecord : public Record<T> {
 public:
  // An insertion holds nothing until it is undone; a removal holds what it took.
  RunRecord(IParamBlock2* block, ParamID id, size_t start, size_t count)
      : Record<T>(block, id), start_(start), count_(count), inserted_(true) {}
  RunRecord(IParamBlock2* block, ParamID id, size_t start, const std::vector<T>& removed)
      : Record<T>(block, id),
        start_(start),
        count_(removed.size()),
        inserted_(false),
        held_(Keep(removed)) {}

  void Undo() override { inserted_ ? TakeOut() : PutIn(); }
  void Redo() override { inserted_ ? PutIn() : TakeOut(); }
  std::unique_ptr<TableRecord> Copy() const override { return std::make_unique<RunRecord>(*this); }
  size_t Bytes() const override { return sizeof(*this) + BytesOf<T>(held_); }

  // Two insertions one behind the other are one.
  bool Absorb(const TableRecord& next) override {
    const auto* n = dynamic_cast<const RunRecord*>(&next);
    if (!n || !inserted_ || !n->inserted_ || n->start_ != start_ + count_) return false;
    count_ += n->count_;
    return true;
  }

 private:
  void TakeOut() {
    const std::vector<T> taken = TableAccess::Remove<T>(this->Block(), this->id_, start_, count_);
    held_ = Keep(taken);
    TableAccess::Release(this->Block(), taken);
  }
  void PutIn() {
    const std::vector<T> values = Give<T>(held_);
    TableAccess::Insert<T>(this->Block(), this->id_, start_, values);
    held_ = {};
  }

  size_t start_, count_;
  bool inserted_;
  std::vector<Kept<T>> held_;
};

template <class T>
class SetRecord : public Record<T> {
 public:
  SetRecord(IParamBlock2* block, ParamID id, size_t index, const T& old, bool touches)
      : Record<T>(block, id), index_(index), touches_(touches), other_(Keep<T>({old})) {}

  bool Touches() const override { return touches_; }
  void Undo() override { Exchange(); }
  void Redo() override { Exchange(); }
  std::unique_ptr<TableRecord> Copy() const override { return std::make_unique<SetRecord>(*this); }
  size_t Bytes() const override { return sizeof(*this) + BytesOf<T>(other_); }

  // The value before both is the one to come back to.
  bool Absorb(const TableRecord& next) override {
    const auto* n = dynamic_cast<const SetRecord*>(&next);
    return n && n->index_ == index_;
  }

 private:
  void Exchange() {
    const T before = Give<T>(other_).front();
    const std::vector<T> taken = {
        TableAccess::Exchange<T>(this->Block(), this->id_, index_, before)};
    other_ = Keep(taken);
    TableAccess::Release(this->Block(), taken);
  }

  size_t index_;
  bool touches_;
  std::vector<Kept<T>> other_;
};

template <class T>
class KeepRecord : public Record<T> {
 public:
  KeepRecord(IParamBlock2* block, ParamID id, std::vector<size_t> places,
             const std::vector<T>& removed)
      : Record<T>(block, id), places_(std::move(places)), held_(Keep(removed)) {}

  void Undo() override {
    TableAccess::PutBack<T>(this->Block(), this->id_, places_, Give<T>(held_));
    held_ = {};
  }
  void Redo() override {
    const std::vector<T> taken = TableAccess::TakeOut<T>(this->Block(), this->id_, places_);
    held_ = Keep(taken);
    TableAccess::Release(this->Block(), taken);
  }
  std::unique_ptr<TableRecord> Copy() const override { return std::make_unique<KeepRecord>(*this); }
  size_t Bytes() const override {
    return sizeof(*this) + places_.capacity() * sizeof(size_t) + BytesOf<T>(held_);
  }

 private:
  std::vector<size_t> places_;
  std::vector<Kept<T>> held_;
};

/// A parameter that got another controller, or lost it.
class ControlRecord : public Record<float> {
 public:
  ControlRecord(IParamBlock2* block, ParamID id, FloatControl* old)
      : Record<float>(block, id), other_(old) {}
  void Undo() override { Exchange(); }
  void Redo() override { Exchange(); }
  std::unique_ptr<TableRecord> Copy() const override {
    return std::make_unique<ControlRecord>(*this);
  }
  size_t Bytes() const override { return sizeof(*this); }

 private:
  void Exchange() {
    const Pin<FloatControl> present(TableAccess::ControlOf(Block(), id_));
    TableAccess::ExchangeControl(Block(), id_, other_.get());
    other_ = present;
  }
  Pin<FloatControl> other_;
};

}  // namespace host
