#include "render/geometry.h"

#include <tiny_obj_loader.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <tuple>

namespace kvi::render {
namespace {

uint32_t addVertex(Mesh& m, Vec3 p, Vec3 n, float u, float v) {
  m.positions.push_back(p);
  m.normals.push_back(n);
  m.uvs.push_back({u, v});
  return uint32_t(m.positions.size() - 1);
}

void addQuad(Mesh& m, uint32_t a, uint32_t b, uint32_t c, uint32_t d) {
  m.indices.insert(m.indices.end(), {a, b, c, a, c, d});
}

// A point of a turned profile: radius, height, the profile's outward normal
// (in the r-y plane) and the v coordinate.
struct ProfilePoint {
  float r, y, nr, ny;
};
using ProfilePiece = std::vector<ProfilePoint>;  // smooth inside, hard edges between pieces

void appendArc(ProfilePiece& piece, float centreY, float radius, float fromAngle, float toAngle, int steps,
               float radialScale = 1.0f) {
  for (int i = 0; i <= steps; ++i) {
    const float a = fromAngle + (toAngle - fromAngle) * float(i) / float(steps);
    const float s = std::sin(a), c = std::cos(a);
    piece.push_back({radius * c * radialScale, centreY + radius * s, c, s});
  }
}

// Turns the pieces about the Y axis; v runs along the profile's length.
Mesh turnProfile(const std::vector<ProfilePiece>& pieces, int segments) {
  float total = 0.0f;
  for (const auto& piece : pieces)
    for (size_t i = 1; i < piece.size(); ++i)
      total += std::hypot(piece[i].r - piece[i - 1].r, piece[i].y - piece[i - 1].y);
  Mesh m;
  float travelled = 0.0f;
  for (const auto& piece : pieces) {
    const uint32_t first = uint32_t(m.positions.size());
    for (size_t i = 0; i < piece.size(); ++i) {
      if (i > 0) travelled += std::hypot(piece[i].r - piece[i - 1].r, piece[i].y - piece[i - 1].y);
      for (int s = 0; s <= segments; ++s) {
        const float phi = 2.0f * kPi * float(s) / float(segments);
        const float c = std::cos(phi), sn = std::sin(phi);
        const ProfilePoint& p = piece[i];
        addVertex(m, {p.r * c, p.y, -p.r * sn}, normalize(Vec3{p.nr * c, p.ny, -p.nr * sn}),
                  float(s) / float(segments), travelled / total);
      }
    }
    const uint32_t row = uint32_t(segments + 1);
    for (size_t i = 0; i + 1 < piece.size(); ++i)
      for (int s = 0; s < segments; ++s) {
        const uint32_t a = first + uint32_t(i) * row + uint32_t(s);
        addQuad(m, a, a + 1, a + 1 + row, a + row);
      }
  }
  return m;
}

}  // namespace

Mesh makePlane(float sizeX, float sizeZ, float uvScale) {
  Mesh m;
  const float hx = 0.5f * sizeX, hz = 0.5f * sizeZ;
  const Vec3 up{0, 1, 0};
  const uint32_t a = addVertex(m, {-hx, 0, hz}, up, 0, 0);
  const uint32_t b = addVertex(m, {hx, 0, hz}, up, uvScale, 0);
  const uint32_t c = addVertex(m, {hx, 0, -hz}, up, uvScale, uvScale);
  const uint32_t d = addVertex(m, {-hx, 0, -hz}, up, 0, uvScale);
  addQuad(m, a, b, c, d);
  completeVertexFrames(m);
  return m;
}

Mesh makeBox(Vec3 size) {
  Mesh m;
  const Vec3 h = size * 0.5f;
  // Each face: its normal and two in-face axes (u, v) with u x v = normal.
  const Vec3 faces[6][3] = {{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}, {{-1, 0, 0}, {0, 0, 1}, {0, 1, 0}},
                            {{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}, {{0, -1, 0}, {1, 0, 0}, {0, 0, 1}},
                            {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}},  {{0, 0, -1}, {-1, 0, 0}, {0, 1, 0}}};
  for (const auto& f : faces) {
    const Vec3 n = f[0], u = f[1], v = f[2];
    const Vec3 centre = n * h, du = u * h, dv = v * h;
    const uint32_t a = addVertex(m, centre - du - dv, n, 0, 0);
    const uint32_t b = addVertex(m, centre + du - dv, n, 1, 0);
    const uint32_t c = addVertex(m, centre + du + dv, n, 1, 1);
    const uint32_t d = addVertex(m, centre - du + dv, n, 0, 1);
    addQuad(m, a, b, c, d);
  }
  completeVertexFrames(m);
  return m;
}

Mesh makeSphereMesh(int rings, int segments) {
  ProfilePiece arc;
  appendArc(arc, 0.0f, 1.0f, -0.5f * kPi, 0.5f * kPi, rings);
  Mesh m = turnProfile({arc}, segments);
  completeVertexFrames(m);
  return m;
}

Mesh makeShaderBall(int segments) {
  const float ballRadius = 0.8f, ballCentre = 1.0f;
  const float groove = 0.08f;  // half-angle of the groove band, radians
  std::vector<ProfilePiece> pieces(7);
  // Pedestal: bottom disk, side, top ring.
  pieces[0] = {{0.0f, 0.0f, 0, -1}, {0.75f, 0.0f, 0, -1}};
  pieces[1] = {{0.75f, 0.0f, 1, 0}, {0.75f, 0.12f, 1, 0}};
  pieces[2] = {{0.75f, 0.12f, 0, 1}, {0.3f, 0.12f, 0, 1}};
  // Neck up to where the ball's surface has radius 0.3.
  const float neckTop = ballCentre - std::sqrt(ballRadius * ballRadius - 0.09f);
  pieces[3] = {{0.3f, 0.12f, 1, 0}, {0.3f, neckTop, 1, 0}};
  // The ball below the groove, the groove itself (slightly inset), and the
  // ball above it.
  const float neckAngle = -std::acos(0.3f / ballRadius);
  appendArc(pieces[4], ballCentre, ballRadius, neckAngle, -groove, 40);
  appendArc(pieces[5], ballCentre, ballRadius, -groove, groove, 6, 0.94f);
  appendArc(pieces[6], ballCentre, ballRadius, groove, 0.5f * kPi, 48);
  Mesh m = turnProfile(pieces, segments);
  completeVertexFrames(m);
  return m;
}

namespace {

// One corner of an OBJ face, by the file's 0-based indices (-1: none).
struct ObjCorner {
  int vertex, normal, texcoord;
};

std::string firstLine(const std::string& text) { return text.substr(0, text.find_first_of("\r\n")); }

// The corners of every face after triangulation, each index checked against
// what the file defines.
std::vector<ObjCorner> objCorners(const tinyobj::ObjReader& reader, const std::string& path) {
  const auto& a = reader.GetAttrib();
  const long long counts[3] = {(long long)a.vertices.size() / 3, (long long)a.normals.size() / 3,
                               (long long)a.texcoords.size() / 2};
  const char* names[3] = {"vertex", "normal", "texture coordinate"};
  std::vector<ObjCorner> corners;
  for (const auto& shape : reader.GetShapes())
    for (const auto& index : shape.mesh.indices) {
      const int refs[3] = {index.vertex_index, index.normal_index, index.texcoord_index};
      for (int k = 0; k < 3; ++k)
        if ((k == 0 && refs[k] < 0) || refs[k] >= counts[k])
          throw std::runtime_error("OBJ '" + path + "': a face refers to " + names[k] + " " +
                                   std::to_string(refs[k] + 1) + ", but the file defines " +
                                   std::to_string(counts[k]));
      corners.push_back({refs[0], refs[1], refs[2]});
    }
  return corners;
}

uint32_t floatBits(float f) {
  uint32_t bits;
  std::memcpy(&bits, &f, sizeof bits);
  return bits;
}

}  // namespace

Mesh loadObj(const std::string& path, float creaseAngleDegrees) {
  tinyobj::ObjReaderConfig config;
  config.triangulate = true;
  config.vertex_color = true;
  tinyobj::ObjReader reader;
  if (!reader.ParseFromFile(path, config)) {
    const std::string reason = firstLine(reader.Error());
    throw std::runtime_error("cannot read OBJ '" + path + "': " + (reason.empty() ? "unknown error" : reason));
  }
  // The reader skips faces with indices it cannot resolve and only warns.
  const std::string& warning = reader.Warning();
  if (warning.find("out of bounds") != std::string::npos || warning.find("invalid") != std::string::npos)
    throw std::runtime_error("OBJ '" + path + "': " + firstLine(warning));
  const std::vector<ObjCorner> corners = objCorners(reader, path);
  if (corners.empty()) throw std::runtime_error("OBJ '" + path + "' has no faces (is it an OBJ file?)");
  const auto& attrib = reader.GetAttrib();
  std::vector<Vec3> positions;
  for (size_t v = 0; 3 * v + 2 < attrib.vertices.size(); ++v) {
    positions.push_back({attrib.vertices[3 * v], attrib.vertices[3 * v + 1], attrib.vertices[3 * v + 2]});
    if (!isFinite(positions.back()))
      throw std::runtime_error("OBJ '" + path + "': vertex " + std::to_string(v + 1) + " is not finite");
  }

  // Normals per corner: the file's when every corner has one, else split at
  // creases.
  bool fileNormals = true, hasUvs = true;
  for (const ObjCorner& c : corners) {
    fileNormals = fileNormals && c.normal >= 0;
    hasUvs = hasUvs && c.texcoord >= 0;
  }
  std::vector<Vec3> normals;
  if (fileNormals) {
    for (const ObjCorner& c : corners) {
      const size_t n = size_t(c.normal);
      normals.push_back(normalize(Vec3{attrib.normals[3 * n], attrib.normals[3 * n + 1], attrib.normals[3 * n + 2]}));
    }
  } else {
    std::vector<uint32_t> triangles;
    for (const ObjCorner& c : corners) triangles.push_back(uint32_t(c.vertex));
    normals = creaseNormals(positions, triangles, creaseAngleDegrees);
  }

  const bool hasColours = attrib.colors.size() == attrib.vertices.size() && !attrib.colors.empty();
  Mesh m;
  std::map<std::tuple<int, int, uint32_t, uint32_t, uint32_t>, uint32_t> unique;
  for (size_t i = 0; i < corners.size(); ++i) {
    const ObjCorner& c = corners[i];
    const Vec3 n = normals[i];
    const int t = hasUvs ? c.texcoord : -1;
    const auto key = std::make_tuple(c.vertex, t, floatBits(n.x), floatBits(n.y), floatBits(n.z));
    const auto [found, added] = unique.emplace(key, uint32_t(m.positions.size()));
    m.indices.push_back(found->second);
    if (!added) continue;
    const size_t v = size_t(c.vertex);
    m.positions.push_back(positions[v]);
    m.normals.push_back(n);
    if (hasUvs) m.uvs.push_back({attrib.texcoords[2 * size_t(t)], attrib.texcoords[2 * size_t(t) + 1]});
    if (hasColours) m.colors.push_back({attrib.colors[3 * v], attrib.colors[3 * v + 1], attrib.colors[3 * v + 2], 1.0f});
  }
  completeVertexFrames(m);
  return m;
}

std::vector<Vec3> creaseNormals(const std::vector<Vec3>& positions, const std::vector<uint32_t>& indices,
                                float creaseAngleDegrees) {
  const size_t triangles = indices.size() / 3;
  std::vector<Vec3> area(triangles), unit(triangles);  // area-weighted and unit face normals
  for (size_t t = 0; t < triangles; ++t) {
    const Vec3 a = positions[indices[3 * t]], b = positions[indices[3 * t + 1]], c = positions[indices[3 * t + 2]];
    area[t] = cross(b - a, c - a);
    unit[t] = normalize(area[t]);
  }
  // The triangles around each vertex, as one list cut into runs.
  std::vector<size_t> start(positions.size() + 1, 0);
  for (uint32_t v : indices) ++start[v + 1];
  for (size_t v = 0; v < positions.size(); ++v) start[v + 1] += start[v];
  std::vector<uint32_t> around(indices.size());
  std::vector<size_t> filled(start.begin(), start.end() - 1);
  for (size_t i = 0; i < indices.size(); ++i) around[filled[indices[i]]++] = uint32_t(i / 3);

  const float cosCrease = std::cos(std::clamp(creaseAngleDegrees, 0.0f, 180.0f) * kPi / 180.0f);
  std::vector<Vec3> normals(indices.size());
  for (size_t i = 0; i < indices.size(); ++i) {
    const size_t t = i / 3, first = start[indices[i]], last = start[indices[i] + 1];
    Vec3 sum = area[t];
    if (last - first <= kMaxSmoothedFan)
      for (size_t k = first; k < last; ++k)
        if (around[k] != t && dot(unit[t], unit[around[k]]) >= cosCrease) sum += area[around[k]];
    normals[i] = normalize(sum);
  }
  return normals;
}

void completeVertexFrames(Mesh& m) {
  const size_t n = m.positions.size();
  const bool needNormals = m.normals.size() != n;
  if (needNormals) m.normals.assign(n, Vec3{});
  std::vector<Vec3> tangentSum(n, Vec3{});
  for (size_t t = 0; t + 2 < m.indices.size(); t += 3) {
    const uint32_t i0 = m.indices[t], i1 = m.indices[t + 1], i2 = m.indices[t + 2];
    const Vec3 e1 = m.positions[i1] - m.positions[i0], e2 = m.positions[i2] - m.positions[i0];
    const Vec3 faceNormal = cross(e1, e2);  // area weighted
    if (needNormals)
      for (uint32_t i : {i0, i1, i2}) m.normals[i] += faceNormal;
    if (m.uvs.size() == n) {
      const float du1 = m.uvs[i1][0] - m.uvs[i0][0], dv1 = m.uvs[i1][1] - m.uvs[i0][1];
      const float du2 = m.uvs[i2][0] - m.uvs[i0][0], dv2 = m.uvs[i2][1] - m.uvs[i0][1];
      const float det = du1 * dv2 - du2 * dv1;
      if (det != 0.0f && std::isfinite(det)) {
        const Vec3 dpdu = (e1 * dv2 - e2 * dv1) * (1.0f / det);
        for (uint32_t i : {i0, i1, i2}) tangentSum[i] += normalize(dpdu);
      }
    }
  }
  m.tangents.resize(n);
  for (size_t i = 0; i < n; ++i) {
    if (needNormals) m.normals[i] = normalize(m.normals[i]);
    const Vec3 normal = m.normals[i];
    Vec3 t = tangentSum[i] - normal * dot(normal, tangentSum[i]);
    if (!(length(t) > 1e-8f)) {
      Vec3 b;
      orthonormalBasis(normal, t, b);
    }
    m.tangents[i] = normalize(t);
  }
}

size_t dropInvalidTriangles(Mesh& m) {
  std::vector<uint32_t> kept;
  kept.reserve(m.indices.size());
  size_t dropped = 0;
  for (size_t t = 0; t + 2 < m.indices.size(); t += 3) {
    bool valid = true;
    for (int k = 0; k < 3; ++k) {
      const uint32_t i = m.indices[t + size_t(k)];
      valid = valid && i < m.positions.size() && isFinite(m.positions[i]);
    }
    if (valid)
      kept.insert(kept.end(), m.indices.begin() + long(t), m.indices.begin() + long(t) + 3);
    else
      ++dropped;
  }
  dropped += (m.indices.size() % 3 != 0) ? 1 : 0;
  m.indices = std::move(kept);
  return dropped;
}

}  // namespace kvi::render
