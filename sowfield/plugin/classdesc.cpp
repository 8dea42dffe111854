#include "sowfield/plugin/classdesc.h"

#include "sowfield/model/classids.h"
#include "sowfield/model/params.h"
#include "sowfield/plugin/entry.h"
#include "sowfield/plugin/sowfield.h"

namespace sowfield {

SowfieldClassDesc::SowfieldClassDesc() : blockDesc_(MakeBlockDesc(this)) {}

ReferenceTarget* SowfieldClassDesc::Create(bool) { return new Sowfield; }

const wchar_t* SowfieldClassDesc::ClassName() { return GetString(kStringClassName); }
Class_ID SowfieldClassDesc::ClassID() { return kSowfieldClassID; }
const wchar_t* SowfieldClassDesc::Category() { return GetString(kStringCategory); }
HINSTANCE SowfieldClassDesc::HInstance() { return Instance(); }

SowfieldClassDesc* GetSowfieldDesc() {
  static SowfieldClassDesc desc;
  return &desc;
}

}  // namespace sowfield
