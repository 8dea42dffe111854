#include "sowfield/paint/boxtree.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace sowfield {
namespace {

constexpr float kCursorScale = 1.2f;

double Largest(const Point3& p) {
  return std::max({std::fabs(double(p.x)), std::fabs(double(p.y)), std::fabs(double(p.z))});
}

/// The slabs of a box against a line, in double, wide enough that no rounding of the exact test,
/// which works in single precision on a box that was widened in it, can find a hit beyond them.
/// A box round boxes, widened, goes round theirs.
class Slabs {
 public:
  Slabs(const SightLine& line, const Reach& reach)
      : from_(line.l1),
        share_(reach.scaled ? (double(kCursorScale) - 1) / 2 : 0),
        margin_(std::max(double(reach.radius), 0.0)),
        lineRoom_(1e-9 * Largest(line.l1)) {
    for (int i = 0; i < 3; ++i) way_[i] = double(line.l2[i]) - line.l1[i];
  }

  bool May(const Box3& box) const {
    if (box.IsEmpty()) return false;
    const double room =
        lineRoom_ + margin_ * (1 + 1e-6) + 2e-6 * std::max(Largest(box.pmin), Largest(box.pmax));
    double enter = 0, leave = 1;
    for (int i = 0; i < 3; ++i) {
      const double wide = room + share_ * (double(box.pmax[i]) - box.pmin[i]);
      const double low = double(box.pmin[i]) - wide - from_[i];
      const double high = double(box.pmax[i]) + wide - from_[i];
      if (way_[i] == 0) {
        if (low > 0 || high < 0) return false;
        continue;
      }
      const double a = low / way_[i], b = high / way_[i];
      enter = std::max(enter, std::min(a, b));
      leave = std::min(leave, std::max(a, b));
    }
    return enter <= leave;
  }

 private:
  Point3 from_;
  double way_[3];
  double share_, margin_, lineRoom_;
};

}  // namespace

void Reach::Widen(Box3& box) const { scaled ? box.Scale(kCursorScale) : box.EnlargeBy(radius); }

void BoxTree::Clear() { *this = {}; }

void BoxTree::Set(int number, const Box3& box) {
  const auto n = size_t(number);
  if (n >= boxes_.size()) {
    boxes_.resize(n + 1);
    leaves_.resize(n + 1, kNone);
  }
  if (boxes_[n] == box) return;
  const bool came = boxes_[n].IsEmpty();
  boxes_[n] = box;
  if (leaves_[n] == kNone) {
    if (came) aside_.push_back(number);
    if (box.IsEmpty()) std::erase(aside_, number);
    return;
  }
  ++changes_;
  tree_[size_t(leaves_[n])].box = box;
  for (int b = tree_[size_t(leaves_[n])].parent; b != kNone; b = tree_[size_t(b)].parent) {
    Branch& branch = tree_[size_t(b)];
    Box3 round = tree_[size_t(branch.left)].box;
    round += tree_[size_t(branch.right)].box;
    if (round == branch.box) break;
    branch.box = round;
  }
}

void BoxTree::Build() {
  std::vector<int> numbers;
  for (size_t n = 0; n < boxes_.size(); ++n)
    if (!boxes_[n].IsEmpty()) numbers.push_back(int(n));
  tree_.clear();
  tree_.reserve(2 * numbers.size());
  aside_.clear();
  changes_ = 0;
  std::fill(leaves_.begin(), leaves_.end(), kNone);
  if (!numbers.empty()) BuildOver(numbers.data(), numbers.data() + numbers.size(), kNone);
}

// Halves by the middles along the axis on which they lie furthest apart.
int BoxTree::BuildOver(int* first, int* last, int parent) {
  const int made = int(tree_.size());
  tree_.push_back({{}, parent});
  if (last - first == 1) {
    tree_.back().box = boxes_[size_t(*first)];
    tree_.back().right = *first;
    leaves_[size_t(*first)] = made;
    return made;
  }
  const auto middle = [&](int n) {
    return boxes_[size_t(n)].pmin * 0.5f + boxes_[size_t(n)].pmax * 0.5f;
  };
  Box3 middles;
  for (const int* n = first; n != last; ++n) middles += middle(*n);
  int axis = 0;
  for (const int i : {1, 2})
    if (middles.pmax[i] - middles.pmin[i] > middles.pmax[axis] - middles.pmin[axis]) axis = i;
  int* half = first + (last - first) / 2;
  std::nth_element(first, half, last,
                   [&](int a, int b) { return middle(a)[axis] < middle(b)[axis]; });
  const int left = BuildOver(first, half, made), right = BuildOver(half, last, made);
  Branch& branch = tree_[size_t(made)];
  branch.left = left, branch.right = right;
  branch.box = tree_[size_t(left)].box;
  branch.box += tree_[size_t(right)].box;
  return made;
}

void BoxTree::Meet(const SightLine& line, const Reach& reach, std::vector<int>& out) {
  constexpr size_t kMostAside = 32;
  const size_t leaves = tree_.size() / 2;
  if (aside_.size() > kMostAside + leaves / 32 || changes_ > kMostAside + leaves) Build();

  const Slabs slabs(line, reach);
  for (const int n : aside_)
    if (slabs.May(boxes_[size_t(n)])) out.push_back(n);
  std::vector<int> open;
  if (!tree_.empty()) open.push_back(0);
  while (!open.empty()) {
    const Branch& branch = tree_[size_t(open.back())];
    open.pop_back();
    if (!slabs.May(branch.box)) continue;
    if (branch.left == kNone) {
      out.push_back(branch.right);
    } else {
      open.push_back(branch.left);
      open.push_back(branch.right);
    }
  }
}

}  // namespace sowfield
