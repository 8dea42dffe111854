#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "host/core/reference.h"

class IParamBlock2;
class Texmap;

/// What materials and texture maps have in common. Recognised by its class name.
class MtlBase : public ReferenceTarget {
 public:
  /// The parameter blocks of a plug-in's class; null beyond the last.
  virtual IParamBlock2* GetParamBlock(int) { return nullptr; }
  const WStr& GetName() const { return name_; }
  /// Recorded for undo.
  void SetName(const WStr& name);

  virtual int NumSubTexmaps() const { return 0; }
  /// Null for an empty slot, and outside the slots.
  virtual Texmap* GetSubTexmap(int) const { return nullptr; }
  /// Recorded for undo. Nothing happens outside the slots.
  virtual void SetSubTexmap(int, Texmap*) {}

 private:
  WStr name_;
};

/// A texture map.
class Texmap : public MtlBase {
 public:
  SClass_ID SuperClassID() const override { return TEXMAP_CLASS_ID; }
};

/// "Bitmap": a picture, put on a mesh by map channel 1. The picture is a file, or the bytes of one
/// (PNG, JPEG and so on) that a model brought along; copies share the bytes.
class BitmapTex : public Texmap {
 public:
  using Bytes = std::shared_ptr<const std::vector<std::byte>>;
  static constexpr Class_ID kClassID{0x4e1c7a52, 0x1b90d36f};
  Class_ID ClassID() const override { return kClassID; }
  void GetClassName(WStr& name) const override { name = L"Bitmap"; }

  /// The file's path; the picture's name alone where the bytes are held here.
  const WStr& GetMapName() const { return mapName_; }
  /// Null where the picture is a file.
  const Bytes& GetBytes() const { return bytes_; }
  /// Recorded for undo.
  void SetPicture(const WStr& mapName, Bytes bytes = nullptr);
  ReferenceTarget* Clone(RemapDir& remap) override;

 private:
  WStr mapName_;
  Bytes bytes_;
};
