#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "host/scene/node.h"

class ViewExp;

/// What a redraw is for.
struct UpdateDisplayContext {
  TimeValue time = 0;
  ViewExp* view = nullptr;
};

/// A node as the display sees it.
class RenderNode {
 public:
  explicit RenderNode(INode* node) : node_(node) {}
  INode* GetNode() const { return node_; }
  /// Neither hidden itself nor on a hidden layer.
  bool IsVisible() const;

 private:
  INode* node_;
};

/// The node whose items are brought up to date.
class UpdateNodeContext {
 public:
  explicit UpdateNodeContext(INode* node) : node_(node) {}
  const RenderNode& GetRenderNode() const { return node_; }

 private:
  RenderNode node_;
};

/// A mesh to be drawn at a node, in the node's object space. Its stamp is that of the mesh when the
/// item was made.
struct RenderItem {
  const Mesh* mesh = nullptr;
  std::uint64_t stamp = 0;
  INode* node = nullptr;
};

/// The items of a node, in the order of drawing.
class RenderItemContainer {
 public:
  void AddRenderItem(const RenderItem& item) { items_.push_back(item); }
  const std::vector<RenderItem>& Items() const { return items_; }
  /// Keeps an object, whose mesh is an item, for as long as the items.
  void Keep(std::unique_ptr<Object, DeleteUnreferenced> object) {
    kept_.push_back(std::move(object));
  }

 private:
  std::vector<RenderItem> items_;
  std::vector<std::unique_ptr<Object, DeleteUnreferenced>> kept_;
};

/// Which elements of a mesh are wanted as items: in a default context its faces.
class GenerateMeshRenderItemsContext {
 public:
  void GenerateDefaultContext(const UpdateDisplayContext&) { faces_ = true; }
  /// Takes out the elements that the node doesn't show.
  void RemoveInvisibleMeshElementDescriptions(const RenderNode& node) {
    faces_ = faces_ && node.IsVisible();
  }
  bool WantsFaces() const { return faces_; }

 private:
  bool faces_ = false;
};

/// How a mesh reaches the display.
class MeshDisplay {
 public:
  explicit MeshDisplay(const Mesh& mesh) : mesh_(&mesh) {}
  /// Whether the mesh has any of the elements wanted.
  bool PrepareDisplay(const GenerateMeshRenderItemsContext& context) const;
  /// Adds the item for a node.
  void UpdateNodeItems(const GenerateMeshRenderItemsContext& context,
                       const UpdateNodeContext& nodeContext, RenderItemContainer& container) const;

 private:
  const Mesh* mesh_;
};

/// The display interface of a mesh; nothing for a mesh without faces, which has no elements.
std::optional<MeshDisplay> GetMeshDisplay(const Mesh& mesh);
