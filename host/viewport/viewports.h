#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "host/viewport/viewexp.h"

class Interface;

/// Is called in each redraw, after the scene was drawn and while the active view can still draw.
class RedrawViewsCallback {
 public:
  virtual ~RedrawViewsCallback() = default;
  virtual void proc(Interface* ip) = 0;
};

namespace host {

class PictureStore;

/// Keys held with the mouse.
struct Modifiers {
  bool ctrl = false, alt = false, shift = false;
};

/// Who owns the mouse in the views, such as a running paint session. Positions are pixels of the
/// active view.
class MouseOwner {
 public:
  virtual ~MouseOwner() = default;
  virtual void MousePressed(const IPoint2& at) = 0;
  virtual void MouseMoved(const IPoint2& at, bool pressed) = 0;
  virtual void MouseReleased(const IPoint2& at) = 0;
  virtual void RightClicked(const IPoint2& at) = 0;
};

/// The views of a host, their redraw, and the mouse in them.
class Viewports {
 public:
  explicit Viewports(Interface* ip) : ip_(ip) {}

  /// Makes a view the active one; null leaves none.
  void SetActive(std::shared_ptr<ViewExp> view) { active_ = std::move(view); }
  ViewExp* Active() const { return active_.get(); }
  const std::shared_ptr<ViewExp>& ActiveView() const { return active_; }

  /// Redraws at once; asked for inside a redraw it marks the views, which are then drawn once more
  /// when the running redraw ends, at the time asked for last, at most `kMostPasses` times in all.
  void Redraw(TimeValue t);
  bool IsDrawing() const { return drawing_; }
  /// What draws the scene, before the callbacks, and shows it with what they added, behind them.
  struct Painter {
    std::function<void(TimeValue)> draw, present;
  };
  /// None without a window.
  void SetPainter(std::function<void(TimeValue)> draw,
                  std::function<void(TimeValue)> present = nullptr) {
    painter_ = {std::move(draw), std::move(present)};
  }
  /// A redraw of one view alone, such as a picture's, by a painter of its own. What asks for a
  /// redraw meanwhile gets it as in Redraw, and the windows follow. The callbacks draw into the
  /// active view, so they are called if it is that one. False inside a redraw: nothing is done.
  bool RedrawApart(const ViewExp& view, TimeValue t, const Painter& painter);

  /// What drawing keeps from picture to picture.
  PictureStore& Store();

  void Register(RedrawViewsCallback* callback);
  /// Harmless for one that isn't registered, and during the call.
  void UnRegister(RedrawViewsCallback* callback);

  void SetMouseOwner(MouseOwner* owner) { owner_ = owner; }
  MouseOwner* GetMouseOwner() const { return owner_; }

  // The mouse, as a person or a job moves it. Each moves the pointer and redraws, so that whatever
  // follows the pointer is up to date, and then tells the owner.
  void Press(const IPoint2& at, Modifiers keys = {});
  void Move(const IPoint2& at, Modifiers keys = {});
  void Release(const IPoint2& at, Modifiers keys = {});
  void RightClick(const IPoint2& at);
  /// Makes a view the active one and brings the pointer to a place in it. What follows the pointer
  /// sees it move, be it to the same pixel of another view.
  void PointInto(std::shared_ptr<ViewExp> view, const IPoint2& at);
  const IPoint2& MousePosition() const { return mouse_; }
  const Modifiers& Keys() const { return keys_; }

  static constexpr int kMostPasses = 4;

 private:
  void PointerAt(const IPoint2& at, Modifiers keys);
  int RunPasses(const Painter& painter, bool callBack);
  void CallBack();

  Interface* ip_;
  std::shared_ptr<ViewExp> active_;
  std::vector<RedrawViewsCallback*> callbacks_;
  Painter painter_;
  std::shared_ptr<PictureStore> store_;  // made at first use
  MouseOwner* owner_ = nullptr;
  IPoint2 mouse_;
  Modifiers keys_;
  bool pressed_ = false;
  bool drawing_ = false;
  bool again_ = false;
  TimeValue time_ = 0;  // of the redraw that was asked for last
};

}  // namespace host
