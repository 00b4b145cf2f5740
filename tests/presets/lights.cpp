// Realistic configurations of the light shaders.
#include "presets.h"

KVI_PRESET(DirectionalLight, unshadowed) { f.block.setBool("castShadows", 0); }
KVI_PRESET(velk_qora_Lgt_Direction, bright) { f.block.setFloat("intensity", 3.5f); }
KVI_PRESET(velk_qora_Lgt_Sky, unshadowed) { f.block.setBool("cast_shadows", 0); }
