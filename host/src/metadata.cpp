#include "kvi/host/metadata.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>

#include "kvi/host/error.h"

namespace kvi::host {
namespace {

const nlohmann::json& member(const nlohmann::json& object, const char* key, const std::string& where,
                             const std::string& file) {
  if (!object.is_object() || !object.contains(key))
    throw Error("parameter metadata '" + file + "': " + where + " has no \"" + key + "\"");
  return object[key];
}

std::string text(const nlohmann::json& object, const char* key, const std::string& where, const std::string& file) {
  const auto& value = member(object, key, where, file);
  if (!value.is_string())
    throw Error("parameter metadata '" + file + "': " + where + "." + key + " is not a string");
  return value.get<std::string>();
}

}  // namespace

std::string ModuleMetadata::pathBeside(const std::string& modulePath) {
  const size_t slash = modulePath.find_last_of('/');
  const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  size_t cut = modulePath.find(".so", nameStart);
  if (cut == std::string::npos) cut = modulePath.find_last_of('.');
  if (cut == std::string::npos || cut < nameStart) cut = modulePath.size();
  return modulePath.substr(0, cut) + ".json";
}

std::optional<ModuleMetadata> ModuleMetadata::loadBeside(const std::string& modulePath) {
  const std::string path = pathBeside(modulePath);
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return load(path);
}

ModuleMetadata ModuleMetadata::load(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw Error("parameter metadata '" + path + "': cannot be read");
  nlohmann::json json;
  try {
    json = nlohmann::json::parse(in);
  } catch (const nlohmann::json::exception& e) {
    throw Error("parameter metadata '" + path + "': not JSON (" + e.what() + ")");
  }
  ModuleMetadata metadata;
  metadata.path_ = path;
  const auto& shaders = member(json, "shaders", "the file", path);
  if (!shaders.is_array()) throw Error("parameter metadata '" + path + "': \"shaders\" is not an array");
  for (size_t i = 0; i < shaders.size(); ++i) {
    const std::string where = "shaders[" + std::to_string(i) + "]";
    const std::string shader = text(shaders[i], "name", where, path);
    const auto& parameters = member(shaders[i], "parameters", where, path);
    if (!parameters.is_array())
      throw Error("parameter metadata '" + path + "': " + where + ".parameters is not an array");
    for (size_t k = 0; k < parameters.size(); ++k) {
      const std::string at = where + ".parameters[" + std::to_string(k) + "]";
      metadata.docs_[{shader, text(parameters[k], "name", at, path)}] =
          ParameterDoc{text(parameters[k], "meaning", at, path), text(parameters[k], "range", at, path),
                       text(parameters[k], "unit", at, path)};
    }
  }
  return metadata;
}

const ParameterDoc* ModuleMetadata::find(const std::string& shader, const std::string& parameter) const {
  const auto it = docs_.find({shader, parameter});
  return it == docs_.end() ? nullptr : &it->second;
}

}  // namespace kvi::host
