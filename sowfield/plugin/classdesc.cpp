#include "sowfield/plugin/classdesc.h"

#include "sowfield/model/classids.h"
#include "sowfield/model/invariants.h"
#include "sowfield/model/params.h"
#include "sowfield/model/repair.h"
#include "sowfield/plugin/sowfield.h"
#include "sowfield/resources/strings.h"

namespace sowfield {

SowfieldClassDesc::SowfieldClassDesc() : blockDesc_(MakeBlockDesc(this)) {}

ReferenceTarget* SowfieldClassDesc::Create(bool) { return new Sowfield; }

const wchar_t* SowfieldClassDesc::ClassName() { return GetString(kStringClassName); }
Class_ID SowfieldClassDesc::ClassID() { return kSowfieldClassID; }
const wchar_t* SowfieldClassDesc::Category() { return GetString(kStringCategory); }
HINSTANCE SowfieldClassDesc::HInstance() { return Instance(); }

std::string SowfieldClassDesc::FirstFault(const ReferenceTarget& object) {
  return FirstBreachAsStored(*static_cast<const Sowfield&>(object).pblock2);
}

std::vector<std::string> SowfieldClassDesc::Settle(ReferenceTarget& object) {
  return RepairSettings(*static_cast<Sowfield&>(object).pblock2);
}

std::vector<std::string> SowfieldClassDesc::Repair(ReferenceTarget& object) {
  return RepairTables(*static_cast<Sowfield&>(object).pblock2);
}

SowfieldClassDesc* GetSowfieldDesc() {
  static SowfieldClassDesc desc;
  return &desc;
}

}  // namespace sowfield
