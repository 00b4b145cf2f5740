// The light shaders of the library, one line each (see frame/registry.h).
#pragma once

#define KVI_LIGHT_SHADERS(X)         \
  X(AmbientLight)                    \
  X(SimplePointLight)                \
  X(DirectionalLight)                \
  X(PointLight)                      \
  X(SpotLight)                       \
  X(DiffuseIBL)                      \
  X(velk_qora_Lgt_Diffuse)           \
  X(velk_qora_Lgt_Direction)         \
  X(velk_qora_Lgt_PhotometricWeb)    \
  X(velk_qora_Lgt_Sky)               \
  X(velk_qora_Lgt_Sphere)            \
  X(velk_qora_Lgt_Spot)
