#pragma once

#include <initializer_list>
#include <string>

namespace host {

/// A library that is looked for by its file's name, and the package that brings it.
struct NeededLibrary {
  const char* file;
  const char* package;
};
/// Empty if one of them can be loaded, else says that they can't and what to install. OpenGL's
/// dispatcher ends the process where it finds none, so this is asked before.
std::string MissingLibrary(std::initializer_list<NeededLibrary> anyOf);

/// Makes the process's own OpenGL context, which has no surface, current on this thread while it
/// lives, and puts back what was current before. The context is made at first use and kept.
class GlScope {
 public:
  GlScope();
  GlScope(const GlScope&) = delete;
  GlScope& operator=(const GlScope&) = delete;
  ~GlScope();

  /// Empty if there is a context.
  const std::string& Error() const { return error_; }

 private:
  std::string error_;
  void* displayBefore_ = nullptr;
  void* contextBefore_ = nullptr;
  void* drawBefore_ = nullptr;
  void* readBefore_ = nullptr;
  unsigned apiBefore_ = 0;
};

}  // namespace host
