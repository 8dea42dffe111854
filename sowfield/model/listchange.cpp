#include "sowfield/model/listchange.h"

namespace sowfield {

ListChange::Gate::Gate(Distribution& dist) : d(dist) {
  ++d.changes_;
  d.SetListReady(0);
}

ListChange::Gate::~Gate() {
  if (--d.changes_ > 0) return;
  d.SetListReady(1);
  // The tables are as before; what shows them may have seen the half.
  if (cancelled) d.RefreshObject();
}

ListChange::ListChange(Distribution& d, const wchar_t* name) : gate_(d), step_(name) {}

ListChange::~ListChange() { gate_.cancelled = step_.Open(); }

}  // namespace sowfield
