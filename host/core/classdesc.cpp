#include "host/core/classdesc.h"

#include <dlfcn.h>

#include <algorithm>
#include <cwchar>
#include <map>

#include "host/core/paramblock.h"
#include "host/core/session.h"

void ClassDesc2::MakeAutoParamBlocks(ReferenceTarget* owner) {
  for (size_t i = 0; i < blockDescs_.size(); ++i) {
    auto* block = new IParamBlock2(*blockDescs_[i], owner);
    owner->ReplaceReference(int(i), block);
  }
}

namespace host {
namespace {

// Release of this host's interface, upper 16 bits; API number, next 8.
constexpr std::uint32_t kRelease = 20000;
constexpr std::uint32_t kApi = 50;

using StringKey = std::pair<HINSTANCE, unsigned>;

std::map<StringKey, const wchar_t*>& StringTables() {
  static std::map<StringKey, const wchar_t*> tables;
  return tables;
}

template <class F>
bool FindEntry(void* library, const char* name, F& entry, std::string& why) {
  entry = reinterpret_cast<F>(dlsym(library, name));
  if (!entry) why = std::string("it has no entry point ") + name;
  return entry != nullptr;
}

}  // namespace

ClassRegistry::~ClassRegistry() {
  for (size_t i = plugins_.size(); i-- > 0;) {
    plugins_[i].entries.LibShutdown();
    if (plugins_[i].library) dlclose(plugins_[i].library);
  }
}

ClassDesc2* ClassRegistry::Find(SClass_ID super, Class_ID id) const {
  for (ClassDesc2* d : classes_)
    if (d->SuperClassID() == super && d->ClassID() == id) return d;
  return nullptr;
}

bool ClassRegistry::LoadPlugin(const std::string& path, std::string& why) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    why = dlerror();
    return false;
  }
  PluginEntries e{};
  const bool complete = FindEntry(library, "LibDescription", e.LibDescription, why) &&
                        FindEntry(library, "LibNumberClasses", e.LibNumberClasses, why) &&
                        FindEntry(library, "LibClassDesc", e.LibClassDesc, why) &&
                        FindEntry(library, "LibVersion", e.LibVersion, why) &&
                        FindEntry(library, "LibInitialize", e.LibInitialize, why) &&
                        FindEntry(library, "LibShutdown", e.LibShutdown, why);
  if (!complete || !Register(e, library, why)) {
    dlclose(library);
    return false;
  }
  return true;
}

bool ClassRegistry::AddPlugin(const PluginEntries& entries, std::string& why) {
  return Register(entries, nullptr, why);
}

bool ClassRegistry::Register(const PluginEntries& entries, void* library, std::string& why) {
  const std::uint32_t version = entries.LibVersion();
  if (version >> 16 != kRelease || (version >> 8 & 255) != kApi) {
    why = "it was made for release " + std::to_string(version >> 16) + ", API " +
          std::to_string(version >> 8 & 255) + "; this host is release " +
          std::to_string(kRelease) + ", API " + std::to_string(kApi);
    return false;
  }
  if (!entries.LibInitialize()) {
    why = "it refused to start";
    return false;
  }
  std::vector<ClassDesc2*> found;
  for (int i = 0; i < entries.LibNumberClasses(); ++i) {
    ClassDesc2* desc = entries.LibClassDesc(i);
    if (!desc) continue;
    const auto sameId = [&](ClassDesc2* d) {
      return d->SuperClassID() == desc->SuperClassID() && d->ClassID() == desc->ClassID();
    };
    if (Find(desc->SuperClassID(), desc->ClassID()) ||
        std::any_of(found.begin(), found.end(), sameId)) {
      why = "a class of the same id is registered already";
      entries.LibShutdown();
      return false;
    }
    found.push_back(desc);
  }
  classes_.insert(classes_.end(), found.begin(), found.end());
  plugins_.push_back({entries, library});
  return true;
}

void RegisterStrings(HINSTANCE instance, const LibraryString* strings, size_t count) {
  for (size_t i = 0; i < count; ++i) StringTables()[{instance, strings[i].id}] = strings[i].text;
}

void UnRegisterStrings(HINSTANCE instance) {
  std::erase_if(StringTables(), [&](const auto& entry) { return entry.first.first == instance; });
}

}  // namespace host

int LoadStringW(HINSTANCE instance, unsigned id, wchar_t* buffer, int size) {
  const auto& tables = host::StringTables();
  const auto found = tables.find({instance, id});
  if (found == tables.end() || size <= 0) return 0;
  const size_t length = std::min(std::wcslen(found->second), size_t(size) - 1);
  std::wmemcpy(buffer, found->second, length);
  buffer[length] = 0;
  return int(length);
}

ReferenceTarget* CreateInstance(SClass_ID super, Class_ID id) {
  ClassDesc2* desc = host::CoreSession::InForce().classes.Find(super, id);
  return desc ? desc->Create(false) : nullptr;
}
