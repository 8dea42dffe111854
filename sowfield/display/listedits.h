#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

namespace sowfield {

/// One change of a list: from entry `at` of the old list on, `removed` entries went, and `added`
/// came in their place.
struct ListEdit {
  size_t at = 0, removed = 0, added = 0;
  bool operator==(const ListEdit&) const = default;
};

/// Edits, ascending, that make a list of `before` entries one of `after`; same(i, j) tells whether
/// entry i of the old list is entry j of the new. What only went, only came or was only exchanged
/// is found as it is; where the kinds mix, more may be told than has changed. One walk over both
/// lists.
template <class Same>
std::vector<ListEdit> EditsBetween(size_t before, size_t after, const Same& same) {
  std::vector<ListEdit> edits;
  bool open = false;  // the last edit reaches to here
  for (size_t i = 0, j = 0; i < before || j < after;) {
    if (i < before && j < after && same(i, j)) {
      ++i, ++j, open = false;
      continue;
    }
    if (!open) edits.push_back({i, 0, 0});
    open = true;
    const size_t left = before - i, coming = after - j;
    if (left >= coming) ++i, ++edits.back().removed;
    if (coming >= left) ++j, ++edits.back().added;
  }
  return edits;
}

/// Moves what stays to its new places in a list of trivial entries; those that come are unset.
template <class List>
void ApplyEdits(List& list, std::span<const ListEdit> edits) {
  if (edits.empty()) return;
  // What went closes up from the front.
  auto* data = list.data();
  size_t end = edits[0].at, added = 0, removed = 0;
  for (size_t k = 0; k < edits.size(); ++k) {
    const size_t from = edits[k].at + edits[k].removed;
    const size_t to = k + 1 < edits.size() ? edits[k + 1].at : list.size();
    if (end != from) std::copy(data + from, data + to, data + end);
    end += to - from;
    added += edits[k].added, removed += edits[k].removed;
  }
  list.resize(end + added);
  // What comes opens up from the back.
  data = list.data();
  for (size_t k = edits.size(); k-- > 0 && added > 0;) {
    removed -= edits[k].removed;
    const size_t start = edits[k].at - removed;
    std::copy_backward(data + start, data + end, data + end + added);
    end = start, added -= edits[k].added;
  }
}

}  // namespace sowfield
