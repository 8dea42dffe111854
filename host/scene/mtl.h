#pragma once

#include <array>
#include <vector>

#include "host/math/color.h"
#include "host/scene/texmap.h"

/// A material. Sub-materials and texture maps are references.
class Mtl : public MtlBase {
 public:
  SClass_ID SuperClassID() const override { return MATERIAL_CLASS_ID; }

  virtual int NumSubMtls() const { return 0; }
  virtual Mtl* GetSubMtl(int) const { return nullptr; }
  virtual void SetSubMtl(int, Mtl*) {}

  virtual Color GetDiffuse() const = 0;
  /// Recorded for undo.
  virtual void SetDiffuse(const Color& c, TimeValue t) = 0;
};

/// "Standard": a diffuse colour, and a texture map that stands in its place.
class StdMtl : public Mtl {
 public:
  static constexpr Class_ID kClassID{2, 0};
  /// Slots of texture maps: 0 ambient, 1 diffuse.
  static constexpr int kAmbientMap = 0, kDiffuseMap = 1;
  ~StdMtl() override { DeleteAllRefsFromMe(); }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Standard"; }
  Color GetDiffuse() const override { return diffuse_; }
  void SetDiffuse(const Color& c, TimeValue t) override;
  int NumSubTexmaps() const override { return int(maps_.size()); }
  Texmap* GetSubTexmap(int i) const override;
  void SetSubTexmap(int i, Texmap* map) override;
  ReferenceTarget* Clone(RemapDir& remap) override;

  int NumRefs() const override { return NumSubTexmaps(); }
  ReferenceTarget* GetReference(int i) const override { return GetSubTexmap(i); }

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  Color diffuse_{0.588f, 0.588f, 0.588f};
  std::array<Texmap*, 2> maps_{};
};

/// "Multi/Sub-Object": a face takes the slot of its material id modulo the number of slots. Slots
/// may be empty.
class MultiMtl : public Mtl {
 public:
  static constexpr Class_ID kClassID{512, 0};
  ~MultiMtl() override { DeleteAllRefsFromMe(); }
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Multi/Sub-Object"; }
  int NumSubMtls() const override { return int(slots_.size()); }
  Mtl* GetSubMtl(int i) const override;
  /// Recorded for undo.
  void SetSubMtl(int i, Mtl* m) override;
  /// New slots get a Standard material each.
  void SetNumSubMtls(int n);
  /// That of the first slot that holds a material.
  Color GetDiffuse() const override;
  void SetDiffuse(const Color&, TimeValue) override {}
  ReferenceTarget* Clone(RemapDir& remap) override;

  int NumRefs() const override { return NumSubMtls(); }
  ReferenceTarget* GetReference(int i) const override { return GetSubMtl(i); }

 protected:
  void SetReference(int i, ReferenceTarget* t) override;

 private:
  std::vector<Mtl*> slots_;
};

/// The material that a face of this id shows: the slot of a multi material, else the material.
const Mtl* MtlOfFace(const Mtl* material, int id);

namespace host {
class ClassRegistry;
void RegisterMaterialClasses(ClassRegistry& classes);
}  // namespace host
