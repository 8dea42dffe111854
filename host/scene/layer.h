#pragma once

#include <vector>

#include "host/core/reference.h"

class INode;

/// A named group of nodes. A node is on one layer, its reference 6.
class ILayer : public ReferenceTarget {
 public:
  explicit ILayer(const WStr& name) : name_(name) {}
  SClass_ID SuperClassID() const override { return LAYER_CLASS_ID; }
  const WStr& GetName() const { return name_; }
  bool IsHidden() const { return hidden_; }
  void Hide(bool on) { hidden_ = on; }
  void AddToLayer(INode* node);

 private:
  WStr name_;
  bool hidden_ = false;
};

/// The layers of a scene. Layers are made for good: undo brings membership back, not the layer.
class ILayerManager : public ReferenceTarget {
 public:
  ILayerManager();
  ~ILayerManager() override { DeleteAllRefsFromMe(); }

  /// Null for a name that no layer has.
  ILayer* GetLayer(const WStr& name) const;
  /// Null if the name is taken.
  ILayer* CreateLayer(const WStr& name);
  ILayer* GetCurrentLayer() const { return current_; }
  /// False, and nothing changes, for a name that no layer has.
  bool SetCurrentLayer(const WStr& name);
  ILayer* GetDefaultLayer() const { return layers_.front(); }
  const std::vector<ILayer*>& Layers() const { return layers_; }

  int NumRefs() const override { return int(layers_.size()); }
  ReferenceTarget* GetReference(int i) const override { return layers_[size_t(i)]; }

 protected:
  void SetReference(int i, ReferenceTarget* t) override {
    layers_[size_t(i)] = static_cast<ILayer*>(t);
  }

 private:
  std::vector<ILayer*> layers_;
  ILayer* current_ = nullptr;
};
