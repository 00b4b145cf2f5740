#include "format.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <sstream>

namespace kvi::info {
namespace {

// The shortest text that reads back as the same float.
std::string floatText(float v) {
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, v);
  return std::string(buffer, result.ptr);
}

std::vector<float> floats(const host::ParameterInfo& p) {
  std::vector<float> v(host::kindFloatCount(p.kind));
  std::memcpy(v.data(), p.defaultValue.data(), v.size() * sizeof(float));
  return v;
}

int32_t intValue(const host::ParameterInfo& p) {
  int32_t v;
  std::memcpy(&v, p.defaultValue.data(), sizeof v);
  return v;
}

// Texture and clipping-map references share one layout: pointer, slot.
bool referenceBound(const host::ParameterInfo& p, int32_t& slot) {
  TextureRef ref;
  std::memcpy(&ref, p.defaultValue.data(), sizeof ref);
  slot = ref.slot;
  return ref.sampler != nullptr || ref.slot != -1;
}

bool isReference(host::ParamKind k) {
  return k == host::ParamKind::Texture || k == host::ParamKind::EnvironmentMap || k == host::ParamKind::ClippingMap;
}

}  // namespace

std::string defaultText(const host::ParameterInfo& p) {
  if (!p.hasDefault) return "unset";
  if (p.kind == host::ParamKind::Bool) {
    const uint8_t b = p.defaultValue[0];
    if (b == 0) return "false";
    if (b == 1) return "true";
    std::string text = "true (byte ";
    text += std::to_string(b);
    text += ")";
    return text;
  }
  if (p.kind == host::ParamKind::Int) return std::to_string(intValue(p));
  if (isReference(p.kind)) {
    int32_t slot;
    if (!referenceBound(p, slot)) return "none";
    return std::string("bound (slot ") + std::to_string(slot) + ")";
  }
  std::string text;
  for (float f : floats(p)) {
    if (!text.empty()) text += ' ';
    text += floatText(f);
  }
  return text;
}

nlohmann::json defaultJson(const host::ParameterInfo& p) {
  if (p.kind == host::ParamKind::Bool) return p.defaultValue[0] != 0;
  if (p.kind == host::ParamKind::Int) return intValue(p);
  if (isReference(p.kind)) {
    int32_t slot;
    return referenceBound(p, slot) ? nlohmann::json{{"slot", slot}} : nlohmann::json(nullptr);
  }
  nlohmann::json values = nlohmann::json::array();
  for (float f : floats(p)) {
    if (std::isfinite(f))
      values.push_back(f);
    else
      values.push_back(floatText(f));  // JSON has no infinities or NaN
  }
  return values.size() == 1 ? values[0] : values;
}

namespace {

const host::ParameterDoc* docOf(const host::ModuleMetadata* metadata, const host::ShaderInfo& info,
                                const host::ParameterInfo& p) {
  return metadata ? metadata->find(info.name, p.name) : nullptr;
}

// "meaning (range; unit)", the parts that are known.
std::string docText(const host::ParameterDoc& doc) {
  std::string text = doc.meaning;
  std::string detail = doc.range;
  if (!doc.unit.empty()) detail += (detail.empty() ? "" : "; ") + doc.unit;
  if (!detail.empty()) text += " (" + detail + ")";
  return text;
}

std::string markdownCell(std::string text) {
  std::string out;
  for (char c : text) {
    if (c == '|') out += "\\|";
    else out += c;
  }
  return out;
}

}  // namespace

std::string formatTable(const host::ShaderInfo& info, const host::ModuleMetadata* metadata) {
  std::ostringstream out;
  out << info.name << "  (" << host::shaderKindName(info.kind) << ", operation mask " << info.operationMask << ")\n";
  size_t nameWidth = 9, defaultWidth = 7;
  for (const auto& p : info.parameters) {
    nameWidth = std::max(nameWidth, p.name.size());
    defaultWidth = std::max(defaultWidth, defaultText(p).size());
  }
  char line[512];
  std::snprintf(line, sizeof line, "  %3s  %-*s  %-14s  %-*s%s\n", "#", int(nameWidth), "parameter", "kind",
                int(defaultWidth), "default", metadata ? "  meaning (range; unit)" : "");
  out << line;
  int index = 1;
  for (const auto& p : info.parameters) {
    std::snprintf(line, sizeof line, "  %3d  %-*s  %-14s  %-*s", index++, int(nameWidth), p.name.c_str(),
                  host::kindName(p.kind), int(defaultWidth), defaultText(p).c_str());
    std::string row = line;
    if (const auto* doc = docOf(metadata, info, p)) row += "  " + docText(*doc);
    while (!row.empty() && row.back() == ' ') row.pop_back();
    out << row << "\n";
  }
  if (info.parameters.empty()) out << "  (no parameters)\n";
  if (!info.varyings.empty()) {
    out << "  varyings:";
    for (const auto& v : info.varyings)
      out << " \"" << v.name << "\" (" << host::varyingKindName(v.kind) << ") at " << v.offset << ";";
    out.seekp(-1, std::ios_base::cur);
    out << "\n";
  }
  return out.str();
}

nlohmann::json toJson(const host::ShaderInfo& info, const host::ModuleMetadata* metadata) {
  nlohmann::json parameters = nlohmann::json::array();
  for (const auto& p : info.parameters) {
    nlohmann::json entry{{"name", p.name}, {"kind", host::kindName(p.kind)}, {"offset", p.offset}, {"size", p.size}};
    if (p.hasDefault)
      entry["default"] = defaultJson(p);
    else
      entry["unset"] = true;
    if (const auto* doc = docOf(metadata, info, p)) {
      entry["meaning"] = doc->meaning;
      entry["range"] = doc->range;
      entry["unit"] = doc->unit;
    }
    parameters.push_back(std::move(entry));
  }
  nlohmann::json varyings = nlohmann::json::array();
  for (const auto& v : info.varyings)
    varyings.push_back({{"name", v.name}, {"kind", v.kind}, {"kindName", host::varyingKindName(v.kind)},
                        {"offset", v.offset}});
  return {{"name", info.name},          {"kind", host::shaderKindName(info.kind)},
          {"operationMask", info.operationMask}, {"blockSize", info.blockSize},
          {"parameters", parameters},   {"varyings", varyings}};
}

std::string formatMarkdown(const host::ShaderInfo& info, const host::ModuleMetadata* metadata) {
  std::ostringstream out;
  out << "## " << info.name << "\n\n"
      << host::shaderKindName(info.kind) << ", operation mask " << info.operationMask << ", parameter block of "
      << info.blockSize << " bytes.\n\n";
  if (info.parameters.empty()) {
    out << "No parameters.\n";
  } else {
    out << "| # | parameter | kind | default | range | unit | meaning |\n|---|---|---|---|---|---|---|\n";
    int index = 1;
    for (const auto& p : info.parameters) {
      const auto* doc = docOf(metadata, info, p);
      out << "| " << index++ << " | `" << p.name << "` | " << host::kindName(p.kind) << " | "
          << markdownCell(defaultText(p)) << " | " << markdownCell(doc ? doc->range : "") << " | "
          << markdownCell(doc ? doc->unit : "") << " | " << markdownCell(doc ? doc->meaning : "") << " |\n";
    }
  }
  if (!info.varyings.empty()) {
    out << "\nVaryings:";
    const char* separator = " ";
    for (const auto& v : info.varyings) {
      out << separator << "\"" << v.name << "\" (" << host::varyingKindName(v.kind) << ") at " << v.offset;
      separator = ", ";
    }
    out << ".\n";
  }
  return out.str();
}

}  // namespace kvi::info
