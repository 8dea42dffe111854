#include "host/scene/layer.h"

#include "host/scene/node.h"

void ILayer::AddToLayer(INode* node) { node->SetLayer(this); }

ILayerManager::ILayerManager() { current_ = CreateLayer(L"0"); }

ILayer* ILayerManager::GetLayer(const WStr& name) const {
  for (ILayer* layer : layers_)
    if (layer->GetName() == name) return layer;
  return nullptr;
}

ILayer* ILayerManager::CreateLayer(const WStr& name) {
  if (GetLayer(name)) return nullptr;
  layers_.push_back(nullptr);
  ReplaceReference(int(layers_.size()) - 1, new ILayer(name));
  return layers_.back();
}

bool ILayerManager::SetCurrentLayer(const WStr& name) {
  ILayer* layer = GetLayer(name);
  if (layer) current_ = layer;
  return layer != nullptr;
}
