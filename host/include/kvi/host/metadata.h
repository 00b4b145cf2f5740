// What each parameter of a module means, the values it takes and their unit,
// read from the metadata file the build installs beside the module
// (libkvishaders.so -> libkvishaders.json). The module's ABI carries names,
// kinds and places only; this file is for hosts and their users (parameter
// editors, validation hints, documentation).
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "kvi/host/shader_info.h"

namespace kvi::host {

struct ParameterDoc {
  std::string meaning;
  std::string range;  // text, e.g. "0 to 1", "0 or more per channel"; empty where the kind says all
  std::string unit;   // e.g. "scene units", "radians"; empty when unitless
};

class ModuleMetadata {
 public:
  // The metadata file of a module: its path with the extension replaced by
  // ".json" (a ".so" suffix with a version, "libx.so.1", counts as ".so").
  static std::string pathBeside(const std::string& modulePath);

  // Reads the file beside the module; nullopt when there is none. Throws
  // Error naming the file (and the JSON path) when it cannot be read or is
  // not a metadata file.
  static std::optional<ModuleMetadata> loadBeside(const std::string& modulePath);
  static ModuleMetadata load(const std::string& path);

  // The documentation of one parameter, or null when the file has none.
  const ParameterDoc* find(const std::string& shader, const std::string& parameter) const;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::map<std::pair<std::string, std::string>, ParameterDoc> docs_;
};

}  // namespace kvi::host
