// The Ward family, one line for the base material; the generated variants'
// lines come from their description (variants.txt, see frame/registry.h).
#pragma once

#include "materials/ward/ward_variant_list.h"

#define KVI_WARD_SHADERS(X) \
  X(velk_qora_Mtl_Ward)     \
  KVI_WARD_VARIANT_SHADERS(X)
