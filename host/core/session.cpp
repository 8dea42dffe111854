#include "host/core/session.h"

#include <cstdio>
#include <cstdlib>

namespace host {
namespace {

CoreSession* inForce = nullptr;

}  // namespace

CoreSession::CoreSession() : before_(inForce) { inForce = this; }

CoreSession::~CoreSession() {
  hold.Clear();
  inForce = before_;
}

CoreSession* CoreSession::InForceOrNull() { return inForce; }

CoreSession& CoreSession::InForce() {
  if (!inForce) {
    std::fputs("host: a host service was used while no host is in force\n", stderr);
    std::abort();
  }
  return *inForce;
}

}  // namespace host

int SystemRand() { return host::CoreSession::InForce().systemRandom.Draw(); }
