#pragma once

#include <array>
#include <span>

#include "host/core/paramdesc.h"
#include "host/core/reference.h"
#include "sowfield/model/listener.h"

namespace sowfield {

/// What the object does in answer to a message of its block.
enum class Effect {
  RefreshObject,
  ListReady0,
  ListReady1,
  RemoveNulledTypes,
  RemoveNulledSplines,
  DropVariations,
  CheckProxyFiles,
  TakeBrushMinimum,
  FitShownType,
  TellTypeList,
  TellPainterList,
  TellRowControls,
  TellStats,
  TellBrushSize,
  TellCollision,
  TellEraseChance,
  TellColorShift,
  TellExclusion,
  TellCamera,
};

/// What the decision depends on.
struct MessageState {
  RefMessage message;
  ParamID param;
  bool holding;          // an undo step is being recorded
  int restoreOrRedoing;  // 1 undo, 4 redo, else neither
  int listReady;
  int displayMode;
  bool refreshFollows;  // the step that is undone or redone comes to another refresh yet
};

/// An ordered list of effects.
class Effects {
 public:
  Effects& Add(Effect e) {
    effects_[count_++] = e;
    return *this;
  }
  const Effect* begin() const { return effects_.data(); }
  const Effect* end() const { return effects_.data() + count_; }
  bool empty() const { return count_ == 0; }

 private:
  std::array<Effect, 8> effects_;
  size_t count_ = 0;
};

/// The rule behind the object's answers to its block, as one table: a pure function. Undo sends its
/// messages from the last table of a change to the first, redo from first to last; so the gate
/// `listReady` closes at the first message and opens at the last, where the one refresh runs. Of
/// the other parameters that change what is shown the last one of a step refreshes, unless a
/// refresh of the lists or placements comes yet.
Effects Decide(const MessageState& s);

}  // namespace sowfield
