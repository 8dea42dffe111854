#include "host/core/notify.h"

#include <algorithm>

#include "host/core/session.h"

namespace host {

void NotificationCenter::Register(NOTIFYPROC proc, void* param, int code) {
  entries_.push_back({proc, param, code});
}

void NotificationCenter::UnRegister(NOTIFYPROC proc, void* param, int code) {
  std::erase(entries_, Entry{proc, param, code});
}

void NotificationCenter::Broadcast(NotifyInfo info) {
  const std::vector<Entry> list = entries_;
  for (const Entry& e : list) {
    if (e.code != info.intcode) continue;
    if (std::find(entries_.begin(), entries_.end(), e) == entries_.end()) continue;
    e.proc(e.param, &info);
  }
}

}  // namespace host

void RegisterNotification(NOTIFYPROC proc, void* param, int code) {
  host::CoreSession::InForce().notifications.Register(proc, param, code);
}

void UnRegisterNotification(NOTIFYPROC proc, void* param, int code) {
  if (host::CoreSession* s = host::CoreSession::InForceOrNull())
    s->notifications.UnRegister(proc, param, code);
}

void BroadcastNotification(NotifyInfo info) {
  host::CoreSession::InForce().notifications.Broadcast(info);
}
