// The UnifiedBitmap node: an image looked up through its placement, its
// colour scaled by "amount" and "gain". A flat image is looked up at
// (s, t, w) = (u, v, 0, 1) times "xform"; a cube image by the shading normal
// turned by the matrix's 3 x 3 part (row vector, no translation), as the
// host's direction look-ups take it. An unbound image reads as white (alpha
// 1), so that "gain" alone colours the node until an image is bound.
#include "materials/ward/nodes.h"

namespace kvi::ward {

NodeColor unifiedBitmapNode(const NodeHit& hit, const UnifiedBitmapParameters& node) {
  float texel[4] = {1.0f, 1.0f, 1.0f, 1.0f};
  if (node.texture.sampler) {
    texel[0] = texel[1] = texel[2] = 0.0f;
    float coords[3];
    if (node.isCube) {
      const float* n = hit.normal;
      const float(&m)[16] = node.xform;
      for (int j = 0; j < 3; ++j) coords[j] = n[0] * m[j] + n[1] * m[4 + j] + n[2] * m[8 + j];
    } else {
      const float uv[3] = {hit.uv[0], hit.uv[1], 0.0f};
      transformPoint(coords, uv, node.xform);
    }
    node.texture.sampler->sample(texel, coords);
  }
  return {{texel[0] * node.amount * node.gain[0], texel[1] * node.amount * node.gain[1],
           texel[2] * node.amount * node.gain[2], texel[3]}};
}

}  // namespace kvi::ward
