// Stored constants that several shader families share, written with the
// digits their arithmetic is defined with: they are behaviour, not
// approximations to improve (a closer 2 pi or 1 / pi would change results).
#pragma once

namespace kvi {

inline constexpr float kTwoPi = 6.283186f;
// 1 / 3.141593 (bits 0x3EA2F982): the diffuse factor of the evaluated BSDFs
// and of gathered light.
inline constexpr float kInvPi = 0.31830984f;
// The lowest cosine a sampled diffuse direction may have: sin 1 degree, the
// same as cos 89 degrees.
inline constexpr float kMinDiffuseCosine = 0.01745241f;

}  // namespace kvi
