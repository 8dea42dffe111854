#include "host/core/reference.h"

#include <algorithm>

ReferenceTarget* RemapDir::FindMapping(const ReferenceTarget* from) const {
  for (const auto& [source, copy] : map_)
    if (source == from) return copy;
  return nullptr;
}

void RemapDir::AddMapping(const ReferenceTarget* from, ReferenceTarget* to) {
  map_.emplace_back(from, to);
}

ReferenceTarget* RemapDir::CloneRef(ReferenceTarget* from) {
  if (!from) return nullptr;
  if (ReferenceTarget* copy = FindMapping(from)) return copy;
  ReferenceTarget* copy = from->Clone(*this);
  if (copy && !FindMapping(from)) AddMapping(from, copy);
  return copy;
}

ReferenceTarget::~ReferenceTarget() {
  dying_ = true;
  DeleteAllRefsToMe();
}

void ReferenceTarget::ReferTo(ReferenceTarget* target) {
  if (!target) return;
  target->dependents_.push_back(this);
  target->orphaned_ = false;
}

void ReferenceTarget::LetGo(ReferenceTarget* target) {
  if (!target) return;
  auto& list = target->dependents_;
  // The newest first: helper nodes come and go in great numbers at the end of the list.
  const auto found = std::find(list.rbegin(), list.rend(), this);
  if (found == list.rend()) return;
  list.erase(std::next(found).base());
  ++target->removals_;
  target->DeleteIfUnused();
}

void ReferenceTarget::DeleteIfUnused() {
  if (!dependents_.empty() || dying_) return;
  orphaned_ = true;
  if (pins_ > 0) return;
  dying_ = true;
  DeleteThis();
}

void ReferenceTarget::ReleasePin() {
  if (--pins_ == 0 && orphaned_) DeleteIfUnused();
}

RefResult ReferenceTarget::ReplaceReference(int i, ReferenceTarget* target) {
  if (i < 0 || i >= NumRefs()) return REF_FAIL;
  ReferenceTarget* old = GetReference(i);
  if (old == target) return REF_SUCCEED;
  ReferTo(target);
  SetReference(i, target);
  LetGo(old);
  return REF_SUCCEED;
}

void ReferenceTarget::DeleteAllRefsFromMe() {
  for (int i = NumRefs(); i-- > 0;) ReplaceReference(i, nullptr);
}

void ReferenceTarget::ForgetTarget(ReferenceTarget* target) {
  for (int i = NumRefs(); i-- > 0;)
    if (GetReference(i) == target) ReplaceReference(i, nullptr);
}

void ReferenceTarget::DeleteAllRefsToMe() {
  const bool wasDying = std::exchange(dying_, true);  // so that the last one to go doesn't delete
  while (!dependents_.empty()) {
    ReferenceTarget* dependent = dependents_.back();
    dependent->ForgetTarget(this);
    // A dependent that doesn't let go by itself is struck off, or the loop would never end.
    if (!dependents_.empty() && dependents_.back() == dependent) {
      dependents_.pop_back();
      ++removals_;
    }
  }
  dying_ = wasDying;
}

void ReferenceTarget::NotifyDependents(const Interval& changeInt, PartID partID, RefMessage message,
                                       NotifyTarget, bool propagate) {
  const Pin<ReferenceTarget> alive(this);  // a handler may let go of the last reference
  Tell(changeInt, partID, message, propagate, nullptr);
}

void ReferenceTarget::Tell(const Interval& changeInt, PartID partID, RefMessage message,
                           bool propagate, const Path* path) {
  const Path here{this, path};
  const auto tellOne = [&](ReferenceTarget* dependent) {
    for (const Path* p = &here; p; p = p->before)
      if (p->target == dependent) return;
    PartID part = partID;
    const Pin<ReferenceTarget> alive(dependent);
    if (dependent->NotifyRefChanged(changeInt, this, part, message) == REF_SUCCEED && propagate)
      dependent->Tell(changeInt, part, message, propagate, &here);
  };

  if (dependents_.size() == 1) {  // the usual case, without a copy of the list
    tellOne(dependents_.front());
    return;
  }
  const std::vector<ReferenceTarget*> list = dependents_;
  const unsigned removalsAtStart = removals_;
  std::unordered_set<const ReferenceTarget*> told;  // who refers twice is told once
  for (ReferenceTarget* dependent : list) {
    if (!told.insert(dependent).second) continue;
    const bool stillThere =
        removals_ == removalsAtStart ||
        std::find(dependents_.begin(), dependents_.end(), dependent) != dependents_.end();
    if (stillThere) tellOne(dependent);
  }
}

bool ReferenceTarget::DoEnumDependents(DependentEnumProc* proc) {
  std::unordered_set<const ReferenceTarget*> seen;
  return Visit(proc, seen);
}

bool ReferenceTarget::Visit(DependentEnumProc* proc,
                            std::unordered_set<const ReferenceTarget*>& seen) {
  for (size_t i = 0; i < dependents_.size(); ++i) {
    ReferenceTarget* dependent = dependents_[i];
    if (!seen.insert(dependent).second) continue;
    if (proc->proc(dependent)) return true;
    if (dependent->SuperClassID() == BASENODE_CLASS_ID) continue;
    if (dependent->Visit(proc, seen)) return true;
  }
  return false;
}
