#include "sowfield/panels/editcontext.h"

#include "host/interface.h"

namespace sowfield {

EditContext& TheEditContext() {
  static EditContext context;
  return context;
}

SowfieldPainter* EditContext::NeedPainter() {
  if (!currentPainter && currentObject)
    currentPainter = std::make_unique<SowfieldPainter>(currentObject->EditedDistribution(),
                                                       currentObject->EditedPaintState());
  return currentPainter.get();
}

void EditContext::ClosePainter() {
  if (currentPainter && currentPainter->HasPaintSystem()) currentPainter->EndPaint();
  currentPainter.reset();
}

bool PressToolButton(int tool) {
  GetCOREInterface()->ClearPickMode();
  EditContext& context = TheEditContext();
  SowfieldPainter* painter = context.NeedPainter();
  if (!painter) return false;
  if (tool == kNoTool) {
    painter->EndPaint();
    return true;
  }
  PaintState& state = context.currentObject->EditedPaintState();
  state.paintTool = tool;
  painter->SetPaintTool();
  return state.paintTool == tool;
}

}  // namespace sowfield
