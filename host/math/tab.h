#pragma once

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace MaxSDK::Util {

/// Raised by a Tab that is asked for an entry it doesn't have.
class TabOutOfRangeException : public std::out_of_range {
 public:
  TabOutOfRangeException()
      : std::out_of_range("Invalid index passed into a Max SDK Tab::operator[]") {}
};

}  // namespace MaxSDK::Util

/// A contiguous list whose indexing is checked in every build.
template <class T>
class Tab {
 public:
  int Count() const { return int(items_.size()); }
  void SetCount(int n) { items_.resize(size_t(n)); }
  void Append(const T& item) { items_.push_back(item); }
  void Append(int n, const T* items) { items_.insert(items_.end(), items, items + n); }
  void Delete(int start, int n) {
    if (start < 0 || n < 0 || start > Count() || n > Count() - start)
      throw MaxSDK::Util::TabOutOfRangeException();
    items_.erase(items_.begin() + start, items_.begin() + start + n);
  }
  void ZeroCount() { items_.clear(); }
  bool Contains(const T& item) const {
    return std::find(items_.begin(), items_.end(), item) != items_.end();
  }

  T& operator[](int i) { return items_[Checked(i)]; }
  const T& operator[](int i) const { return items_[Checked(i)]; }

  auto begin() { return items_.begin(); }
  auto end() { return items_.end(); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }
  bool operator==(const Tab&) const = default;

 private:
  size_t Checked(int i) const {
    if (i < 0 || i >= Count()) throw MaxSDK::Util::TabOutOfRangeException();
    return size_t(i);
  }

  std::vector<T> items_;
};
