// Photometric webs: measured intensity by direction, read from IES LM-63
// files (the 1995 and 2002 formats, and the older ones without a format
// line), and the sampler that hands a web to velk_qora_Lgt_PhotometricWeb.
//
// Only type C photometry is read: the vertical angle V runs from 0 (straight
// down the luminaire's axis) to 180 (straight up), the horizontal angle H
// about that axis, counter-clockwise seen from above. The usual horizontal
// symmetries are unfolded on look-up:
//
//   one angle (0)      the same in every direction about the axis
//   0 to 90            symmetric in each quadrant
//   0 to 180           symmetric about the plane H = 0-180
//   90 to 270          symmetric about the plane H = 90-270
//   0 to 360           no symmetry
//
// Between table angles the intensity is interpolated bilinearly in H and V;
// beyond the table's vertical range it is 0 (the luminaire sends nothing
// there). TILT=INCLUDE data is read and checked but not applied (the lamp is
// taken as measured); TILT from a separate file is refused.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "kvi/types.h"

namespace kvi::host {

struct PhotometricWeb {
  std::vector<float> verticalAngles;    // degrees, increasing, within [0, 180]
  std::vector<float> horizontalAngles;  // degrees, increasing, one of the layouts above
  // candela[h * verticalAngles.size() + v]: the intensity at horizontal angle h
  // and vertical angle v, the file's multiplier and ballast factors applied.
  std::vector<float> candela;

  // The intensity at horizontal angle H and vertical angle V, in degrees (H
  // taken modulo 360); 0 for non-finite angles.
  float intensity(float horizontal, float vertical) const;
};

// Reads IES LM-63 text. `fileName` names the file in messages. Throws Error
// "FILE:LINE: what was expected" on a malformed file: truncated, a count or
// type out of range, angles out of order, a negative intensity, data after
// the table, photometry other than type C.
PhotometricWeb parseIes(const std::string& text, const std::string& fileName);
// Reads an IES file; throws Error naming the file when it cannot be read or
// is malformed.
PhotometricWeb readIesFile(const std::string& path);

// A web bound to a texture parameter: sample(out, coords) looks it up at
// (s, t) = (H / 360, V / 180) and answers the intensity in r, g and b, alpha 1.
class PhotometricWebSampler : public ITextureSampler {
 public:
  explicit PhotometricWebSampler(PhotometricWeb web) : web_(std::move(web)) {}
  void sample(float out[4], const float* coords) override;
  const PhotometricWeb& web() const { return web_; }

 private:
  PhotometricWeb web_;
};

}  // namespace kvi::host
