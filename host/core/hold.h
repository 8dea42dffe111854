#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "host/core/reference.h"

/// One recorded change of a scene element. Restore and Redo move data only; messages follow when
/// all data of the step stands.
class RestoreObj {
 public:
  virtual ~RestoreObj() = default;
  virtual void Restore() = 0;
  virtual void Redo() = 0;
  /// Called when all data of the step stands, before any message.
  virtual void Settled() {}
  /// The element whose dependents are told of the change; also how records of a node that is made
  /// and deleted within one step are found and dropped.
  virtual ReferenceTarget* Target() const = 0;
  /// Bytes that the record holds beyond its own size.
  virtual size_t ExtraBytes() const { return 0; }
};

/// Names one table of one parameter block.
struct TableKey {
  const ReferenceTarget* block = nullptr;
  int id = -1;
  bool operator==(const TableKey&) const = default;
};

/// One recorded change of a table: it keeps what changed, not the table. Undo and Redo exchange
/// data with the table; they are called in strict turn.
class TableRecord {
 public:
  virtual ~TableRecord() = default;
  virtual TableKey Key() const = 0;
  /// Place of the table's message within the step, lowest first; equal ranks keep the order of
  /// first touches.
  virtual int Rank() const = 0;
  /// False for what the host did by itself: such a change rolls, but sends no message of its own.
  virtual bool Touches() const { return true; }
  virtual void Undo() = 0;
  virtual void Redo() = 0;
  /// Takes a following change of the same table into this record. False if it can't.
  virtual bool Absorb(const TableRecord&) { return false; }
  virtual std::unique_ptr<TableRecord> Copy() const = 0;
  virtual void SendChange() const = 0;
  virtual size_t Bytes() const = 0;
};

/// Undo and redo of the host, reached as theHold.
///
/// A step is what is recorded between Begin and Accept; a nested Begin joins the outer step. Undo
/// and redo first bring back scene elements, then all tables, and only then send messages: one per
/// touched element and one per touched table, tables ordered by rank and first touch, undo in
/// reverse. So every handler sees data that agree.
///
/// A change outside any step is taken into the newest step that holds a record of the same table,
/// so that the positions in that record stay right: undoing that step takes the table back to
/// where it stood before the step, as a full copy would. Redoing a step likewise brings back what
/// stood when it was undone, and wipes out what was changed since. What handlers write while a step
/// is restored counts as outside, whatever they open.
class Hold {
 public:
  Hold() = default;
  ~Hold();
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

  void Begin();
  /// Closes the innermost Begin. The outermost one names the step; an empty step vanishes and
  /// keeps what can be redone.
  void Accept(const WStr& name);
  /// Takes back all that was recorded since the innermost Begin. Keeps what can be redone.
  void Cancel();

  /// Between the two nothing counts as part of the open step: for working nodes, such as previews,
  /// that no undo may bring back. They nest.
  void Suspend() { ++suspended_; }
  void Resume() { --suspended_; }

  /// True while a step is being recorded, at any depth; false during undo and redo.
  bool Holding() const { return depth_ > 0 && restoring_ == 0 && suspended_ == 0; }
  /// 1 while an undo (or a cancel) runs, 4 while a redo runs, else 0.
  int RestoreOrRedoing() const { return restoring_; }
  /// While the messages of a restored step are sent: whether that of this table is still to come.
  bool WillTell(const TableKey& table) const;

  /// Both false when there is nothing to take back, a step is open, or one is being restored.
  bool Undo();
  bool Redo();
  size_t UndoCount() const { return undo_.size(); }
  size_t RedoCount() const { return redo_.size(); }
  /// Names of the steps, oldest first.
  std::vector<WStr> UndoNames() const;
  std::vector<WStr> RedoNames() const;
  /// Bytes that the newest step on the undo stack holds, all its records counted; 0 without one.
  size_t NewestStepBytes() const;
  /// Forgets all steps, an open one included.
  void Clear();

  /// Records a change that was made; ignored unless Holding.
  void Put(std::unique_ptr<RestoreObj> record);
  /// Records a change of a table, in or outside a step.
  void PutTable(std::unique_ptr<TableRecord> record);
  /// True if the open step made `target` since the innermost Begin, by a record for which `made`
  /// holds; all records of the target are then dropped, for it leaves no trace.
  bool DropIfMadeHere(const ReferenceTarget* target, bool (*made)(const RestoreObj&));

