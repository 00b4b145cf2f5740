// The built-in scenes: the showcase rendered by default and the small scene
// of each gallery tile. They are made from whatever the module offers, so a
// new shader appears in them without code changes; known shaders get
// parameter values that show them well.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "render/shader_library.h"

namespace kvi::render {

// Every material on its own shader ball in a grid, lit by a mix of the
// module's lights, in front of a background.
nlohmann::json showcaseScene(const ShaderLibrary& library);

// The scene of one shader's gallery tile: a material on a ball, a light over
// a ground plane with a ball, an environment as the camera sees it.
nlohmann::json galleryScene(const ShaderLibrary& library, const std::string& shader, int size, int samplesPerPixel,
                            uint32_t seed);

// Parameter values that show a shader well: the known shaders' own choices,
// then values by name pattern for fields the constructor leaves unset. Only
// parameters the shader declares, with the kind they are declared with.
nlohmann::json presetParameters(const ShaderLibrary& library, const std::string& shader);

}  // namespace kvi::render
