#include "sowfield/model/messages.h"

#include "sowfield/model/displaymode.h"
#include "sowfield/model/params.h"

namespace sowfield {
namespace {

void RefreshLists(Effects& out) {
  out.Add(Effect::TakeBrushMinimum)
      .Add(Effect::FitShownType)
      .Add(Effect::TellTypeList)
      .Add(Effect::TellPainterList)
      .Add(Effect::RefreshObject);
}

// A value that came back and shows in the picture. Rows belong to types, which may be coming too.
Effects OnShown(const MessageState& s, const ParamEntry& e) {
  Effects out;
  if (IsRow(e)) {
    if (!s.listReady) return out;
    out.Add(Effect::TellRowControls);
  }
  return s.refreshFollows ? out : out.Add(Effect::RefreshObject);
}

Effects OnChange(const MessageState& s) {
  Effects out;
  const bool undo = !s.holding && s.restoreOrRedoing == 1;
  const bool redo = !s.holding && s.restoreOrRedoing == 4;
  const bool restored = undo || redo;
  const bool ready = s.listReady != 0;

  switch (s.param) {
    case Display_Mode:
      return restored && s.refreshFollows ? out : out.Add(Effect::RefreshObject);
    case Display_Type:
      if (!restored) return out;
      out.Add(Effect::TellTypeList);
      if (!s.refreshFollows) out.Add(Effect::RefreshObject);
      return out.Add(Effect::TellStats);
    case Geo_Kind:
      if (s.holding) return out;
      if (undo) RefreshLists(out);
      return out.Add(redo ? Effect::ListReady0 : Effect::ListReady1);
    case Geo_Names:
      if (s.holding) return out;
      if (redo) RefreshLists(out);
      return out.Add(undo ? Effect::ListReady0 : Effect::ListReady1);
    case Ins_Pos:
      if (undo && ready) out.Add(Effect::RefreshObject).Add(Effect::TellStats);
      return out;
    case Ins_AnimRand:
      if (redo && ready) out.Add(Effect::RefreshObject).Add(Effect::TellStats);
      return out;
    case Geo_PaintPct:
      if (restored && ready) out.Add(Effect::TellPainterList);
      return out;
    case Brush_Size:
    case Brush_LineSize:
      return restored ? out.Add(Effect::TellBrushSize) : out;
    case Brush_Collision:
      return restored ? out.Add(Effect::TellCollision) : out;
    case Brush_Erase:
      return restored ? out.Add(Effect::TellEraseChance) : out;
    case ColorShift:
      return restored ? out.Add(Effect::TellColorShift) : out;
    case Excl_Splines:
    case Excl_On:
      if (!restored) return out;
      out.Add(Effect::TellExclusion);
      return !IsLightMode(s.displayMode) ? out.Add(Effect::RefreshObject) : out;
    case CamClip:
    case Cam_Radio:
      return out.Add(Effect::TellCamera);
    case CamNode:
      return s.holding ? out : out.Add(Effect::TellCamera);
    case Proxy_Files:
      return out.Add(Effect::CheckProxyFiles);
    default:
      break;
  }
  const ParamEntry* e = FindParam(s.param);
  return restored && e && e->refreshes == Refreshes::Object ? OnShown(s, *e) : out;
}

Effects OnNulled(ParamID id) {
  Effects out;
  switch (id) {
    case Geo_Nodes:
    case Proxy_Nodes:
      return out.Add(Effect::RemoveNulledTypes);
    case CamNode:
      return out.Add(Effect::TellCamera);
    case Excl_Splines:
      return out.Add(Effect::RemoveNulledSplines).Add(Effect::TellExclusion);
    default:
      return out;
  }
}

}  // namespace

Effects Decide(const MessageState& s) {
  switch (s.message) {
    case REFMSG_CHANGE:
      return OnChange(s);
    case REFMSG_TAB_ELEMENT_NULLED:
      return OnNulled(s.param);
    case REFMSG_NODE_TABLE_SET:
      return s.param == Geo_Nodes ? Effects().Add(Effect::DropVariations) : Effects();
    default:
      return {};
  }
}

}  // namespace sowfield
