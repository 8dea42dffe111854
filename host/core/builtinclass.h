#pragma once

#include "host/core/classdesc.h"

namespace host {

/// Descriptor of a class of the host itself, made by its default constructor.
template <class T>
class BuiltinClass : public ClassDesc2 {
 public:
  BuiltinClass(SClass_ID super, Class_ID id, const wchar_t* name)
      : super_(super), id_(id), name_(name) {}
  ReferenceTarget* Create(bool) override { return new T; }
  const wchar_t* ClassName() override { return name_; }
  SClass_ID SuperClassID() override { return super_; }
  Class_ID ClassID() override { return id_; }
  const wchar_t* Category() override { return L"Host"; }

 private:
  SClass_ID super_;
  Class_ID id_;
  const wchar_t* name_;
};

}  // namespace host
