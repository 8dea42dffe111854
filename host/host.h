#pragma once

#include <memory>

#include "host/core/session.h"
#include "host/interface.h"

namespace host {

/// A whole host, headless: while it lives, theHold, GetCOREInterface and the registries answer for
/// it. The newest host is in force; they must go in the reverse order of their making.
class Host {
 public:
  Host();
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  CoreSession& Core() { return *core_; }
  Hold& Undo() { return core_->hold; }
  ClassRegistry& Classes() { return core_->classes; }
  Interface& Services() { return *services_; }
  Scene& GetScene() { return services_->GetScene(); }
  Viewports& Views() { return services_->Views(); }

 private:
  std::unique_ptr<CoreSession> core_;
  std::unique_ptr<Interface> services_;
  Interface* before_;
};

}  // namespace host
