#pragma once

#include <unordered_map>
#include <vector>

#include "host/math/interval.h"

class ReferenceTarget;

/// What a notification is about. `time` is set for the three render ones, `subject` for a deletion.
struct NotifyInfo {
  int intcode = 0;
  TimeValue time = 0;
  ReferenceTarget* subject = nullptr;
};

enum NotifyCode : int {
  NOTIFY_FILE_PRE_OPEN = 9,
  NOTIFY_FILE_POST_OPEN = 10,
  NOTIFY_PRE_RENDER = 20,
  NOTIFY_POST_RENDER = 21,
  NOTIFY_POST_RENDERFRAME = 23,
  NOTIFY_RENDER_PREEVAL = 57,
  /// A node has left the scene; `subject` is the node, still alive during the call.
  NOTIFY_NODE_LEFT_SCENE = 0x1001,
  /// A node's destructor has begun; `subject` is the node. Comes for nodes out of the scene too.
  NOTIFY_NODE_DESTROYED = 0x1002,
};

using NOTIFYPROC = void (*)(void* param, NotifyInfo* info);

void RegisterNotification(NOTIFYPROC proc, void* param, int code);
/// Takes the newest such registration back; harmless for what isn't registered.
void UnRegisterNotification(NOTIFYPROC proc, void* param, int code);
/// Calls in order of registration, over a copy: who is gone by then isn't called any more.
void BroadcastNotification(NotifyInfo info);

namespace host {

/// The registrations of one host.
class NotificationCenter {
 public:
  void Register(NOTIFYPROC proc, void* param, int code);
  void UnRegister(NOTIFYPROC proc, void* param, int code);
  void Broadcast(NotifyInfo info);

 private:
  struct Entry {
    NOTIFYPROC proc;
    void* param;
    bool operator==(const Entry&) const = default;
  };
  struct Listeners {
    std::vector<Entry> list;
    unsigned removals = 0;  // so that a broadcast notices them
  };
  // By code: objects that listen to files and renders don't make the coming and going of nodes
  // slower, of which there are many.
  std::unordered_map<int, Listeners> listeners_;
};

}  // namespace host
