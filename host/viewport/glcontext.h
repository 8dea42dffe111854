#pragma once

#include <string>

namespace host {

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
