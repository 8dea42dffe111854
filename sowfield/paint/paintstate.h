#pragma once

#include "sowfield/paint/collision.h"

namespace sowfield {

/// The stroke tools.
enum PaintTool : int { kNoTool = -1, kLineTool = 0, kMultiTool = 1, kEraseTool = 2 };

/// Run-time state of painting that outlives a painter.
struct PaintState {
  /// No tool before a button is pressed: 0 would show the line tool as chosen with no session.
  int paintTool = kNoTool;
  /// Direction of the line brush on its surface, radians; kept by the cursor.
  float brushAngle = 0;
  /// True while a render-side helper shows the placements by itself: no previews are made then.
  bool renderHelperLoaded = false;
  /// The positions in Ins_Pos, kept from stroke to stroke.
  CollisionIndex stored;
};

}  // namespace sowfield
