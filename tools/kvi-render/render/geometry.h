// Triangle meshes: the built-in primitives and OBJ files.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "render/math.h"

namespace kvi::render {

// Indexed triangles with optional per-vertex attributes: normals, uv, colours
// and tangents are either empty or one per position.
struct Mesh {
  std::vector<Vec3> positions;
  std::vector<Vec3> normals;
  std::vector<std::array<float, 2>> uvs;
  std::vector<std::array<float, 4>> colors;
  std::vector<Vec3> tangents;  // along increasing u
  std::vector<uint32_t> indices;

  size_t triangleCount() const { return indices.size() / 3; }
};

// A square in the XZ plane centred on the origin, facing +Y, of the given
// side lengths; uv runs over [0, uvScale] along X and Z.
Mesh makePlane(float sizeX, float sizeZ, float uvScale = 1.0f);
// An axis-aligned box centred on the origin, one uv square per face.
Mesh makeBox(Vec3 size);
// A tessellated sphere of radius 1 (for emitters, which need triangles).
Mesh makeSphereMesh(int rings, int segments);
// The shader ball: a sphere with a groove around its equator on a short
// neck and a round pedestal, 1.8 units high, standing on y = 0, made by
// turning a profile about the Y axis.
Mesh makeShaderBall(int segments = 96);
// Reads the triangles of an OBJ file (polygons are triangulated, materials
// ignored). A file without normals gets creaseNormals() with the given
// crease angle. Throws std::runtime_error with a one-line reason when the
// file cannot be read, has no faces, refers to a vertex, normal or texture
// coordinate it does not define, or has a vertex that is not finite.
constexpr float kDefaultCreaseAngle = 30.0f;  // degrees
Mesh loadObj(const std::string& path, float creaseAngleDegrees = kDefaultCreaseAngle);

// Normals for the corners of indexed triangles (three indices each): a
// corner gets the area-weighted mean of the normals of the triangles around
// its vertex that meet its own triangle at no more than the crease angle
// (in degrees), so that edges sharper than that stay sharp (0: every
// triangle flat, 180: smooth across every edge). Around a vertex shared by
// more than kMaxSmoothedFan triangles each keeps its own normal, which
// bounds the work on pathological fans.
constexpr size_t kMaxSmoothedFan = 256;
std::vector<Vec3> creaseNormals(const std::vector<Vec3>& positions, const std::vector<uint32_t>& indices,
                                float creaseAngleDegrees);

// Fills tangents from the uv gradients of the triangles (a frame around the
// normal where uv is missing or degenerate) and normals from the faces where
// they are missing.
void completeVertexFrames(Mesh& mesh);
// Removes triangles that use an index out of range or have non-finite
// corners; returns how many were removed.
size_t dropInvalidTriangles(Mesh& mesh);

}  // namespace kvi::render
