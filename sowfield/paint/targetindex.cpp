#include "sowfield/paint/targetindex.h"

#include <algorithm>
#include <utility>

#include "host/scene/modifier.h"
#include "sowfield/model/classids.h"

namespace sowfield {

TargetIndex::~TargetIndex() {
  if (scene_) scene_->RemoveObserver(this);
}

void TargetIndex::Forget() {
  changed_.clear();
  known_.clear();
  moving_.clear();
  endless_.clear();
  tree_.Clear();
  nodeOf_.clear();
  free_.clear();
}

void TargetIndex::SceneWent() {
  scene_ = nullptr;
  Forget();
}

void TargetIndex::TakeUp(Scene& scene) {
  if (scene_) scene_->RemoveObserver(this);
  Forget();
  scene_ = &scene;
  scene.AddObserver(this);
  for (INode* n : scene.AllNodes()) changed_.insert(n);
}

void TargetIndex::NodeWent(INode* node) {
  changed_.erase(node);
  Drop(node);
}

void TargetIndex::Drop(INode* node) {
  const auto found = known_.find(node);
  if (found == known_.end()) return;
  const int number = found->second.number;
  tree_.Set(number, {});
  nodeOf_[size_t(number)] = nullptr;
  free_.push_back(number);
  known_.erase(found);
  moving_.erase(node);
  endless_.erase(node);
}

void TargetIndex::BringUpToDate(const TargetQuery& query) {
  if (std::exchange(time_, query.t) != query.t)
    for (INode* n : moving_)
      if (!known_.at(n).valid.InInterval(query.t)) changed_.insert(n);
  // Each once: an object may tell of a change whenever it is asked.
  for (size_t left = changed_.size(); left > 0 && !changed_.empty(); --left) {
    INode* node = *changed_.begin();
    changed_.erase(changed_.begin());
    Look(node, query);
  }
}

void TargetIndex::Look(INode* node, const TargetQuery& query) {
  if (isPreview_(node)) return;
  const Pin<INode> alive(node);
  Interval valid = FOREVER;
  Box3 box;
  if (Object* object = PaintableObject(node, query.t, &valid)) {
    object->GetWorldBoundBox(query.t, node, query.view, box);
    valid = Overlap(Overlap(valid, object->ObjectValidity(query.t)), node->TMValidity(query.t));
    // Made of what stands elsewhere, and anew at each time, be it under modifiers.
    if (FindBaseObject(node->GetObjectRef())->ClassID() == kSowfieldClassID)
      valid = {query.t, query.t};
  }
  if (!node->InScene()) return;  // making a mesh may take nodes out

  auto [entry, isNew] = known_.try_emplace(node);
  Known& known = entry->second;
  if (isNew && free_.empty()) {
    known.number = int(nodeOf_.size());
    nodeOf_.push_back(node);
  } else if (isNew) {
    known.number = free_.back();
    free_.pop_back();
    nodeOf_[size_t(known.number)] = node;
  }
  known.valid = valid;
  valid == FOREVER ? void(moving_.erase(node)) : void(moving_.insert(node));
  const bool finite = IsFinite(box.pmin) && IsFinite(box.pmax);
  finite ? void(endless_.erase(node)) : void(endless_.insert(node));
  tree_.Set(known.number, finite ? box : Box3());
}

void TargetIndex::Collect(Scene& scene, const TargetQuery& query, Tab<INode*>& found) {
  if (&scene != scene_) TakeUp(scene);
  BringUpToDate(query);

  std::vector<Pin<INode>> near;
  if (IsFinite(query.line.l1) && IsFinite(query.line.l2)) {
    std::vector<int> numbers;
    tree_.Meet(query.line, query.reach, numbers);
    for (const int n : numbers) near.emplace_back(nodeOf_[size_t(n)]);
    for (INode* n : endless_) near.emplace_back(n);
  } else {
    for (const auto& [node, known] : known_) near.emplace_back(node);
  }
  for (INode* n : changed_) near.emplace_back(n);  // that told of a change while it was asked
  std::sort(near.begin(), near.end(),
            [](const Pin<INode>& a, const Pin<INode>& b) { return a->ComesBefore(b.get()); });
  for (const Pin<INode>& n : near)
    if (n->InScene() && !isPreview_(n.get()) && IsTarget(query, n.get()) &&
        !found.Contains(n.get()))
      found.Append(n.get());
}

}  // namespace sowfield
