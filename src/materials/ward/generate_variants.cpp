// Build-time program: turns the description of the Ward variants
// (variants.txt) and the node kinds (node_kinds.h) into two headers in the
// build tree:
//
//   ward_variant_list.h  KVI_WARD_VARIANT_SHADERS(X), one X(name) per variant (the registry's list)
//   ward_variants.h      per variant, its parameter list (KVI_WARD_VARIANT_PARAMETERS_<name>:
//                        the common parameters, then its node parameters) and its
//                        graphs as code (struct kvi::ward::graphs::<name>)
//
//   kvi-ward-variants variants.txt OUTPUT_DIRECTORY
//
// Rules of generation. A node's parameters are named "_ward_" + input + "_" +
// kind + "_" + parameter; a nested node continues its parent's prefix with
// "_" + the driven input + "_" + its kind, and the driven input itself is not
// declared. Each node declares its parameters in its kind's order, an
// undriven colour input as a colour with alpha in its place, and then the
// subtrees of its driven inputs in input order (depth first); a node marked
// "[nested first]" declares its subtrees before its own parameters. The
// normal-map and cutout graphs come before the diffuse graph.
//
// Defaults: a node's parameters take their kind's defaults; an undriven
// colour input takes its kind's default, except under the normal map (a low
// and a high slope, so that a pattern shows as relief) and the cutout (solid
// and open); a bitmap's gain takes the colour of the input it drives, so
// that a variant shows its pattern before any image is bound.
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "frame/parameters.h"
#include "materials/ward/node_kinds.h"

