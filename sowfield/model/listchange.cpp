#include "sowfield/model/listchange.h"

#include <cstdio>
#include <exception>

namespace sowfield {

ListChange::Gate::Gate(Distribution& dist) : d(dist) {
  ++d.changes_;
  d.SetListReady(0);
}

ListChange::Gate::~Gate() {
  if (--d.changes_ > 0) return;
  // Nothing may leave here, where something may be on its way out already. The tables stand; what
  // shows them is made at the next need.
  try {
    d.SetListReady(1);
    // The tables are as before; what shows them may have seen the half.
    if (cancelled) d.RefreshObject();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "Sowfield: after a change of its lists: %s\n", e.what());
  }
}

ListChange::ListChange(Distribution& d, const wchar_t* name) : gate_(d), step_(name) {}

ListChange::~ListChange() { gate_.cancelled = step_.Open(); }

}  // namespace sowfield
