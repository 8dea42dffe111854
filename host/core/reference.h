#pragma once

#include <unordered_set>
#include <utility>
#include <vector>

#include "host/core/ids.h"
#include "host/math/interval.h"
#include "host/math/wstr.h"

class ReferenceTarget;

using PartID = std::uint32_t;
inline constexpr PartID PART_ALL = 0x800037FF;

enum RefMessage : std::uint32_t {
  REFMSG_CHANGE = 0x50,
  REFMSG_END_EDIT = 160,
  /// An entry of a node table or a node parameter became null because its node was deleted.
  REFMSG_TAB_ELEMENT_NULLED = 0x232,
  /// An entry of a node table was set, inserted, appended, or came back by undo or redo.
  REFMSG_NODE_TABLE_SET = 0x235,
};

enum RefResult { REF_FAIL = 0, REF_SUCCEED = 1 };

/// Who is told by NotifyDependents. There is one choice.
enum NotifyTarget { NOTIFY_ALL };

/// Walks dependents; see ReferenceTarget::DoEnumDependents.
class DependentEnumProc {
 public:
  virtual ~DependentEnumProc() = default;
  /// Returns true to stop the walk.
  virtual bool proc(ReferenceTarget* dependent) = 0;
};

/// Deep copies share one of these, so that what two of them refer to is copied once.
class RemapDir {
 public:
  /// The copy of `from`, made at the first call; null for null.
  ReferenceTarget* CloneRef(ReferenceTarget* from);
  ReferenceTarget* FindMapping(const ReferenceTarget* from) const;
  void AddMapping(const ReferenceTarget* from, ReferenceTarget* to);

 private:
  std::vector<std::pair<const ReferenceTarget*, ReferenceTarget*>> map_;
};

/// Anything that can refer to others and be referred to.
///
/// Life goes by references: a target that loses its last dependent, and that no undo record keeps,
/// deletes itself. One that was never referred to belongs to its maker (DeleteThis).
class ReferenceTarget {
 public:
  ReferenceTarget() = default;
  ReferenceTarget(const ReferenceTarget&) = delete;
  ReferenceTarget& operator=(const ReferenceTarget&) = delete;
  virtual ~ReferenceTarget();

  virtual SClass_ID SuperClassID() const { return 0; }
  virtual Class_ID ClassID() const { return {}; }
  virtual void GetClassName(WStr& name) const { name.clear(); }
  virtual void DeleteThis() { delete this; }
  virtual void* GetInterface(Interface_ID) { return nullptr; }
  virtual void* GetInterface(std::uint32_t) { return nullptr; }

  /// References are asked for by indices 0 to NumRefs() - 1 and never beyond.
  virtual int NumRefs() const { return 0; }
  virtual ReferenceTarget* GetReference(int) const { return nullptr; }
  /// Makes reference i point at `target` (null allowed). Not recorded for undo.
  RefResult ReplaceReference(int i, ReferenceTarget* target);
  void DeleteReference(int i) { ReplaceReference(i, nullptr); }
  virtual void DeleteAllRefsFromMe();
  /// Makes every dependent let go of this target.
  void DeleteAllRefsToMe();

  /// Called when a reference of this one changed. `target` is the direct reference that passes the
  /// message on, not the origin. REF_SUCCEED lets the message go on to this one's dependents.
  virtual RefResult NotifyRefChanged(const Interval&, ReferenceTarget*, PartID&, RefMessage) {
    return REF_SUCCEED;
  }
  /// Tells all dependents, in the order in which they came to refer, and theirs in turn.
  /// Handlers may do anything, nested calls included; a loop of references is walked once.
  void NotifyDependents(const Interval& changeInt, PartID partID, RefMessage message,
                        NotifyTarget = NOTIFY_ALL, bool propagate = true);

  /// Visits direct and indirect dependents, nearest first along each path, in the order in which
  /// they came to refer, each once; nodes end a path. True if the procedure stopped the walk.
  bool DoEnumDependents(DependentEnumProc* proc);

  virtual ReferenceTarget* Clone(RemapDir&) { return nullptr; }
  virtual void BaseClone(ReferenceTarget*, ReferenceTarget*, RemapDir&) {}

  bool HasDependents() const { return !dependents_.empty(); }
  const std::vector<ReferenceTarget*>& Dependents() const { return dependents_; }

  // What keeps a target alive without being told of its changes: undo records.
  void AddPin() { ++pins_; }
  void ReleasePin();
  bool IsPinned() const { return pins_ > 0; }

  /// Makes each reference to `target` null, because that one goes away.
  virtual void ForgetTarget(ReferenceTarget* target);

 protected:
  /// Stores the pointer of reference i; the counting is done by ReplaceReference.
  virtual void SetReference(int, ReferenceTarget*) {}
  /// For makers with references beyond the numbered ones, such as tables: one call each.
  void ReferTo(ReferenceTarget* target);
  void LetGo(ReferenceTarget* target);

 private:
  struct Path {
    const ReferenceTarget* target;
    const Path* before;
  };
  void Tell(const Interval& changeInt, PartID partID, RefMessage message, bool propagate,
            const Path* path);
  bool Visit(DependentEnumProc* proc, std::unordered_set<const ReferenceTarget*>& seen);
  void DeleteIfUnused();

  std::vector<ReferenceTarget*> dependents_;
  unsigned removals_ = 0;  // counts departures, so that a walk notices them
  int pins_ = 0;
  bool orphaned_ = false;  // lost its last dependent; a target never referred to isn't
  bool dying_ = false;
};

/// Keeps a target alive for as long as this lives.
template <class T>
class Pin {
 public:
  Pin() = default;
  explicit Pin(T* target) : target_(target) {
    if (target_) target_->AddPin();
  }
  Pin(const Pin& o) : Pin(o.target_) {}
  Pin(Pin&& o) noexcept : target_(std::exchange(o.target_, nullptr)) {}
  Pin& operator=(Pin o) noexcept {
    std::swap(target_, o.target_);
    return *this;
  }
  ~Pin() {
    if (target_) target_->ReleasePin();
  }
  T* get() const { return target_; }
  T* operator->() const { return target_; }
  explicit operator bool() const { return target_; }

 private:
  T* target_ = nullptr;
};

/// For std::unique_ptr over a target that nobody refers to.
struct DeleteUnreferenced {
  void operator()(ReferenceTarget* t) const {
    if (t && !t->HasDependents() && !t->IsPinned()) t->DeleteThis();
  }
};
