#include "studio/diff/align.h"

#include <algorithm>

namespace studio {
namespace {

class Aligner {
 public:
  explicit Aligner(std::span<const AlignKeys> levels) : levels_(levels) {}

  std::vector<AlignedPair> Run() {
    Part(0, {0, int(levels_[0].a.size())}, {0, int(levels_[0].b.size())});
    return std::move(pairs_);
  }

 private:
  struct Range {
    int begin, end;
    int Size() const { return end - begin; }
  };

  void Part(size_t level, Range a, Range b) {
    if (a.Size() == 0 || b.Size() == 0 || level == levels_.size()) return InOrder(a, b);
    const AlignKeys& keys = levels_[level];
    const auto same = [&](int i, int j) { return keys.a[size_t(i)] == keys.b[size_t(j)]; };
    while (a.Size() > 0 && b.Size() > 0 && same(a.begin, b.begin))
      pairs_.push_back({a.begin++, b.begin++});
    const int end = a.end;
    while (a.Size() > 0 && b.Size() > 0 && same(a.end - 1, b.end - 1)) --a.end, --b.end;
    Between(level, a, b);
    for (int i = a.end, j = b.end; i < end; ++i, ++j) pairs_.push_back({i, j});
  }

  void Between(size_t level, Range a, Range b) {
    for (const AlignedPair& p : InBothOrders(Matches(level, a, b))) {
      Part(level + 1, {a.begin, p.a}, {b.begin, p.b});
      pairs_.push_back(p);
      a.begin = p.a + 1, b.begin = p.b + 1;
    }
    Part(level + 1, a, b);
  }

  void InOrder(Range a, Range b) {
    while (a.Size() > 0 && b.Size() > 0) pairs_.push_back({a.begin++, b.begin++});
    for (; a.Size() > 0; ++a.begin) pairs_.push_back({a.begin, -1});
    for (; b.Size() > 0; ++b.begin) pairs_.push_back({-1, b.begin});
  }

  // Entries with equal keys, the first to the first; by their place in a.
  std::vector<AlignedPair> Matches(size_t level, Range a, Range b) const {
    const auto byKey = [](const std::vector<std::uint64_t>& keys, Range range) {
      std::vector<int> places;
      for (int i = range.begin; i < range.end; ++i) places.push_back(i);
      std::sort(places.begin(), places.end(), [&](int x, int y) {
        const auto kx = keys[size_t(x)], ky = keys[size_t(y)];
        return kx != ky ? kx < ky : x < y;
      });
      return places;
    };
    const AlignKeys& keys = levels_[level];
    const std::vector<int> inA = byKey(keys.a, a), inB = byKey(keys.b, b);
    std::vector<AlignedPair> matches;
    for (size_t i = 0, j = 0; i < inA.size() && j < inB.size();) {
      const auto ka = keys.a[size_t(inA[i])], kb = keys.b[size_t(inB[j])];
      if (ka == kb) matches.push_back({inA[i], inB[j]});
      if (ka <= kb) ++i;
      if (kb <= ka) ++j;
    }
    std::sort(matches.begin(), matches.end(),
              [](const AlignedPair& x, const AlignedPair& y) { return x.a < y.a; });
    return matches;
  }

  // The most of them whose places rise in b too: the longest increasing subsequence, by the piles
  // of a game of patience (C. Schensted, Longest Increasing and Decreasing Subsequences, 1961).
  static std::vector<AlignedPair> InBothOrders(const std::vector<AlignedPair>& matches) {
    std::vector<size_t> tops;                   // of each pile, the match on top
    std::vector<size_t> below(matches.size());  // the top of the pile before, when it was laid
    for (size_t i = 0; i < matches.size(); ++i) {
      const auto pile =
          std::lower_bound(tops.begin(), tops.end(), matches[i].b,
                           [&](size_t top, int place) { return matches[top].b < place; });
      if (pile != tops.begin()) below[i] = *std::prev(pile);
      if (pile == tops.end()) {
        tops.push_back(i);
      } else {
        *pile = i;
      }
    }
    std::vector<AlignedPair> chosen(tops.size());
    for (size_t n = tops.size(), i = n ? tops.back() : 0; n-- > 0; i = below[i])
      chosen[n] = matches[i];
    return chosen;
  }

  std::span<const AlignKeys> levels_;
  std::vector<AlignedPair> pairs_;
};

}  // namespace

std::vector<AlignedPair> Align(std::span<const AlignKeys> levels) { return Aligner(levels).Run(); }

}  // namespace studio
