#pragma once

#include <span>
#include <unordered_map>
#include <vector>

#include "host/scene/layer.h"
#include "host/scene/node.h"

/// The nodes and layers of a host.
class Scene : public ReferenceTarget {
 public:
  Scene();
  ~Scene() override;

  INode* GetRootNode() const { return root_; }
  ILayerManager& Layers() { return *layers_; }

  /// A new node under the root, on the current layer, named after its object with a running
  /// number. Several nodes may share an object. Recorded while a step is open.
  INode* CreateObjectNode(Object* object);

  /// For nodes that came in with their names: numbers of new names go on behind theirs.
  void CountNames();

  /// Takes nodes out of the scene as the user does: children go to the parent and keep their
  /// places, table entries of all the nodes become null before the first owner is told, and
  /// owners are told once a parameter. With no open step, a deletion that someone would notice
  /// (a block refers to a node, or the undo list does) opens one of its own, "Delete"; other
  /// nodes just go. A node that isn't in the scene is passed over. Returns how many went.
  int DeleteNodes(std::span<INode* const> nodes);

  /// All nodes below the root, parents before children.
  std::vector<INode*> AllNodes() const;
  std::vector<INode*> FindNodes(const WStr& name) const;
  /// `base`, or base with the lowest number from 001 that makes it unlike all names in use.
  WStr UniqueName(const WStr& base) const;
  /// The base with a number of at least three digits behind it.
  static WStr Numbered(const WStr& base, int number);

  int NumRefs() const override { return 2; }
  ReferenceTarget* GetReference(int i) const override {
    return i == 0 ? static_cast<ReferenceTarget*>(root_) : layers_;
  }

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  static bool Noticed(const INode* node);
  void NullAndTell(std::span<INode* const> nodes);
  void TakeOut(INode* node);

  INode* root_ = nullptr;
  ILayerManager* layers_ = nullptr;
  std::unordered_map<WStr, int> nextNumber_;
};
