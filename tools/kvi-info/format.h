// Formatting parameter tables for kvi-info.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "kvi/host/metadata.h"
#include "kvi/host/shader_info.h"

namespace kvi::info {

// A parameter's default as text: "true", "0.5 0.5 0.5", "none", "unset".
std::string defaultText(const host::ParameterInfo& p);
// The same as JSON: a bool, number, array, {"slot": n} for a bound texture,
// null for an unbound one. Not called for unset fields.
nlohmann::json defaultJson(const host::ParameterInfo& p);

// The metadata may be null (a module installed without its metadata file):
// the meaning, range and unit are then left out.
std::string formatTable(const host::ShaderInfo& info, const host::ModuleMetadata* metadata);
nlohmann::json toJson(const host::ShaderInfo& info, const host::ModuleMetadata* metadata);
// One section per shader with a table of its parameters, for the parameter
// reference in the documentation.
std::string formatMarkdown(const host::ShaderInfo& info, const host::ModuleMetadata* metadata);

}  // namespace kvi::info
