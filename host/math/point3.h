#pragma once

#include <cmath>

/// A point or direction, single precision. As a row vector it multiplies matrices from the left.
struct Point3 {
  float x, y, z;

  Point3() = default;  // left uninitialised: big vertex tables are written once, by their maker
  constexpr Point3(float px, float py, float pz) : x(px), y(py), z(pz) {}

  float& operator[](int i) { return (&x)[i]; }
  float operator[](int i) const { return (&x)[i]; }

  constexpr Point3 operator+(const Point3& o) const { return {x + o.x, y + o.y, z + o.z}; }
  constexpr Point3 operator-(const Point3& o) const { return {x - o.x, y - o.y, z - o.z}; }
  constexpr Point3 operator-() const { return {-x, -y, -z}; }
  constexpr Point3 operator*(float s) const { return {x * s, y * s, z * s}; }
  constexpr Point3 operator*(const Point3& o) const { return {x * o.x, y * o.y, z * o.z}; }
  Point3& operator+=(const Point3& o) { return *this = *this + o; }
  Point3& operator-=(const Point3& o) { return *this = *this - o; }
  constexpr bool operator==(const Point3& o) const = default;
};

inline float DotProd(const Point3& a, const Point3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

inline Point3 CrossProd(const Point3& a, const Point3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

/// Length in single precision: the square root of the float sum of squares in x, y, z order.
inline float Length(const Point3& v) { return std::sqrt(DotProd(v, v)); }

/// The unit vector along v; a vector without length is given back as it is.
inline Point3 Normalize(const Point3& v) {
  const double length = std::sqrt(double(v.x) * v.x + double(v.y) * v.y + double(v.z) * v.z);
  if (!(length > 0.0)) return v;
  return {float(v.x / length), float(v.y / length), float(v.z / length)};
}

inline bool IsFinite(const Point3& v) {
  return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

/// A position in a window, pixels from its upper left corner.
struct IPoint2 {
  int x = 0, y = 0;
  constexpr bool operator==(const IPoint2&) const = default;
};
