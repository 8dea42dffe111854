#pragma once

#include <memory>

#include "sowfield/paint/painter.h"

namespace sowfield {

/// What panels and the creation by mouse need of the object that they act on.
class EditedObject {
 public:
  virtual ~EditedObject() = default;
  virtual Distribution& EditedDistribution() = 0;
  virtual PaintState& EditedPaintState() = 0;
  /// First set-up of an object that the user has just placed; its node must exist.
  virtual void InitNewObject() = 0;
};

/// Whose panels are in use, and the painter of that object. One set of panels exists at a time.
struct EditContext {
  /// Not cleared when panels close; cleared when the object dies.
  EditedObject* currentObject = nullptr;
  std::unique_ptr<SowfieldPainter> currentPainter;

  /// The painter of the current object, made at the first need; null without a current object.
  SowfieldPainter* NeedPainter();
  /// Ends paint mode and lets the painter go; harmless without one.
  void ClosePainter();
};
EditContext& TheEditContext();

/// Presses a tool button of the current object's painter panel: enters paint mode, changes the
/// tool, or leaves paint mode for kNoTool. False if that tool couldn't be entered.
bool PressToolButton(int tool);

}  // namespace sowfield
