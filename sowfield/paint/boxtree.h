#pragma once

#include <vector>

#include "host/math/box3.h"

namespace sowfield {

/// The line of sight from `l1` towards `l2`, a far point in its direction, world space.
struct SightLine {
  Point3 l1, l2;
};

/// How a box is widened before a line is tested against it.
struct Reach {
  bool scaled = false;  // by 1.2 about its centre, for a cursor that comes near
  float radius = 0;     // on each side, for a brush
  void Widen(Box3& box) const;
};

/// Boxes by number, in a tree of boxes round boxes, so that a line meets few of them.
///
/// A box that changes widens or narrows those round it; new ones stand aside until they are many.
/// Then, and when most have changed, the tree is built anew.
class BoxTree {
 public:
  /// Sets the box of a number from 0 on; an empty one takes it out.
  void Set(int number, const Box3& box);
  void Clear();
  /// Appends each number whose widened box a line may meet, in no order. It may name too many,
  /// never too few, of the boxes and lines that are finite.
  void Meet(const SightLine& line, const Reach& reach, std::vector<int>& out);

 private:
  static constexpr int kNone = -1;
  struct Branch {
    Box3 box;
    int parent = kNone;
    int left = kNone, right = kNone;  // of a leaf: none, and the number
  };
  void Build();
  int BuildOver(int* first, int* last, int parent);

  std::vector<Box3> boxes_;   // by number
  std::vector<int> leaves_;   // by number: its branch, none for one that stands aside
  std::vector<Branch> tree_;  // the root first
  std::vector<int> aside_;
  size_t changes_ = 0;  // since the tree was built
};

}  // namespace sowfield
