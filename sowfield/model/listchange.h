#pragma once

#include "host/core/hold.h"
#include "sowfield/model/distribution.h"

namespace sowfield {

/// A change of the type list or of the placements as one undo step: whoever changes more than one
/// table makes one of these first.
///
/// From its making to its end `listReady` is 0, so that nobody sees half a change, and what isn't
/// accepted by then is taken back and shown again as it was. Changes nest: an inner one is part of
/// the outer one's step, and the list is ready when the outermost ends.
class ListChange {
 public:
  ListChange(Distribution& d, const wchar_t* name);
  ~ListChange();
  ListChange(const ListChange&) = delete;
  ListChange& operator=(const ListChange&) = delete;

  /// Closes the step. The list stays shut until the end, for what has to follow the change.
  void Accept() { step_.Accept(); }

 private:
  // Shuts the list before the step opens and opens it when the step is over.
  struct Gate {
    explicit Gate(Distribution& d);
    ~Gate();
    Distribution& d;
    bool cancelled = false;
  };
  Gate gate_;
  UndoStep step_;
};

}  // namespace sowfield
