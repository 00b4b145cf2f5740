// The basic materials of the library, one line each (see frame/registry.h).
#pragma once

#define KVI_BASIC_MATERIAL_SHADERS(X) \
  X(BasicMaterial)                    \
  X(PhongReflective)                  \
  X(SolidEffect)                      \
  X(VertexColorEffect)
