#include "host/core/notify.h"

#include <algorithm>

#include "host/core/session.h"

namespace host {

void NotificationCenter::Register(NOTIFYPROC proc, void* param, int code) {
  listeners_[code].list.push_back({proc, param});
}

void NotificationCenter::UnRegister(NOTIFYPROC proc, void* param, int code) {
  const auto of = listeners_.find(code);
  if (of == listeners_.end()) return;
  auto& [list, removals] = of->second;
  // From the end: what was made last mostly goes first.
  const auto found = std::find(list.rbegin(), list.rend(), Entry{proc, param});
  if (found == list.rend()) return;
  list.erase(std::next(found).base());
  ++removals;
}

void NotificationCenter::Broadcast(NotifyInfo info) {
  const auto of = listeners_.find(info.intcode);
  if (of == listeners_.end()) return;
  const Listeners& now = of->second;  // which stays where it is, whoever registers meanwhile
  const std::vector<Entry> list = now.list;
  const unsigned removalsAtStart = now.removals;
  for (const Entry& e : list) {
    const bool stillThere = now.removals == removalsAtStart ||
                            std::find(now.list.begin(), now.list.end(), e) != now.list.end();
    if (stillThere) e.proc(e.param, &info);
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
