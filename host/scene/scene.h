#pragma once

#include <set>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/scene/layer.h"
#include "host/scene/node.h"
#include "host/scene/renderer.h"

/// Is told at once of the nodes of a scene, by edits, undo and redo alike, so that a structure
/// beside the scene can follow it. It takes notes: it doesn't change the scene.
class NodeObserver {
 public:
  virtual ~NodeObserver() = default;
  /// A node has come under the root, or has left. Called for each node of a subtree.
  virtual void NodeCame(INode* node) = 0;
  virtual void NodeWent(INode* node) = 0;
  /// Its place, what it shows or anything else of it may have changed; also when a parent moved.
  virtual void NodeChanged(INode* node) = 0;
  /// The scene ends, and the observer with it is none any more.
  virtual void SceneWent() = 0;
};

/// The nodes and layers of a host, what is selected, and the renderer.
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

  /// The nodes that are selected, in the order in which they came to be. A node that leaves the
  /// scene leaves the selection for good. Nothing of this is recorded for undo.
  std::vector<INode*> Selection() const;
  /// Behind those that are selected, or alone. One that is selected keeps its place.
  void SelectNode(INode* node, bool clearSelection = true);
  void ClearNodeSelection();

  /// May be null.
  Renderer* GetRenderer() const { return renderer_; }
  /// Not recorded for undo.
  void SetRenderer(Renderer* renderer) { ReplaceReference(2, renderer); }

  void AddObserver(NodeObserver* observer) { observers_.push_back(observer); }
  void RemoveObserver(NodeObserver* observer) { std::erase(observers_, observer); }

  /// All nodes below the root, parents before children.
  std::vector<INode*> AllNodes() const;
  /// Those of a name, in that order.
  std::vector<INode*> FindNodes(const WStr& name) const;
  /// `base`, or base with the lowest number from 001 that makes it unlike all names in use.
  WStr UniqueName(const WStr& base) const;
  /// The base with a number of at least three digits behind it.
  static WStr Numbered(const WStr& base, int number);

  int NumRefs() const override { return 3; }
  ReferenceTarget* GetReference(int i) const override;

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  friend class INode;
  void TakeRoot(INode* root);
  void NodeCame(INode* node);
  void NodeWent(INode* node);
  void NodeChanged(INode* node);
  void NameComes(INode* node);
  void NameGoes(INode* node);
  const std::set<std::pair<WStr, INode*>>& Names() const;
  bool HasNode(const WStr& name) const;
  static bool Noticed(const INode* node);
  void NullAndTell(std::span<INode* const> nodes);
  void TakeOut(INode* node);

  INode* root_ = nullptr;
  ILayerManager* layers_ = nullptr;
  Renderer* renderer_ = nullptr;
  unsigned lastSelected_ = 0;
  std::unordered_map<WStr, int> nextNumber_;
  std::vector<NodeObserver*> observers_;
  // By name, from the first question on.
  mutable std::set<std::pair<WStr, INode*>> names_;
  mutable bool namesKnown_ = false;
};
