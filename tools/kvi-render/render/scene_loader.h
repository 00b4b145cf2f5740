// Reading the JSON scene format (docs/scene-format.md).
#pragma once

#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "render/scene.h"
#include "render/shader_library.h"

namespace kvi::render {

// A scene that cannot be used. The message is one line: the scene file, the
// JSON pointer of the offending value (e.g. /objects/2/material/parameters/
// diffuse) and what was expected.
class SceneError : public std::runtime_error {
 public:
  SceneError(const std::string& file, const std::string& pointer, const std::string& what);
  const std::string& file() const { return file_; }
  const std::string& pointer() const { return pointer_; }

 private:
  std::string file_;
  std::string pointer_;
};

// The JSON of a scene file (throws SceneError naming the file when it cannot
// be read or is not JSON).
nlohmann::json readSceneDocument(const std::string& path);

// Reads, checks and builds the scene in a file; relative paths inside it are
// taken from the file's folder.
std::unique_ptr<Scene> loadSceneFile(const std::string& path, std::shared_ptr<const ShaderLibrary> library);

// Builds a scene from JSON already in memory. `label` names it in errors;
// relative paths are taken from baseDirectory.
std::unique_ptr<Scene> loadScene(const nlohmann::json& document, const std::string& label,
                                 const std::string& baseDirectory, std::shared_ptr<const ShaderLibrary> library);

// The light type a light shader is placed as when the scene does not say,
// guessed from its name (e.g. a name with "Spot" is a spot light); empty when
// the name says nothing.
std::optional<LightType> lightTypeFromShaderName(const std::string& shader);

}  // namespace kvi::render
