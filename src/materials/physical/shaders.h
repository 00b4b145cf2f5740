// The physically based materials of the library, one line each (see
// frame/registry.h).
#pragma once

#define KVI_PHYSICAL_MATERIAL_SHADERS(X) \
  X(velk_qora_Mtl_Dielectric)            \
  X(velk_qora_Mtl_Glazing)               \
  X(velk_qora_Mtl_Metal)                 \
  X(velk_qora_Mtl_MetallicPaint)         \
  X(velk_qora_Mtl_Mirror)
