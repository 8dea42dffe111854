#pragma once

#include <cstdint>

#include "host/core/assets.h"
#include "host/core/classdesc.h"
#include "host/core/hold.h"
#include "host/core/notify.h"
#include "host/math/interval.h"

namespace host {

/// The system's `rand`: 15 bits a draw, one sequence per host, so that a job replays.
class SystemRandom {
 public:
  void Seed(std::uint32_t seed) { state_ = seed; }
  /// 0 to 32767. The linear congruential step of the ISO C standard's example, 7.22.2.
  int Draw() {
    state_ = state_ * 1103515245u + 12345u;
    return int(state_ >> 16 & 0x7FFF);
  }

 private:
  std::uint32_t state_ = 1;
};

/// What the globals of the core answer for: one per host, the newest is in force.
class CoreSession {
 public:
  CoreSession();
  ~CoreSession();
  CoreSession(const CoreSession&) = delete;
  CoreSession& operator=(const CoreSession&) = delete;

  /// A host must be in force.
  static CoreSession& InForce();
  static CoreSession* InForceOrNull();

  NotificationCenter notifications;
  ClassRegistry classes;
  Hold hold;
  SystemRandom systemRandom;
  MaxSDK::AssetManagement::IAssetManager assets;
  /// The host's present time.
  TimeValue time = 0;

 private:
  CoreSession* before_;
};

}  // namespace host

/// The draw of the system library for programs of the host: 0 to RAND_LIMIT.
int SystemRand();
inline constexpr int RAND_LIMIT = 32767;
