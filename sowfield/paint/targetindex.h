#pragma once

#include <functional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/scene/scene.h"
#include "sowfield/paint/boxtree.h"
#include "sowfield/paint/targets.h"

namespace sowfield {

/// Finds the nodes of the scene that a stroke may paint on, as a walk over all of them would, at
/// the cost of those near the line of sight alone.
///
/// It keeps the boxes of the nodes and follows their changes; a box is worked out anew at the next
/// question, or at another time where it holds for a time only. A scene that was put in place of
/// its own is taken up from the start.
class TargetIndex : public NodeObserver {
 public:
  /// `isPreview` tells the nodes that are never targets, from the question on that follows their
  /// coming.
  explicit TargetIndex(std::function<bool(const INode*)> isPreview)
      : isPreview_(std::move(isPreview)) {}
  ~TargetIndex() override;
  TargetIndex(const TargetIndex&) = delete;
  TargetIndex& operator=(const TargetIndex&) = delete;

  /// Appends the targets of `scene` that `found` doesn't hold, parents before children.
  void Collect(Scene& scene, const TargetQuery& query, Tab<INode*>& found);

  void NodeCame(INode* node) override { changed_.insert(node); }
  void NodeWent(INode* node) override;
  void NodeChanged(INode* node) override { changed_.insert(node); }
  void SceneWent() override;

 private:
  void TakeUp(Scene& scene);
  void Forget();
  void BringUpToDate(const TargetQuery& query);
  void Look(INode* node, const TargetQuery& query);
  void Drop(INode* node);

  struct Known {
    int number = -1;           // in the tree
    Interval valid = FOREVER;  // of the box
  };
  std::function<bool(const INode*)> isPreview_;
  Scene* scene_ = nullptr;
  TimeValue time_ = 0;
  std::unordered_set<INode*> changed_;
  std::unordered_map<INode*, Known> known_;
  std::unordered_set<INode*> moving_;   // whose box doesn't hold for ever
  std::unordered_set<INode*> endless_;  // whose box isn't finite: asked each time
  BoxTree tree_;
  std::vector<INode*> nodeOf_;  // by number
  std::vector<int> free_;       // numbers
};

}  // namespace sowfield
