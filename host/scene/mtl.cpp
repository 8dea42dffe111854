#include "host/scene/mtl.h"

#include <algorithm>

#include "host/core/builtinclass.h"
#include "host/core/classdesc.h"
#include "host/core/hold.h"

void StdMtl::SetDiffuse(const Color& c, TimeValue) {
  RecordValue(this, &diffuse_);
  diffuse_ = c;
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

Texmap* StdMtl::GetSubTexmap(int i) const {
  return i >= 0 && i < NumSubTexmaps() ? maps_[size_t(i)] : nullptr;
}

void StdMtl::SetSubTexmap(int i, Texmap* map) {
  if (i < 0 || i >= NumSubTexmaps()) return;
  RecordReference(this, i);
  ReplaceReference(i, map);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void StdMtl::SetReference(int i, ReferenceTarget* t) { maps_[size_t(i)] = static_cast<Texmap*>(t); }

ReferenceTarget* StdMtl::Clone(RemapDir& remap) {
  auto* copy = new StdMtl;
  copy->diffuse_ = diffuse_;
  copy->SetName(GetName());
  for (int i = 0; i < NumSubTexmaps(); ++i)
    copy->ReplaceReference(i, remap.CloneRef(GetSubTexmap(i)));
  return copy;
}

namespace {

// The slots that a material got because one beyond the last was set.
class SlotCountRecord : public RestoreObj {
 public:
  SlotCountRecord(MultiMtl* owner, std::vector<Mtl*>* slots, size_t after)
      : owner_(owner), slots_(slots), before_(slots->size()), after_(after) {}
  void Restore() override {
    while (slots_->size() > before_ && !slots_->back()) slots_->pop_back();
  }
  void Redo() override { slots_->resize(std::max(slots_->size(), after_), nullptr); }
  ReferenceTarget* Target() const override { return owner_.get(); }

 private:
  Pin<MultiMtl> owner_;
  std::vector<Mtl*>* slots_;
  size_t before_, after_;
};

}  // namespace

Mtl* MultiMtl::GetSubMtl(int i) const {
  return i >= 0 && i < NumSubMtls() ? slots_[size_t(i)] : nullptr;
}

void MultiMtl::SetSubMtl(int i, Mtl* m) {
  if (i < 0) return;
  if (i >= NumSubMtls()) {
    const size_t count = size_t(i) + 1;
    if (theHold.Holding()) theHold->Put(std::make_unique<SlotCountRecord>(this, &slots_, count));
    slots_.resize(count, nullptr);
  }
  RecordReference(this, i);
  ReplaceReference(i, m);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

void MultiMtl::SetNumSubMtls(int n) {
  for (int i = NumSubMtls(); i-- > n;) ReplaceReference(i, nullptr);
  const int old = NumSubMtls();
  slots_.resize(size_t(n), nullptr);
  for (int i = old; i < n; ++i) ReplaceReference(i, new StdMtl);
}

void MultiMtl::SetReference(int i, ReferenceTarget* t) { slots_[size_t(i)] = static_cast<Mtl*>(t); }

Color MultiMtl::GetDiffuse() const {
  for (const Mtl* m : slots_)
    if (m) return m->GetDiffuse();
  return {};
}

ReferenceTarget* MultiMtl::Clone(RemapDir& remap) {
  auto* copy = new MultiMtl;
  copy->SetName(GetName());
  copy->slots_.resize(slots_.size(), nullptr);
  for (int i = 0; i < NumSubMtls(); ++i) copy->ReplaceReference(i, remap.CloneRef(GetSubMtl(i)));
  return copy;
}

const Mtl* MtlOfFace(const Mtl* material, int id) {
  const int n = material ? material->NumSubMtls() : 0;
  return n > 0 ? material->GetSubMtl(id % n) : material;
}

ReferenceTarget* TargetOf(Mtl* material) { return material; }
void FromTarget(ReferenceTarget* target, Mtl*& material) { material = static_cast<Mtl*>(target); }

namespace host {

void RegisterMaterialClasses(ClassRegistry& classes) {
  static BuiltinClass<StdMtl> standard(MATERIAL_CLASS_ID, StdMtl::kClassID, L"Standard");
  static BuiltinClass<MultiMtl> multi(MATERIAL_CLASS_ID, MultiMtl::kClassID, L"Multi/Sub-Object");
  classes.Add(&standard);
  classes.Add(&multi);
  static BuiltinClass<BitmapTex> bitmap(TEXMAP_CLASS_ID, BitmapTex::kClassID, L"Bitmap");
  classes.Add(&bitmap);
}

}  // namespace host
