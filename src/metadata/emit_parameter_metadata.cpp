// Build-time program: writes every shader's parameters with their meaning,
// range and unit (the doc() of each parameter list) as JSON, the metadata
// file installed beside the module. Linked from the module's own objects, so
// the file cannot drift from the declarations.
//
//   kvi-parameter-metadata OUTPUT.json
#include <cstdio>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include "frame/registry.h"
#include "kvi/exports.h"

namespace {

std::string quoted(const char* text) {
  std::string out = "\"";
  for (const char* c = text; *c; ++c) {
    const unsigned char u = static_cast<unsigned char>(*c);
    if (*c == '"' || *c == '\\') {
      out += '\\';
      out += *c;
    } else if (u < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", u);
      out += escape;
    } else {
      out += *c;
    }
  }
  return out + "\"";
}

// The binder's name of a parameter kind, as hosts and kvi-info spell it.
std::string kindName(const char* kind) {
  std::string name;
  for (const char* c = kind; *c; ++c) name += char(*c >= 'A' && *c <= 'Z' ? *c - 'A' + 'a' : *c);
  return name;
}

const char* shaderKindName(int32_t kind) {
  switch (kind) {
    case kvi::kMaterialKind: return "material";
    case kvi::kLightKind: return "light";
    case kvi::kEnvironmentKind: return "environment";
    default: return "unknown";
  }
}

void writeShader(std::ostream& out, const char* name, kvi::IShaderBase* (*create)(), kvi::ParameterDocTable docs,
                 bool last) {
  const std::unique_ptr<kvi::IShaderBase> shader(create());
  out << "    {\"name\": " << quoted(name) << ", \"kind\": \"" << shaderKindName(shader->getShaderKind())
      << "\", \"parameters\": [\n";
  for (size_t i = 0; i < docs.count; ++i) {
    const kvi::ParameterDocEntry& p = docs.entries[i];
    out << "      {\"name\": " << quoted(p.name) << ", \"kind\": " << quoted(kindName(p.kind).c_str())
        << ", \"meaning\": " << quoted(p.doc.meaning) << ", \"range\": " << quoted(p.doc.range)
        << ", \"unit\": " << quoted(p.doc.unit) << "}" << (i + 1 < docs.count ? "," : "") << "\n";
  }
  out << "    ]}" << (last ? "" : ",") << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: kvi-parameter-metadata OUTPUT.json\n";
    return 2;
  }
  std::ofstream out(argv[1]);
  out << "{\n  \"apiVersion\": " << kvi::kApiVersion << ",\n  \"shaders\": [\n";
  size_t remaining = 0;
#define KVI_COUNT_(Name) ++remaining;
  KVI_SHADERS(KVI_COUNT_)
#undef KVI_COUNT_
#define KVI_WRITE_(Name) writeShader(out, #Name, &kvi::create_##Name, kvi::parameterDocs_##Name(), --remaining == 0);
  KVI_SHADERS(KVI_WRITE_)
#undef KVI_WRITE_
  out << "  ]\n}\n";
  out.close();
  if (!out) {
    std::cerr << "kvi-parameter-metadata: cannot write " << argv[1] << "\n";
    return 2;
  }
  return 0;
}
