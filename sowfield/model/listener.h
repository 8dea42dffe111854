#pragma once

namespace sowfield {

/// What operations tell to whoever shows the object: panels, lists, a render session. Events say
/// what changed; the values are read from the distribution.
enum class Event {
  TypeListChanged,     // rows of the object list and the type combos
  PainterListChanged,  // rows of the painter's list
  RowControlsChanged,  // the transform rows
  StatsChanged,        // counts of placements, faces, vertices
  PaintToolChanged,    // tool, or what the painter panel shows of it
  BrushSizeChanged,
  BrushLimitsChanged,
  CollisionChanged,
  EraseChanceChanged,
  ColorShiftChanged,
  ExclusionChanged,
  CameraChanged,
  VariationsDropped,  // stored variants no longer fit the types
};

/// Events about lists: held back while the tables are in the middle of a change.
constexpr bool IsListEvent(Event e) {
  return e == Event::TypeListChanged || e == Event::PainterListChanged ||
         e == Event::RowControlsChanged || e == Event::StatsChanged ||
         e == Event::VariationsDropped;
}

class Listener {
 public:
  virtual ~Listener() = default;
  virtual void OnEvent(Event event) = 0;
};

}  // namespace sowfield
