#pragma once

#include <memory>

#include "host/core/classdesc.h"
#include "host/core/paramdesc.h"

namespace sowfield {

/// Describes the class to the host; one static instance, built when the library loads.
class SowfieldClassDesc : public ClassDesc2 {
 public:
  SowfieldClassDesc();
  int IsPublic() override { return 1; }
  ReferenceTarget* Create(bool loading) override;
  const wchar_t* ClassName() override;
  SClass_ID SuperClassID() override { return GEOMOBJECT_CLASS_ID; }
  Class_ID ClassID() override;
  const wchar_t* Category() override;
  const wchar_t* InternalName() override { return L"Sowfield"; }
  HINSTANCE HInstance() override;
  std::string FirstFault(const ReferenceTarget& object) override;
  std::vector<std::string> Settle(ReferenceTarget& object) override;
  std::vector<std::string> Repair(ReferenceTarget& object) override;
  ParamBlockDesc2& BlockDesc() { return *blockDesc_; }

 private:
  std::unique_ptr<ParamBlockDesc2> blockDesc_;
};

SowfieldClassDesc* GetSowfieldDesc();

}  // namespace sowfield
