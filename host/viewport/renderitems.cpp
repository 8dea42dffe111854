#include "host/viewport/renderitems.h"

bool RenderNode::IsVisible() const {
  const ILayer* layer = node_->GetLayer();
  return !node_->IsHidden() && !(layer && layer->IsHidden());
}

bool MeshDisplay::PrepareDisplay(const GenerateMeshRenderItemsContext& context) const {
  return context.WantsFaces() && !mesh_->faces.empty();
}

void MeshDisplay::UpdateNodeItems(const GenerateMeshRenderItemsContext& context,
                                  const UpdateNodeContext& nodeContext,
                                  RenderItemContainer& container) const {
  if (context.WantsFaces())
    container.AddRenderItem({mesh_, mesh_->Stamp(), nodeContext.GetRenderNode().GetNode()});
}

std::optional<MeshDisplay> GetMeshDisplay(const Mesh& mesh) {
  if (mesh.faces.empty()) return std::nullopt;
  return MeshDisplay(mesh);
}
