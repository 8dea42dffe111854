#include "sowfield/plugin/editcontext.h"

#include "host/interface.h"
#include "sowfield/plugin/sowfield.h"

namespace sowfield {

EditContext& TheEditContext() {
  static EditContext context;
  return context;
}

SowfieldPainter* EditContext::NeedPainter() {
  if (!currentPainter && currentObject)
    currentPainter =
        std::make_unique<SowfieldPainter>(currentObject->distribution, currentObject->paint);
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
  context.currentObject->paint.paintTool = tool;
  painter->SetPaintTool();
  return context.currentObject->paint.paintTool == tool;
}

}  // namespace sowfield
