#include "host/viewport/viewports.h"

#include <algorithm>

#include "host/interface.h"

namespace host {

void Viewports::Redraw(TimeValue t) {
  again_ = true;
  time_ = t;
  if (drawing_) return;
  drawing_ = true;
  for (int pass = 0; again_ && pass < kMostPasses; ++pass) {
    again_ = false;
    if (draw_) draw_(time_);
    const std::vector<RedrawViewsCallback*> list = callbacks_;
    for (RedrawViewsCallback* c : list)
      if (std::find(callbacks_.begin(), callbacks_.end(), c) != callbacks_.end()) c->proc(ip_);
  }
  drawing_ = false;
}

void Viewports::Register(RedrawViewsCallback* callback) {
  UnRegister(callback);
  callbacks_.push_back(callback);
}

void Viewports::UnRegister(RedrawViewsCallback* callback) { std::erase(callbacks_, callback); }

void Viewports::PointerAt(const IPoint2& at, Modifiers keys) {
  mouse_ = at;
  keys_ = keys;
  Redraw(ip_->GetTime());
}

void Viewports::Press(const IPoint2& at, Modifiers keys) {
  PointerAt(at, keys);
  pressed_ = true;
  if (owner_) owner_->MousePressed(at);
}

void Viewports::Move(const IPoint2& at, Modifiers keys) {
  PointerAt(at, keys);
  if (owner_) owner_->MouseMoved(at, pressed_);
}

void Viewports::Release(const IPoint2& at, Modifiers keys) {
  PointerAt(at, keys);
  pressed_ = false;
  if (owner_) owner_->MouseReleased(at);
}

void Viewports::RightClick(const IPoint2& at) {
  PointerAt(at, keys_);
  if (owner_) owner_->RightClicked(at);
}

}  // namespace host
