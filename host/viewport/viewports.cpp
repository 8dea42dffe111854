#include "host/viewport/viewports.h"

#include <algorithm>

#include "host/interface.h"
#include "host/viewport/picturestore.h"

namespace host {

void Viewports::Redraw(TimeValue t) {
  again_ = true;
  time_ = t;
  if (!drawing_) RunPasses(painter_, true);
}

bool Viewports::RedrawApart(const ViewExp& view, TimeValue t, const Painter& painter) {
  if (drawing_) return false;
  again_ = true;
  time_ = t;
  if (RunPasses(painter, &view == Active()) > 1) Redraw(time_);
  return true;
}

int Viewports::RunPasses(const Painter& painter, bool callBack) {
  struct Mark {
    bool& on;
    ~Mark() { on = false; }
  } const mark{drawing_};
  drawing_ = true;
  int passes = 0;
  for (; again_ && passes < kMostPasses; ++passes) {
    again_ = false;
    if (active_) active_->getGW()->Clear();
    if (painter.draw) painter.draw(time_);
    if (callBack) CallBack();
    if (painter.present) painter.present(time_);
  }
  return passes;
}

PictureStore& Viewports::Store() {
  if (!store_) store_ = std::make_shared<PictureStore>();
  return *store_;
}

void Viewports::CallBack() {
  const std::vector<RedrawViewsCallback*> list = callbacks_;
  for (RedrawViewsCallback* c : list)
    if (std::find(callbacks_.begin(), callbacks_.end(), c) != callbacks_.end()) c->proc(ip_);
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

void Viewports::PointInto(std::shared_ptr<ViewExp> view, const IPoint2& at) {
  if (view != active_) {
    active_ = std::move(view);
    if (mouse_ == at) PointerAt({at.x > 0 ? at.x - 1 : at.x + 1, at.y}, keys_);
  }
  PointerAt(at, keys_);
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
