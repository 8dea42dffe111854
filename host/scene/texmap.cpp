#include "host/scene/texmap.h"

#include "host/core/hold.h"

void MtlBase::SetName(const WStr& name) {
  RecordValue(this, &name_);
  name_ = name;
}

void BitmapTex::SetPicture(const WStr& mapName, Bytes bytes) {
  RecordValue(this, &mapName_);
  RecordValue(this, &bytes_);
  mapName_ = mapName;
  bytes_ = std::move(bytes);
  NotifyDependents(FOREVER, PART_ALL, REFMSG_CHANGE);
}

ReferenceTarget* BitmapTex::Clone(RemapDir&) {
  auto* copy = new BitmapTex;
  copy->mapName_ = mapName_;
  copy->bytes_ = bytes_;
  copy->SetName(GetName());
  return copy;
}