 private:
  struct Step {
    WStr name;
    std::vector<std::unique_ptr<RestoreObj>> elements;
    std::vector<std::unique_ptr<TableRecord>> tables;
    bool Empty() const { return elements.empty() && tables.empty(); }
  };
  /// Steps, newest last, that know which of them touched a table: an edit outside any step asks for
  /// the newest one, be it ten thousand steps back. What is put into a step later is of a table
  /// that the step held before.
  class Steps {
   public:
    bool empty() const { return list_.empty(); }
    size_t size() const { return list_.size(); }
    auto begin() { return list_.begin(); }
    auto end() { return list_.end(); }
    auto begin() const { return list_.begin(); }
    auto end() const { return list_.end(); }
    Step& back() { return list_.back(); }
    const Step& back() const { return list_.back(); }
    /// Takes the step, or throws std::bad_alloc and leaves all as it was.
    void Push(Step& step);
    /// The newest step goes over to others; throws as Push does.
    void MoveTo(Steps& others);
    void DropNewest();
    /// Null if none holds the table.
    Step* Newest(const TableKey& key);

   private:
    void Unlist(const Step& step, size_t place);
    struct Hash {
      size_t operator()(const TableKey& key) const {
        return std::hash<const void*>()(key.block) ^ size_t(key.id) * 0x9E3779B97F4A7C15u;
      }
    };
    std::vector<Step> list_;
    std::unordered_map<TableKey, std::vector<size_t>, Hash> holding_;  // places in list_, ascending
  };
  struct Mark {
    size_t elements, tables;
  };
  enum class Way { Undo, Redo };

  void Restore(Step& step, Way way);
  void SendMessages(const std::vector<ReferenceTarget*>& elements,
                    std::vector<const TableRecord*> tables, Way way);
  bool TakeIntoOpen(std::unique_ptr<TableRecord>& record);
  void TakeIntoSteps(std::unique_ptr<TableRecord> record);
  void DropWipedOut(Step& step);
  static void DropFrom(Steps& steps);

  Steps undo_, redo_;  // the last of redo_ is redone next
  Step open_;
  std::vector<Mark> marks_;  // one per Begin
  int depth_ = 0;
  int restoring_ = 0;
  std::vector<TableKey> untold_;  // of the step that is restored, the next one last
  int suspended_ = 0;
  std::uint64_t lastPair_ = 0;
};

/// The undo service of the host in force.
class HoldAccess {
 public:
  Hold* operator->() const;
  void Begin() const;
  void Accept(const WStr& name) const;
  void Cancel() const;
  bool Holding() const;
  int RestoreOrRedoing() const;
};
inline constexpr HoldAccess theHold;

/// An undo step that is taken back unless it is accepted. Its name is made at the start, when a
/// lack of memory does no harm yet.
class UndoStep {
 public:
  explicit UndoStep(const wchar_t* name) : name_(name) { theHold.Begin(); }
  UndoStep(const UndoStep&) = delete;
  UndoStep& operator=(const UndoStep&) = delete;
  ~UndoStep() {
    if (open_) theHold.Cancel();
  }
  void Accept() {
    theHold.Accept(name_);
    open_ = false;
  }
  bool Open() const { return open_; }

 private:
  WStr name_;
  bool open_ = true;
};

/// Records that a plain member of a target was changed: undo and redo exchange the two values.
/// Call before the write. The first record of a place within a step is enough.
template <class T>
class ValueRecord : public RestoreObj {
 public:
  ValueRecord(ReferenceTarget* owner, T* place) : owner_(owner), place_(place), other_(*place) {}
  void Restore() override { std::swap(*place_, other_); }
  void Redo() override { std::swap(*place_, other_); }
  ReferenceTarget* Target() const override { return owner_.get(); }

 private:
  Pin<ReferenceTarget> owner_;
  T* place_;
  T other_;
};

template <class T>
void RecordValue(ReferenceTarget* owner, T* place) {
  if (theHold.Holding()) theHold->Put(std::make_unique<ValueRecord<T>>(owner, place));
}

/// Records that reference i of a target is about to be replaced.
void RecordReference(ReferenceTarget* owner, int i);
