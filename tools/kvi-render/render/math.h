// Small vector and affine-transform arithmetic for the renderer's geometry.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

namespace kvi::render {

constexpr float kPi = 3.14159265358979f;
constexpr float kInvPi = 0.318309886f;

struct Vec3 {
  float x = 0.0f, y = 0.0f, z = 0.0f;

  constexpr Vec3() = default;
  constexpr Vec3(float x_, float y_, float z_) : x(x_), y(y_), z(z_) {}
  explicit Vec3(const float* v) : x(v[0]), y(v[1]), z(v[2]) {}

  float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
  float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  void store(float* out) const {
    out[0] = x;
    out[1] = y;
    out[2] = z;
  }
};

inline Vec3 operator+(Vec3 a, Vec3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Vec3 operator-(Vec3 a, Vec3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Vec3 operator-(Vec3 a) { return {-a.x, -a.y, -a.z}; }
inline Vec3 operator*(Vec3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Vec3 operator*(float s, Vec3 a) { return a * s; }
inline Vec3 operator*(Vec3 a, Vec3 b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
inline Vec3 operator/(Vec3 a, float s) { return a * (1.0f / s); }
inline Vec3& operator+=(Vec3& a, Vec3 b) { return a = a + b; }
inline Vec3& operator*=(Vec3& a, Vec3 b) { return a = a * b; }
inline Vec3& operator*=(Vec3& a, float s) { return a = a * s; }

inline float dot(Vec3 a, Vec3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Vec3 cross(Vec3 a, Vec3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }
inline float length(Vec3 a) { return std::sqrt(dot(a, a)); }
inline float maxComponent(Vec3 a) { return std::max(a.x, std::max(a.y, a.z)); }
inline bool isFinite(Vec3 a) { return std::isfinite(a.x) && std::isfinite(a.y) && std::isfinite(a.z); }
inline bool isBlack(Vec3 a) { return !(a.x > 0.0f || a.y > 0.0f || a.z > 0.0f); }

// Unit length, or the vector itself when its length is zero or not finite.
inline Vec3 normalize(Vec3 a) {
  const float l = length(a);
  return l > 0.0f && std::isfinite(l) ? a / l : a;
}

// normalize(a), telling in `unit` when the result is for certain a finite
// vector within rounding of unit length: when the length was a normal float,
// neither tiny nor huge. Callers that check the result with a second square
// root (length(n) > 0.5f) need it only when `unit` is false; done for speed,
// as that root sits on every bounce's critical path.
inline Vec3 normalize(Vec3 a, bool& unit) {
  const float l = length(a);
  unit = l >= 1e-18f && l <= 1e18f;
  return l > 0.0f && std::isfinite(l) ? a / l : a;
}

// Two unit vectors completing n (unit) to a right-handed orthonormal frame.
inline void orthonormalBasis(Vec3 n, Vec3& t, Vec3& b) {
  const float sign = std::copysign(1.0f, n.z);
  const float a = -1.0f / (sign + n.z);
  const float c = n.x * n.y * a;
  t = {1.0f + sign * n.x * n.x * a, sign * c, -sign * n.x};
  b = {c, sign + n.y * n.y * a, -n.y};
}

// An affine transform, column-vector convention: p' = M p + t, stored as the
// rows of a 3 x 4 matrix.
struct Affine {
  std::array<float, 12> m{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0};

  static Affine translation(Vec3 t) {
    Affine a;
    a.m[3] = t.x;
    a.m[7] = t.y;
    a.m[11] = t.z;
    return a;
  }
  static Affine scaling(Vec3 s) {
    Affine a;
    a.m[0] = s.x;
    a.m[5] = s.y;
    a.m[10] = s.z;
    return a;
  }
  // Rotation by an angle in degrees about a (not necessarily unit) axis.
  static Affine rotation(Vec3 axis, float degrees) {
    const Vec3 u = normalize(axis);
    const float r = degrees * kPi / 180.0f, c = std::cos(r), s = std::sin(r), k = 1.0f - c;
    Affine a;
    a.m = {c + u.x * u.x * k,       u.x * u.y * k - u.z * s, u.x * u.z * k + u.y * s, 0,
           u.y * u.x * k + u.z * s, c + u.y * u.y * k,       u.y * u.z * k - u.x * s, 0,
           u.z * u.x * k - u.y * s, u.z * u.y * k + u.x * s, c + u.z * u.z * k,       0};
    return a;
  }

  Vec3 point(Vec3 p) const {
    return {m[0] * p.x + m[1] * p.y + m[2] * p.z + m[3], m[4] * p.x + m[5] * p.y + m[6] * p.z + m[7],
            m[8] * p.x + m[9] * p.y + m[10] * p.z + m[11]};
  }
  Vec3 vector(Vec3 v) const {
    return {m[0] * v.x + m[1] * v.y + m[2] * v.z, m[4] * v.x + m[5] * v.y + m[6] * v.z,
            m[8] * v.x + m[9] * v.y + m[10] * v.z};
  }
  // Multiplies by the transpose of the linear part: with the inverse's
  // transpose this carries normals.
  Vec3 transposedVector(Vec3 v) const {
    return {m[0] * v.x + m[4] * v.y + m[8] * v.z, m[1] * v.x + m[5] * v.y + m[9] * v.z,
            m[2] * v.x + m[6] * v.y + m[10] * v.z};
  }
  float determinant() const {
    return m[0] * (m[5] * m[10] - m[6] * m[9]) - m[1] * (m[4] * m[10] - m[6] * m[8]) +
           m[2] * (m[4] * m[9] - m[5] * m[8]);
  }
  // The inverse; a singular transform gives all zeros.
  Affine inverse() const {
    const float d = determinant();
    Affine r;
    if (d == 0.0f || !std::isfinite(d)) {
      r.m.fill(0.0f);
      return r;
    }
    const float i = 1.0f / d;
    r.m[0] = (m[5] * m[10] - m[6] * m[9]) * i;
    r.m[1] = (m[2] * m[9] - m[1] * m[10]) * i;
    r.m[2] = (m[1] * m[6] - m[2] * m[5]) * i;
    r.m[4] = (m[6] * m[8] - m[4] * m[10]) * i;
    r.m[5] = (m[0] * m[10] - m[2] * m[8]) * i;
    r.m[6] = (m[2] * m[4] - m[0] * m[6]) * i;
    r.m[8] = (m[4] * m[9] - m[5] * m[8]) * i;
    r.m[9] = (m[1] * m[8] - m[0] * m[9]) * i;
    r.m[10] = (m[0] * m[5] - m[1] * m[4]) * i;
    const Vec3 t = r.vector({m[3], m[7], m[11]});
    r.m[3] = -t.x;
    r.m[7] = -t.y;
    r.m[11] = -t.z;
    return r;
  }
};

// a after b: (a * b) p = a(b(p)).
inline Affine operator*(const Affine& a, const Affine& b) {
  Affine r;
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 4; ++col) {
      float v = a.m[row * 4 + 0] * b.m[col] + a.m[row * 4 + 1] * b.m[4 + col] + a.m[row * 4 + 2] * b.m[8 + col];
      if (col == 3) v += a.m[row * 4 + 3];
      r.m[row * 4 + col] = v;
    }
  }
  return r;
}

}  // namespace kvi::render
