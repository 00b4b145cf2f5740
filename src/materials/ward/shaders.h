// The Ward family, one line each (see frame/registry.h).
#pragma once

#define KVI_WARD_SHADERS(X) X(velk_qora_Mtl_Ward)
