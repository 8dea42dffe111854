#include "sowfield/model/paramedit.h"

#include <algorithm>
#include <cmath>

#include "host/interface.h"
#include "sowfield/model/displaymode.h"

namespace sowfield {
namespace {

// Heights that a spinner gives, by the unit of the scene.
struct Heights {
  double most, step;
};
constexpr Heights kHeights[] = {
    {5000, 0.1},      // inches
    {500'000, 1},     // feet
    {5000, 0.1},      // miles
    {5'000'000, 10},  // millimetres
    {500'000, 1},     // centimetres
    {5000, 0.1},      // metres
    {500, 0.01},      // kilometres
};
constexpr double kBrushStepOfKilometres = 0.5;

UnitType SceneUnit() {
  int unit = UNITS_METERS;
  float scale = 1;
  GetMasterUnitInfo(&unit, &scale);
  return UnitType(unit);
}

std::string Quoted(const ParamEntry& e) { return "\"" + ToUtf8(e.name) + "\""; }

// What follows the X scale of a row that it stands for.
struct Unified {
  Param x, y, z;
};
constexpr Unified kUnified[] = {{Tr_XScale_Min, Tr_YScale_Min, Tr_ZScale_Min},
                                {Tr_XScale_Max, Tr_YScale_Max, Tr_ZScale_Max}};

const Unified* FollowersOf(Param id) {
  for (const Unified& u : kUnified)
    if (u.x == id) return &u;
  return nullptr;
}

// An own value comes behind one that another has taken along.
int OrderOf(const ParamEntry& e) {
  if (e.id == Tr_Random || e.id == Tr_Unify || e.id == Display_Mode) return 0;
  const bool lower = e.upper != NoParam, follows = FollowersOf(e.id) != nullptr;
  return lower ? (follows ? 1 : 2) : (follows ? 3 : 4);
}

void Store(IParamBlock2& block, TimeValue t, const ParamEntry& e, int index, double value) {
  if (e.IsWhole()) {
    block.SetValue(e.id, t, int(value), index);
  } else {
    block.SetValue(e.id, t, float(value), index);
  }
}

// A value of a row, and the other end of it.
void StoreEnd(IParamBlock2& block, TimeValue t, Param id, int row, double value) {
  const ParamEntry& e = *FindParam(id);
  Store(block, t, e, row, value);
  if (e.upper != NoParam && block.GetInt(Tr_Random, t, row) == 0)
    Store(block, t, *FindParam(e.upper), row, value);
}

void Carry(Distribution& d, TimeValue t, const ParamWrite& w) {
  IParamBlock2& block = *d.block;
  const ParamEntry& e = *w.param;
  if (e.id == Tr_AnimOn && w.value != 0) EnsureAnimTable(d);
  if (e.form != IndexForm::Slot) {
    Store(block, t, e, w.index, w.value);
  } else {
    StoreEnd(block, t, e.id, w.index, w.value);
    const Unified* along = FollowersOf(e.id);
    if (along && block.GetInt(Tr_Unify, t, w.index) != 0)
      for (const Param id : {along->y, along->z}) StoreEnd(block, t, id, w.index, w.value);
  }
  if (e.id == Display_Mode && w.value != double(kShowCloud) && block.GetInt(PointCloud, t) != 1)
    block.SetValue(PointCloud, t, 1);
  if (e.refreshes == Refreshes::Shifts)
    for (const Param id : kShiftTables) block.Delete(id, 0, block.Count(id));
}

std::vector<Event> EventsOf(const ParamEntry& e) {
  std::vector<Event> events;
  if (IsRow(e)) events.push_back(Event::RowControlsChanged);
  if (e.refreshes == Refreshes::Variants || e.refreshes == Refreshes::Shifts)
    events.push_back(Event::VariationsDropped);
  switch (e.id) {
    case Display_Type:
      events.push_back(Event::TypeListChanged);
      break;
    case Geo_PaintPct:
      events.push_back(Event::PainterListChanged);
      break;
    case Brush_Size:
    case Brush_LineSize:
      events.push_back(Event::BrushSizeChanged);
      break;
    case Brush_Collision:
      events.push_back(Event::CollisionChanged);
      break;
    case Brush_Erase:
      events.push_back(Event::EraseChanceChanged);
      break;
    case ColorShift:
      events.push_back(Event::ColorShiftChanged);
      break;
    case Excl_On:
      events.push_back(Event::ExclusionChanged);
      break;
    default:  // the camera's parameters tell by themselves
      break;
  }
  return events;
}

}  // namespace

Range InputRange(const Distribution& d, const ParamEntry& e) {
  switch (e.id) {
    case Tr_ZPos_Min:
    case Tr_ZPos_Max: {
      const double most = kHeights[SceneUnit()].most;
      return {-most, most};
    }
    case Brush_Size:
    case Brush_LineSize:
      return {d.brushMinimum, e.panel.high};
    case Display_Type:
      return {e.panel.low, double(d.TypeCount())};
    default:
      return e.panel;
  }
}

double InputStep(const ParamEntry& e) {
  switch (e.id) {
    case Tr_ZPos_Min:
    case Tr_ZPos_Max:
      return kHeights[SceneUnit()].step;
    case Brush_Size:
    case Brush_LineSize:
    case Brush_Collision:
      return SceneUnit() == UNITS_KILOMETERS ? kBrushStepOfKilometres : e.step;
    default:
      return e.step;
  }
}

std::string WhyNotInput(const ParamEntry& e) {
  switch (e.role) {
    case Role::Reserved:
      return Quoted(e) + " is reserved and can't be set";
    case Role::Kept:
      return Quoted(e) + " is kept by the object itself: it changes with types, strokes and seeds";
    case Role::Mirrored:
      return Quoted(e) + " mirrors the panel's check box: set " + Quoted(*FindParam(e.mirrors)) +
             " of a " + (FindParam(e.mirrors)->form == IndexForm::Slot ? "row" : "type");
    case Role::Editable:
      break;
  }
  return e.IsNumber() ? "" : Quoted(e) + " holds no number";
}

std::string WhyNotValue(const ParamEntry& e, double value, const Range& range) {
  if (e.IsWhole() && value != std::trunc(value))
    return Quoted(e) + " takes a whole number, this is " + NumberText(value);
  // What is stored is compared: the least brush is a float.
  if (range.Contains(e.IsWhole() ? value : double(float(value)))) return {};
  return Quoted(e) + " can't be " + NumberText(value) + ": the range is " + RangeText(range);
}

std::string WhyNotWritable(const Distribution& d, const ParamWrite& w) {
  const ParamEntry& e = *w.param;
  if (std::string why = WhyNotInput(e); !why.empty()) return why;
  if (w.index < 0 || w.index >= d.block->Count(e.id))
    return Quoted(e) + " has no entry " + std::to_string(w.index);
  const Range range = InputRange(d, e);
  std::string why = WhyNotValue(e, w.value, range);
  if (why.empty()) return why;
  if (e.id == Display_Type) why += ", the number of types";
  if (range.low == d.brushMinimum && w.value < range.low &&
      (e.id == Brush_Size || e.id == Brush_LineSize))
    return Quoted(e) + " can't be " + NumberText(w.value) + ": with these types it is at least " +
           NumberText(d.brushMinimum);
  return why;
}

void WriteParams(Distribution& d, TimeValue t, std::vector<ParamWrite> writes) {
  std::stable_sort(writes.begin(), writes.end(), [](const ParamWrite& a, const ParamWrite& b) {
    return OrderOf(*a.param) < OrderOf(*b.param);
  });
  std::vector<Event> events;
  bool shows = false;
  for (const ParamWrite& w : writes) {
    Carry(d, t, w);
    shows = shows || w.param->refreshes == Refreshes::Object;
    for (const Event e : EventsOf(*w.param))
      if (std::find(events.begin(), events.end(), e) == events.end()) events.push_back(e);
  }
  for (const Event e : events) d.Tell(e);
  if (shows) d.RefreshObject();
}

}  // namespace sowfield