namespace {

using Color = std::array<float, 4>;

// A parameter's meaning, range and unit, as the shaders' lists write them.
using Doc = kvi::ParameterDoc;
using kvi::doc;

// One entry of a node kind's list.
struct Entry {
  bool input;        // a colour input rather than a parameter of its own
  std::string kind;  // the parameter kind (Color4 for inputs)
  std::string name;
  Doc doc;
  std::string defaultText;  // as written in node_kinds.h
  Color color;              // an input's default colour
};

struct NodeKind {
  std::string name;
  std::string function;
  std::vector<Entry> entries;
  std::vector<std::string> inputs() const {
    std::vector<std::string> names;
    for (const auto& e : entries)
      if (e.input) names.push_back(e.name);
    return names;
  }
};

const std::vector<NodeKind>& nodeKinds() {
#define KVI_GENERATOR_PARAM_(Kind, name, documentation, ...) \
  Entry{false, #Kind, #name, documentation, #__VA_ARGS__, Color{}},
#define KVI_GENERATOR_INPUT_(name, documentation, ...) \
  Entry{true, "Color4", #name, documentation, #__VA_ARGS__, Color __VA_ARGS__},
#define KVI_GENERATOR_KIND_(Name, function, LIST) \
  NodeKind{#Name, #function, {LIST(KVI_GENERATOR_PARAM_, KVI_GENERATOR_INPUT_)}},
  static const std::vector<NodeKind> kinds = {KVI_WARD_NODE_KINDS(KVI_GENERATOR_KIND_)};
#undef KVI_GENERATOR_KIND_
#undef KVI_GENERATOR_INPUT_
#undef KVI_GENERATOR_PARAM_
  return kinds;
}

// The Ward inputs a graph can drive, in the order their graphs are declared.
struct WardInput {
  const char* name;
  const char* phrase;    // for the parameters' documentation
  const char* flag;      // the graph's constant in the generated code
  Color neutral;         // what a bitmap driving it directly is multiplied by
  bool overridesColors;  // nested colour inputs take `first` and `second` instead of their kind's defaults
  Color first, second;
  const char* colorRange;  // the range of those colours, for the documentation
};

const std::vector<WardInput>& wardInputs() {
  static const std::vector<WardInput> inputs = {
      {"normal0_map",
       "normal map 0",
       "kDrivesNormal0",
       {0, 0, 1, 1},
       true,
       {-1, -1, 1, 1},
       {1, 1, 1, 1},
       "slopes along tangent and bitangent in red and green, blue 1"},
      {"cutout_map",
       "cutout",
       "kDrivesCutout",
       {1, 1, 1, 1},
       true,
       {1, 1, 1, 1},
       {0, 0, 0, 1},
       "red: 0 cut away to 1 solid"},
      {"diffuse_color", "diffuse colour", "kDrivesDiffuse", {0.5f, 0.5f, 0.5f, 1}, false, {}, {}, ""},
  };
  return inputs;
}

struct Node {
  const NodeKind* kind = nullptr;
  bool nestedFirst = false;
  std::vector<std::unique_ptr<Node>> driven;  // one per colour input of the kind; null when undriven
};

struct Graph {
  const WardInput* input;
  std::unique_ptr<Node> root;
};

struct Variant {
  std::string suffix;
  std::vector<Graph> graphs;
  int line;
};

// ---- reading the description ----------------------------------------------

class Parser {
 public:
  Parser(std::string text, std::string where) : text_(std::move(text)), where_(std::move(where)) {}

  [[noreturn]] void fail(const std::string& message) const {
    throw std::runtime_error(where_ + ": " + message + " (at \"" + text_.substr(pos_, 24) + "\")");
  }
  void skipSpace() {
    while (pos_ < text_.size() && (text_[pos_] == ' ' || text_[pos_] == '\t')) ++pos_;
  }
  bool atEnd() {
    skipSpace();
    return pos_ >= text_.size();
  }
  bool accept(char c) {
    skipSpace();
    if (pos_ < text_.size() && text_[pos_] == c) {
      ++pos_;
      return true;
    }
    return false;
  }
  void expect(char c) {
    if (!accept(c)) fail(std::string("expected '") + c + "'");
  }
  std::string word() {
    skipSpace();
    const size_t start = pos_;
    while (pos_ < text_.size() && (std::isalnum(static_cast<unsigned char>(text_[pos_])) || text_[pos_] == '_')) ++pos_;
    if (start == pos_) fail("expected a name");
    return text_.substr(start, pos_ - start);
  }

  std::unique_ptr<Node> node(int depth) {
    if (depth > 3) fail("graphs nest at most three nodes deep");
    const std::string name = word();
    auto node = std::make_unique<Node>();
    for (const auto& kind : nodeKinds())
      if (kind.name == name) node->kind = &kind;
    if (!node->kind) fail("unknown node kind '" + name + "'");
    const size_t inputs = node->kind->inputs().size();
    node->driven.resize(inputs);
    if (accept('[')) {
      if (word() != "nested" || word() != "first") fail("expected [nested first]");
      expect(']');
      node->nestedFirst = true;
    }
    if (accept('(')) {
      for (size_t i = 0;; ++i) {
        if (i >= inputs) fail(name + " has " + std::to_string(inputs) + " colour inputs");
        if (!accept('-')) node->driven[i] = this->node(depth + 1);
        if (accept(')')) break;
        expect(',');
      }
    }
    return node;
  }

  Graph graph() {
    const std::string inputName = word();
    Graph g{nullptr, nullptr};
    for (const auto& input : wardInputs())
      if (inputName == input.name) g.input = &input;
    if (!g.input) fail("unknown Ward input '" + inputName + "'");
    expect('=');
    g.root = node(1);
    return g;
  }

 private:
  std::string text_;
  std::string where_;
  size_t pos_ = 0;
};

std::vector<Variant> readVariants(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error(path + ": cannot be read");
  // Lines that start with blanks continue the variant above.
  std::vector<std::pair<std::string, int>> records;
  std::string line;
  for (int number = 1; std::getline(in, line); ++number) {
    if (const size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (line[0] == ' ' || line[0] == '\t') {
      if (records.empty()) throw std::runtime_error(path + ":" + std::to_string(number) + ": continues nothing");
      records.back().first += " " + line;
    } else {
      records.push_back({line, number});
    }
  }
  std::vector<Variant> variants;
  for (auto& [text, number] : records) {
    Parser parser(text, path + ":" + std::to_string(number));
    Variant v;
    v.line = number;
    v.suffix = parser.word();
    if (v.suffix.size() != 8 || v.suffix.find_first_not_of("0123456789abcdef") != std::string::npos)
      parser.fail("a variant's suffix is eight lower-case hexadecimal digits");
    for (const auto& other : variants)
      if (other.suffix == v.suffix) parser.fail("variant " + v.suffix + " is described twice");
    while (!parser.atEnd()) {
      Graph g = parser.graph();
      for (const auto& other : v.graphs)
        if (other.input == g.input) parser.fail(std::string(g.input->name) + " is driven twice");
      v.graphs.push_back(std::move(g));
    }
    if (v.graphs.empty()) parser.fail("a variant drives at least one input");
    // Declaration order of the graphs: that of wardInputs().
    std::vector<Graph> ordered;
    for (const auto& input : wardInputs())
      for (auto& g : v.graphs)
        if (g.input == &input) ordered.push_back(std::move(g));
    v.graphs = std::move(ordered);
    variants.push_back(std::move(v));
  }
  return variants;
}

// ---- writing the headers --------------------------------------------------

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// The shortest decimal text that reads back as the same float.
std::string floatText(float value) {
  char text[32];
  for (int digits = 1; digits <= 9; ++digits) {
    std::snprintf(text, sizeof text, "%.*g", digits, double(value));
    if (std::strtof(text, nullptr) == value) break;
  }
  std::string s = text;
  if (s.find_first_of(".e") == std::string::npos) s += ".0";
  return s + "f";
}

std::string colorText(const Color& c, int components) {
  std::string s = "{";
  for (int i = 0; i < components; ++i) s += (i ? ", " : "") + floatText(c[size_t(i)]);
  return s + "}";
}

std::string shaderName(const Variant& v) { return "velk_qora_Mtl_Ward_" + v.suffix; }

// Writes one node's parameters (and its subtrees') as PARAM lines and
// returns the expression that evaluates it.
class GraphWriter {
 public:
  GraphWriter(std::ostream& parameters, const WardInput& input) : parameters_(parameters), input_(input) {}

  int count = 0;

  // `place`: how the node is reached, for the documentation; `drives`: the
  // default colour of the input the node drives.
  std::string write(const Node& node, const std::string& prefix, const std::string& place, const Color& drives) {
    const NodeKind& kind = *node.kind;
    std::vector<std::string> inputExpressions;
    auto own = [&] {
      size_t inputIndex = 0;
      for (const auto& e : kind.entries) {
        const std::string name = prefix + "_" + e.name;
        if (e.input) {
          const bool driven = node.driven[inputIndex++] != nullptr;
          Doc d = e.doc;
          if (input_.overridesColors) d.range = input_.colorRange;
          if (!driven) parameter("Color4", name, place, d, colorText(colorOf(e, inputIndex - 1), 4));
          continue;
        }
        std::string value = e.defaultText;
        if (kind.name == "UnifiedBitmap" && e.name == "gain") value = colorText(drives, 3);
        parameter(e.kind, name, place, e.doc, value);
      }
    };
    auto subtrees = [&] {
      size_t inputIndex = 0;
      for (const auto& e : kind.entries) {
        if (!e.input) continue;
        const Node* child = node.driven[inputIndex].get();
        const Color driven = colorOf(e, inputIndex);
        ++inputIndex;
        if (!child) {
          inputExpressions.push_back("::kvi::ward::NodeColor::of(v." + prefix + "_" + e.name + ")");
          continue;
        }
        inputExpressions.push_back(write(*child, prefix + "_" + e.name + "_" + child->kind->name,
                                         place + ", " + e.name + " from " + child->kind->name, driven));
      }
    };
    std::string parameterViews;
    if (node.nestedFirst) {
      subtrees();
      own();
    } else {
      own();
      subtrees();
    }
    for (const auto& e : kind.entries)
      if (!e.input) parameterViews += std::string(parameterViews.empty() ? "" : ", ") + "v." + prefix + "_" + e.name;
    std::string call =
        "::kvi::ward::" + kind.function + "(hit, ::kvi::ward::" + kind.name + "Parameters{" + parameterViews + "}";
    for (const auto& input : inputExpressions) call += ", " + input;
    return call + ")";
  }

 private:
  Color colorOf(const Entry& e, size_t inputIndex) const {
    if (!input_.overridesColors) return e.color;
    return inputIndex == 0 ? input_.first : input_.second;
  }

  void parameter(const std::string& kind, const std::string& name, const std::string& place, const Doc& d,
                 const std::string& value) {
    const std::string meaning = place + ": " + d.meaning;
    parameters_ << "  PARAM(" << kind << ", " << name << ", doc(" << quoted(meaning) << ", " << quoted(d.range) << ", "
                << quoted(d.unit) << "), " << value << ") \\\n";
    ++count;
  }

  std::ostream& parameters_;
  const WardInput& input_;
};

void writeHeaders(const std::vector<Variant>& variants, const std::string& directory, const std::string& source) {
  const std::string banner = "// Generated by kvi-ward-variants from " + source + ": do not edit.\n";
  std::ofstream list(directory + "/ward_variant_list.h");
  list << banner
       << "#pragma once\n\n// The generated Ward variants, by shader name.\n#define KVI_WARD_VARIANT_SHADERS(X)";
  for (const auto& v : variants) list << " \\\n  X(" << shaderName(v) << ")";
  list << "\n";

  std::ofstream out(directory + "/ward_variants.h");
  out << banner
      << "#pragma once\n\n#include \"materials/ward/nodes.h\"\n#include \"materials/ward/ward_parameters.h\"\n";
  for (const auto& v : variants) {
    const std::string name = shaderName(v);
    std::ostringstream parameters, functions;
    int count = 0;
    for (const auto& g : v.graphs) {
      GraphWriter writer(parameters, *g.input);
      const std::string prefix = std::string("_ward_") + g.input->name + "_" + g.root->kind->name;
      const std::string expression = writer.write(
          *g.root, prefix, std::string(g.input->phrase) + " graph, " + g.root->kind->name, g.input->neutral);
      count += writer.count;
      functions << "  template <class V>\n  static NodeColor " << g.input->name
                << "(const V& v, const NodeHit& hit) {\n    return " << expression << ";\n  }\n";
    }
    out << "\n// " << name << " (" << source << ", line " << v.line << "): " << count << " node parameters.\n";
    out << "#define KVI_WARD_VARIANT_PARAMETERS_" << name << "(PARAM, VARYING) \\\n"
        << "  KVI_WARD_VARIANT_COMMON_PARAMETERS(PARAM, VARYING) \\\n"
        << parameters.str() << "\n";
    out << "namespace kvi::ward::graphs {\nstruct " << name
        << " {\n  static constexpr int kNodeParameterCount = " << count << ";\n";
    for (const auto& input : wardInputs()) {
      bool driven = false;
      for (const auto& g : v.graphs) driven = driven || g.input == &input;
      out << "  static constexpr bool " << input.flag << " = " << (driven ? "true" : "false") << ";\n";
    }
    out << functions.str() << "};\n}  // namespace kvi::ward::graphs\n";
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: kvi-ward-variants variants.txt OUTPUT_DIRECTORY\n";
    return 2;
  }
  try {
    writeHeaders(readVariants(argv[1]), argv[2], "src/materials/ward/variants.txt");
  } catch (const std::exception& e) {
    std::cerr << "kvi-ward-variants: " << e.what() << "\n";
    return 2;
  }
  return 0;
}
