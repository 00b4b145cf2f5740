// The environment shaders of the library, one line each (see frame/registry.h).
#pragma once

#define KVI_ENVIRONMENT_SHADERS(X) \
  X(SimpleBackground)              \
  X(GradientBackground)            \
  X(ImageBackground)               \
  X(velk_qora_Env_Sky)
