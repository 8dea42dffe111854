#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/core/reference.h"

class ParamBlockDesc2;

/// Describes a class to the host and makes its objects.
class ClassDesc2 {
 public:
  virtual ~ClassDesc2() = default;
  virtual int IsPublic() { return 1; }
  virtual ReferenceTarget* Create(bool loading) = 0;
  /// May be null, if the library's text is missing; callers copy at once.
  virtual const wchar_t* ClassName() = 0;
  virtual SClass_ID SuperClassID() = 0;
  virtual Class_ID ClassID() = 0;
  virtual const wchar_t* Category() = 0;
  virtual const wchar_t* InternalName() { return nullptr; }
  virtual HINSTANCE HInstance() { return nullptr; }

  /// The first thing in what an object stores that would hinder it from being opened again, in one
  /// line; empty if it is sound. Scenes with such an object are neither saved nor opened.
  virtual std::string FirstFault(const ReferenceTarget&) { return {}; }
  /// The next two change an object that was just read, and tell each change in a line. It isn't in
  /// use yet, and all that it refers to is there. FirstFault is asked afterwards.
  /// At each opening: values that agree with each other, but would do harm in use.
  virtual std::vector<std::string> Settle(ReferenceTarget&) { return {}; }
  /// Where a damaged scene is recovered: all that FirstFault would find.
  virtual std::vector<std::string> Repair(ReferenceTarget&) { return {}; }

  /// Registers a block descriptor; block 0 is made from the first one.
  void AddParamBlockDesc(ParamBlockDesc2* desc) { blockDescs_.push_back(desc); }
  /// Makes the blocks and hands each to the owner through its ReplaceReference.
  void MakeAutoParamBlocks(ReferenceTarget* owner);

 private:
  std::vector<ParamBlockDesc2*> blockDescs_;
};

/// The six entry points of a plug-in library.
struct PluginEntries {
  const wchar_t* (*LibDescription)();
  int (*LibNumberClasses)();
  ClassDesc2* (*LibClassDesc)(int);
  std::uint32_t (*LibVersion)();
  int (*LibInitialize)();
  int (*LibShutdown)();
};

namespace host {

/// Classes that a host knows: its own and those of its plug-ins.
class ClassRegistry {
 public:
  ClassRegistry() = default;
  ~ClassRegistry();
  ClassRegistry(const ClassRegistry&) = delete;
  ClassRegistry& operator=(const ClassRegistry&) = delete;

  void Add(ClassDesc2* desc) { classes_.push_back(desc); }
  ClassDesc2* Find(SClass_ID super, Class_ID id) const;
  const std::vector<ClassDesc2*>& All() const { return classes_; }

  /// Loads a library, checks its entry points and version, registers its classes. On failure
  /// nothing is registered and `why` says what is wrong.
  bool LoadPlugin(const std::string& path, std::string& why);
  /// The same for code that is part of the program.
  bool AddPlugin(const PluginEntries& entries, std::string& why);

 private:
  struct Loaded {
    PluginEntries entries;
    void* library;  // null for code of the program
  };
  bool Register(const PluginEntries& entries, void* library, std::string& why);

  std::vector<ClassDesc2*> classes_;
  std::vector<Loaded> plugins_;
};

/// Makes the texts of a library known under its handle. The views must live as long as it does.
struct LibraryString {
  unsigned id;
  const wchar_t* text;
};
void RegisterStrings(HINSTANCE instance, const LibraryString* strings, size_t count);
void UnRegisterStrings(HINSTANCE instance);

}  // namespace host

/// Looks up a text of a library. Returns its length, cut to size - 1; 0 without such a text.
int LoadStringW(HINSTANCE instance, unsigned id, wchar_t* buffer, int size);

/// Null when no such class is registered.
ReferenceTarget* CreateInstance(SClass_ID super, Class_ID id);
