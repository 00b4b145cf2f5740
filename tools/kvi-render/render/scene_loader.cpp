#include "render/scene_loader.h"

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <sstream>

#include "kvi/host/environment_samplers.h"
#include "kvi/host/photometric_web.h"
#include "kvi/host/samplers.h"
#include "kvi/host/error.h"
#include "render/images.h"

namespace kvi::render {

using nlohmann::json;
using host::ParamKind;

namespace {

// How a JSON value looks, for "got ..." in messages.
std::string describe(const json& j) {
  switch (j.type()) {
    case json::value_t::null: return "null";
    case json::value_t::boolean: return j.get<bool>() ? "true" : "false";
    case json::value_t::string: return "the string \"" + j.get<std::string>() + "\"";
    case json::value_t::number_integer:
    case json::value_t::number_unsigned:
    case json::value_t::number_float: return "the number " + j.dump();
    case json::value_t::object: return "an object";
    case json::value_t::array: {
      bool numbers = true;
      for (const auto& e : j) numbers = numbers && e.is_number();
      const std::string n = std::to_string(j.size());
      if (j.empty()) return "an empty array";
      return "an array of " + n + (numbers ? (j.size() == 1 ? " number" : " numbers") : (j.size() == 1 ? " value" : " values"));
    }
    default: return "an unsupported value";
  }
}

// JSON pointer of a member or element (RFC 6901 escaping).
std::string member(const std::string& pointer, const std::string& key) {
  std::string escaped;
  for (char c : key) {
    if (c == '~')
      escaped += "~0";
    else if (c == '/')
      escaped += "~1";
    else
      escaped += c;
  }
  return pointer + "/" + escaped;
}
std::string element(const std::string& pointer, size_t index) { return pointer + "/" + std::to_string(index); }

std::string oneLine(std::string text) {
  for (char& c : text)
    if (c == '\n' || c == '\r') c = ' ';
  return text;
}

// Scene values deeper than this are refused while the file is parsed, before
// anything walks them recursively (the deepest the format uses is 8).
constexpr size_t kMaxNesting = 64;

// Positions (the camera, lights, every corner of every object) must lie
// within this distance of the origin along each axis. Far beyond it single
// precision cannot place a hit at all, squared distances overflow, and the
// ray tracing kernel refuses rays (it aborts on origins near 1.8e19).
constexpr float kMaxCoordinate = 1e12f;

std::string shortNumber(double v) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", v);
  return text;
}

// Follows nlohmann's parser through the document so that a failure can name
// the JSON pointer where it happened, and refuses nesting beyond kMaxNesting
// (the parser itself does not recurse; copying and printing do).
class PointerTracker {
 public:
  struct TooDeep {
    std::string pointer;
  };

  bool operator()(int, json::parse_event_t event, json& parsed) {
    using E = json::parse_event_t;
    switch (event) {
      case E::object_start:
      case E::array_start:
        beginElement();
        levels_.push_back({event == E::array_start, {}, 0});
        if (levels_.size() > kMaxNesting) throw TooDeep{pointer(levels_.size() - 1, false, 8)};
        break;
      case E::key: levels_.back().key = parsed.get<std::string>(); break;
      case E::value: beginElement(); break;
      case E::object_end:
      case E::array_end: levels_.pop_back(); break;
    }
    return true;
  }

  // The pointer of the value being read: the element in progress at every
  // level, and at the innermost the element after the last one begun.
  std::string current() const { return pointer(levels_.size(), true, levels_.size()); }

 private:
  struct Level {
    bool array;
    std::string key;  // objects: the last key read
    size_t begun;     // arrays: elements begun
  };

  void beginElement() {
    if (!levels_.empty() && levels_.back().array) ++levels_.back().begun;
  }

  // The pointer through the first `depth` levels, abridged after `shown`
  // segments; `next` names the innermost level's next element.
  std::string pointer(size_t depth, bool next, size_t shown) const {
    std::string text;
    for (size_t i = 0; i < depth; ++i) {
      if (i == shown) return text + "/...";
      const Level& l = levels_[i];
      const bool innermost = i + 1 == depth;
      text = l.array ? element(text, innermost && next ? l.begun : l.begun - 1) : member(text, l.key);
    }
    return text;
  }

  std::vector<Level> levels_;
};

const char* expectedShape(ParamKind kind) {
  switch (kind) {
    case ParamKind::Bool: return "a bool (true or false)";
    case ParamKind::Int: return "an int (a whole number)";
    case ParamKind::Float: return "a float (a number)";
    case ParamKind::Float2: return "a float2 (an array of 2 numbers)";
    case ParamKind::Color3: return "a color3 (an array of 3 numbers)";
    case ParamKind::Color4: return "a color4 (an array of 4 numbers)";
    case ParamKind::Matrix3: return "a matrix3 (an array of 9 numbers or \"identity\")";
    case ParamKind::Matrix4: return "a matrix4 (an array of 16 numbers or \"identity\")";
    case ParamKind::ClippingMap: return "a clipping map (\"global\", {\"planes\": [...]} or null)";
    case ParamKind::Texture: return "a texture (a texture name, a texture object or null)";
    case ParamKind::EnvironmentMap: return "an environment map (a texture name, a texture object or null)";
  }
  return "a value";
}

const char* kindWord(int32_t kind) {
  switch (kind) {
    case kMaterialKind: return "material";
    case kLightKind: return "light";
    case kEnvironmentKind: return "environment";
    default: return "unknown";
  }
}

// A picture for a texture: one image, or six cube faces.
struct TextureData {
  std::vector<FloatImage> images;
};

void flipRows(FloatImage& image) {
  const size_t row = size_t(image.width) * 4;
  for (int y = 0; y < image.height / 2; ++y)
    std::swap_ranges(image.rgba.begin() + long(size_t(y) * row), image.rgba.begin() + long(size_t(y + 1) * row),
                     image.rgba.begin() + long(size_t(image.height - 1 - y) * row));
}

class Loader {
 public:
  Loader(std::string label, std::string baseDirectory, std::shared_ptr<const ShaderLibrary> library, Scene& scene)
      : label_(std::move(label)), base_(std::move(baseDirectory)), library_(std::move(library)), scene_(scene) {
    scene_.library = library_;
  }

  void load(const json& doc) {
    expectObject(doc, "");
    checkKeys(doc, "", {"camera", "render", "tone_mapping", "clipping_planes", "textures", "materials", "objects",
                        "lights", "environment"});
    if (doc.contains("textures")) readTextureDefinitions(doc["textures"], "/textures");
    if (doc.contains("camera")) readCamera(doc["camera"], "/camera");
    if (doc.contains("render")) readRender(doc["render"], "/render");
    readToneMapping(doc.contains("tone_mapping") ? doc["tone_mapping"] : json::object(), "/tone_mapping");
    if (doc.contains("clipping_planes")) readClippingPlanes(doc["clipping_planes"], "/clipping_planes");
    if (doc.contains("lights")) readLights(doc["lights"], "/lights");
    if (doc.contains("environment")) readEnvironment(doc["environment"], "/environment");
    if (doc.contains("materials")) readMaterials(doc["materials"], "/materials");
    if (doc.contains("objects")) readObjects(doc["objects"], "/objects");
  }

 private:
  [[noreturn]] void fail(const std::string& pointer, const std::string& what) const {
    throw SceneError(label_, pointer, oneLine(what));
  }

  // ---- plain values -------------------------------------------------------

  void expectObject(const json& j, const std::string& p) const {
    if (!j.is_object()) fail(p, "expected an object, got " + describe(j));
  }
  void checkKeys(const json& j, const std::string& p, std::initializer_list<const char*> allowed) const {
    for (auto it = j.begin(); it != j.end(); ++it) {
      bool known = false;
      for (const char* a : allowed) known = known || it.key() == a;
      if (!known) {
        std::string list;
        for (const char* a : allowed) list += (list.empty() ? "" : ", ") + std::string(a);
        fail(member(p, it.key()), "unknown key '" + it.key() + "' (expected one of: " + list + ")");
      }
    }
  }
  // A JSON number as a float; beyond the float range it is refused, since it
  // would turn into an infinity that blacks out what it touches.
  float toFloat(const json& j, const std::string& p) const {
    const double v = j.get<double>();
    if (!(std::fabs(v) <= double(std::numeric_limits<float>::max())))
      fail(p, "the number " + j.dump() + " is beyond the float range (at most 3.4e38 in size)");
    return float(v);
  }
  float number(const json& j, const std::string& p) const {
    if (!j.is_number()) fail(p, "expected a number, got " + describe(j));
    return toFloat(j, p);
  }
  float positive(const json& j, const std::string& p) const {
    const float v = number(j, p);
    if (!(v > 0.0f) || !std::isfinite(v)) fail(p, "expected a positive number, got " + describe(j));
    return v;
  }
  int integer(const json& j, const std::string& p, long long lo, long long hi) const {
    if (!j.is_number_integer() || j.get<long long>() < lo || j.get<long long>() > hi)
      fail(p, "expected a whole number from " + std::to_string(lo) + " to " + std::to_string(hi) + ", got " +
                  describe(j));
    return int(j.get<long long>());
  }
  bool boolean(const json& j, const std::string& p) const {
    if (!j.is_boolean()) fail(p, "expected true or false, got " + describe(j));
    return j.get<bool>();
  }
  std::string text(const json& j, const std::string& p) const {
    if (!j.is_string()) fail(p, "expected a string, got " + describe(j));
    return j.get<std::string>();
  }
  std::vector<float> numbers(const json& j, const std::string& p, size_t count, const std::string& what) const {
    if (!j.is_array() || j.size() != count) fail(p, "expected " + what + ", got " + describe(j));
    std::vector<float> v;
    for (size_t i = 0; i < count; ++i) {
      if (!j[i].is_number()) fail(element(p, i), "expected a number, got " + describe(j[i]));
      v.push_back(toFloat(j[i], element(p, i)));
    }
    return v;
  }
  Vec3 vec3(const json& j, const std::string& p) const {
    const auto v = numbers(j, p, 3, "an array of 3 numbers");
    return {v[0], v[1], v[2]};
  }
  static bool withinScene(Vec3 v) {
    return std::fabs(v.x) <= kMaxCoordinate && std::fabs(v.y) <= kMaxCoordinate && std::fabs(v.z) <= kMaxCoordinate;
  }
  // A position in the scene.
  Vec3 point(const json& j, const std::string& p) const {
    const Vec3 v = vec3(j, p);
    if (!withinScene(v))
      fail(p, "expected a point within " + shortNumber(kMaxCoordinate) + " scene units of the origin, got " + j.dump());
    return v;
  }
  // Refuses a shape placed (or sized) so that a corner lies beyond the
  // scene's extent.
  void checkPlacement(const Prototype& prototype, const Affine& toWorld, const std::string& p) const {
    bool inside = true;
    float farthest = 0.0f;
    auto reach = [&](Vec3 local) {
      const Vec3 w = toWorld.point(local);
      inside = inside && withinScene(w);
      farthest = std::max({farthest, std::fabs(w.x), std::fabs(w.y), std::fabs(w.z)});
    };
    if (prototype.kind == Prototype::Kind::Sphere)
      for (int c = 0; c < 8; ++c) reach({c & 1 ? 1.0f : -1.0f, c & 2 ? 1.0f : -1.0f, c & 4 ? 1.0f : -1.0f});
    else
      for (const Vec3& v : prototype.mesh->positions) reach(v);
    if (!inside)
      fail(p, "the shape reaches " + shortNumber(farthest) + " scene units from the origin; positions must lie within " +
                  shortNumber(kMaxCoordinate));
  }
  Vec3 direction(const json& j, const std::string& p) const {
    const Vec3 d = vec3(j, p);
    if (!(length(d) > 0.0f) || !isFinite(d)) fail(p, "expected a non-zero direction, got " + j.dump());
    return normalize(d);
  }
  // A file named relative to the scene's folder; it must be readable.
  std::string file(const json& j, const std::string& p) const {
    const std::string name = text(j, p);
    std::filesystem::path path(name);
    if (path.is_relative()) path = std::filesystem::path(base_) / path;
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) fail(p, "'" + path.string() + "' is a folder, expected a file");
    std::ifstream probe(path);
    if (!probe) fail(p, "cannot read '" + path.string() + "': " + std::strerror(errno));
    return path.string();
  }

  // ---- camera, settings, tone mapping, clipping ---------------------------

  void readCamera(const json& j, const std::string& p) {
    expectObject(j, p);
    checkKeys(j, p, {"position", "look_at", "up", "fov"});
    Camera& c = scene_.camera;
    if (j.contains("position")) c.position = point(j["position"], member(p, "position"));
    if (j.contains("look_at")) c.lookAt = point(j["look_at"], member(p, "look_at"));
    if (j.contains("up")) c.up = direction(j["up"], member(p, "up"));
    if (j.contains("fov")) {
      c.fovY = number(j["fov"], member(p, "fov"));
      if (!(c.fovY > 0.0f && c.fovY < 180.0f)) fail(member(p, "fov"), "expected a number between 0 and 180 (degrees), got " + describe(j["fov"]));
    }
    if (!(length(c.lookAt - c.position) > 0.0f)) fail(member(p, "look_at"), "expected a point other than the camera position");
  }

  void readRender(const json& j, const std::string& p) {
    expectObject(j, p);
    checkKeys(j, p, {"width", "height", "spp", "seed", "max_depth", "gather_samples", "russian_roulette_depth",
                     "glossiness_bias"});
    RenderSettings& s = scene_.settings;
    if (j.contains("width")) s.width = integer(j["width"], member(p, "width"), 1, 16384);
    if (j.contains("height")) s.height = integer(j["height"], member(p, "height"), 1, 16384);
    if (j.contains("spp")) s.samplesPerPixel = integer(j["spp"], member(p, "spp"), 1, 1 << 20);
    if (j.contains("seed")) s.seed = uint32_t(integer(j["seed"], member(p, "seed"), 0, 4294967295LL));
    if (j.contains("max_depth")) s.maxDepth = integer(j["max_depth"], member(p, "max_depth"), 0, 64);
    if (j.contains("gather_samples"))
      s.gatherSamples = integer(j["gather_samples"], member(p, "gather_samples"), 0, 1024);
    if (j.contains("russian_roulette_depth"))
      s.russianRouletteDepth = integer(j["russian_roulette_depth"], member(p, "russian_roulette_depth"), 0, 64);
    if (j.contains("glossiness_bias")) s.glossinessBias = number(j["glossiness_bias"], member(p, "glossiness_bias"));
  }

  void readToneMapping(const json& j, const std::string& p) {
    expectObject(j, p);
    checkKeys(j, p, {"enabled", "type", "exposure", "white", "vignetting", "crush_blacks", "burn_highlights_inv",
                     "saturation", "gamma"});
    host::ToneMapSettings& t = scene_.toneMap;
    t.enabled = 1;
    if (j.contains("enabled")) t.enabled = boolean(j["enabled"], member(p, "enabled")) ? 1 : 0;
    if (j.contains("type")) t.type = integer(j["type"], member(p, "type"), -2147483648LL, 2147483647LL);
    if (j.contains("exposure")) t.exposure = number(j["exposure"], member(p, "exposure"));
    if (j.contains("white")) vec3(j["white"], member(p, "white")).store(t.white);
    if (j.contains("vignetting")) t.vignetting = number(j["vignetting"], member(p, "vignetting"));
    if (j.contains("crush_blacks")) t.crushBlacks = number(j["crush_blacks"], member(p, "crush_blacks"));
    if (j.contains("burn_highlights_inv"))
      t.burnHighlightsInv = number(j["burn_highlights_inv"], member(p, "burn_highlights_inv"));
    if (j.contains("saturation")) t.saturation = number(j["saturation"], member(p, "saturation"));
    if (j.contains("gamma")) t.gamma = number(j["gamma"], member(p, "gamma"));
  }

  std::vector<std::array<float, 4>> planes(const json& j, const std::string& p) const {
    if (!j.is_array()) fail(p, "expected an array of planes [a, b, c, d], got " + describe(j));
    std::vector<std::array<float, 4>> list;
    for (size_t i = 0; i < j.size(); ++i) {
      const auto v = numbers(j[i], element(p, i), 4, "a plane [a, b, c, d] (4 numbers)");
      list.push_back({v[0], v[1], v[2], v[3]});
    }
    return list;
  }

  void readClippingPlanes(const json& j, const std::string& p) {
    auto list = planes(j, p);
    if (!list.empty()) scene_.clippingPlanes = std::make_unique<host::ClippingPlaneTable>(std::move(list));
  }

  // ---- textures -------------------------------------------------------------

  void readTextureDefinitions(const json& j, const std::string& p) {
    expectObject(j, p);
    for (auto it = j.begin(); it != j.end(); ++it) {
      const std::string ptr = member(p, it.key());
      checkTextureDefinition(it.value(), ptr);
      textureDefinitions_[it.key()] = {it.value(), ptr};
    }
  }

  void checkTextureDefinition(const json& j, const std::string& p) const {
    expectObject(j, p);
    checkKeys(j, p, {"file", "faces", "checker", "gradient", "color", "ies", "ies_text", "type", "flip"});
    int sources = 0;
    for (const char* k : {"file", "faces", "checker", "gradient", "color", "ies", "ies_text"}) sources += j.contains(k) ? 1 : 0;
    if (sources != 1)
      fail(p, "expected exactly one of \"file\", \"faces\", \"checker\", \"gradient\", \"color\", \"ies\" or \"ies_text\"");
    if ((j.contains("ies") || j.contains("ies_text")) && (j.contains("type") || j.contains("flip")))
      fail(p, "a photometric web (\"ies\", \"ies_text\") takes no \"type\" or \"flip\"");
    if (j.contains("type")) {
      const std::string t = text(j["type"], member(p, "type"));
      if (t != "image" && t != "latlong" && t != "latlong_z_up" && t != "cube")
        fail(member(p, "type"), "expected \"image\", \"latlong\", \"latlong_z_up\" or \"cube\", got " + describe(j["type"]));
      if ((t == "cube") != j.contains("faces"))
        fail(member(p, "type"), "a cube texture needs \"faces\" (six files), and \"faces\" needs the type \"cube\"");
    }
    if (j.contains("flip")) boolean(j["flip"], member(p, "flip"));
  }

  std::shared_ptr<TextureData> textureData(const json& j, const std::string& p) {
    auto& cached = scene_.textures.data[p];
    if (cached) return std::static_pointer_cast<TextureData>(cached);
    auto data = std::make_shared<TextureData>();
    auto readFile = [&](const json& f, const std::string& fp) {
      const std::string path = file(f, fp);
      try {
        return readImage(path);
      } catch (const std::exception& e) {
        fail(fp, e.what());
      }
    };
    if (j.contains("file")) {
      data->images.push_back(readFile(j["file"], member(p, "file")));
    } else if (j.contains("faces")) {
      const std::string fp = member(p, "faces");
      if (!j["faces"].is_array() || j["faces"].size() != 6)
        fail(fp, "expected six files (+X, -X, +Y, -Y, +Z, -Z), got " + describe(j["faces"]));
      for (size_t i = 0; i < 6; ++i) data->images.push_back(readFile(j["faces"][i], element(fp, i)));
    } else if (j.contains("checker")) {
      data->images.push_back(checker(j["checker"], member(p, "checker")));
    } else if (j.contains("gradient")) {
      data->images.push_back(gradient(j["gradient"], member(p, "gradient")));
    } else {
      const auto c = numbers(j["color"], member(p, "color"), 4, "an RGBA colour (4 numbers)");
      data->images.push_back(FloatImage{1, 1, {c[0], c[1], c[2], c[3]}});
    }
    cached = data;
    return data;
  }

  // A procedural checkerboard: {"size": pixels, "squares": per side, "colors": [a, b]}.
  FloatImage checker(const json& j, const std::string& p) const {
    expectObject(j, p);
    checkKeys(j, p, {"size", "squares", "colors"});
    const int size = j.contains("size") ? integer(j["size"], member(p, "size"), 2, 4096) : 256;
    const int squares = j.contains("squares") ? integer(j["squares"], member(p, "squares"), 1, size) : 8;
    std::array<std::vector<float>, 2> colours{std::vector<float>{0.8f, 0.8f, 0.8f, 1.0f},
                                              std::vector<float>{0.2f, 0.2f, 0.2f, 1.0f}};
    if (j.contains("colors")) {
      const std::string cp = member(p, "colors");
      if (!j["colors"].is_array() || j["colors"].size() != 2) fail(cp, "expected two RGBA colours, got " + describe(j["colors"]));
      for (size_t i = 0; i < 2; ++i) colours[i] = numbers(j["colors"][i], element(cp, i), 4, "an RGBA colour (4 numbers)");
    }
    FloatImage image{size, size, std::vector<float>(size_t(size) * size_t(size) * 4)};
    for (int y = 0; y < size; ++y)
      for (int x = 0; x < size; ++x) {
        const int which = ((x * squares / size) + (y * squares / size)) % 2;
        std::copy(colours[which].begin(), colours[which].end(), image.pixel(x, y));
      }
    return image;
  }

  // A latitude gradient for environment maps: {"zenith", "horizon", "ground":
  // RGB, "width", "height"}; rows run from straight up to straight down.
  FloatImage gradient(const json& j, const std::string& p) const {
    expectObject(j, p);
    checkKeys(j, p, {"zenith", "horizon", "ground", "width", "height"});
    const Vec3 zenith = j.contains("zenith") ? vec3(j["zenith"], member(p, "zenith")) : Vec3{0.25f, 0.45f, 0.9f};
    const Vec3 horizon = j.contains("horizon") ? vec3(j["horizon"], member(p, "horizon")) : Vec3{0.9f, 0.9f, 0.95f};
    const Vec3 ground = j.contains("ground") ? vec3(j["ground"], member(p, "ground")) : Vec3{0.3f, 0.27f, 0.25f};
    const int w = j.contains("width") ? integer(j["width"], member(p, "width"), 1, 8192) : 64;
    const int h = j.contains("height") ? integer(j["height"], member(p, "height"), 2, 8192) : 32;
    FloatImage image{w, h, std::vector<float>(size_t(w) * size_t(h) * 4)};
    for (int y = 0; y < h; ++y) {
      const float elevation = 1.0f - 2.0f * (float(y) + 0.5f) / float(h);  // sine-like, +1 up
      const Vec3 c = elevation >= 0.0f ? horizon + (zenith - horizon) * std::sqrt(elevation)
                                       : horizon + (ground - horizon) * std::min(1.0f, -4.0f * elevation);
      for (int x = 0; x < w; ++x) {
        float* px = image.pixel(x, y);
        c.store(px);
        px[3] = 1.0f;
      }
    }
    return image;
  }

  // The slot of the sampler bound for a texture value of a parameter of the
  // given kind (its index in the scene's samplers).
  size_t texture(const json& value, const std::string& p, ParamKind kind) {
    json definition;
    std::string definitionPointer;
    if (value.is_string()) {
      auto found = textureDefinitions_.find(value.get<std::string>());
      if (found == textureDefinitions_.end())
        fail(p, "unknown texture '" + value.get<std::string>() + "' (not defined under /textures)");
      definition = found->second.first;
      definitionPointer = found->second.second;
    } else {
      checkTextureDefinition(value, p);
      definition = value;
      definitionPointer = p;
    }
    std::string type = definition.contains("type") ? definition["type"].get<std::string>()
                                                   : (kind == ParamKind::EnvironmentMap ? "latlong" : "image");
    const std::string key = definitionPointer + "#" + type;
    if (auto found = scene_.textures.samplerByKey.find(key); found != scene_.textures.samplerByKey.end())
      return found->second;
    std::unique_ptr<ITextureSampler> made;
    if (definition.contains("ies") || definition.contains("ies_text")) {
      made = photometricWeb(definition, definitionPointer);
      scene_.textures.samplers.push_back(std::move(made));
      return scene_.textures.samplerByKey[key] = scene_.textures.samplers.size() - 1;
    }
    auto data = textureData(definition, definitionPointer);
    if (type == "cube") {
      std::vector<host::ImageSampler> faces;
      for (const auto& f : data->images) faces.emplace_back(f.width, f.height, f.rgba);
      made = std::make_unique<host::CubeFaceSampler>(std::move(faces));
    } else if (type == "latlong" || type == "latlong_z_up") {
      const FloatImage& f = data->images.front();
      made = std::make_unique<host::LatLongSampler>(f.width, f.height, f.rgba,
                                                    type == "latlong" ? host::LatLongSampler::UpAxis::Y
                                                                      : host::LatLongSampler::UpAxis::Z);
    } else {
      // 2D maps are stored bottom row first unless told otherwise, so that
      // uv (0, 0) is the lower left of the picture, as OBJ files expect.
      FloatImage f = data->images.front();
      if (!definition.contains("flip") || definition["flip"].get<bool>()) flipRows(f);
      made = std::make_unique<host::ImageSampler>(f.width, f.height, std::move(f.rgba));
    }
    scene_.textures.samplers.push_back(std::move(made));
    return scene_.textures.samplerByKey[key] = scene_.textures.samplers.size() - 1;
  }

  // A photometric web read from an IES file ("ies") or given as its text
  // ("ies_text"); a malformed one stops the scene with the reader's message.
  std::unique_ptr<ITextureSampler> photometricWeb(const json& j, const std::string& p) const {
    try {
      if (j.contains("ies"))
        return std::make_unique<host::PhotometricWebSampler>(host::readIesFile(file(j["ies"], member(p, "ies"))));
      return std::make_unique<host::PhotometricWebSampler>(
          host::parseIes(text(j["ies_text"], member(p, "ies_text")), "<ies_text>"));
    } catch (const host::Error& e) {
      fail(member(p, j.contains("ies") ? "ies" : "ies_text"), e.what());
    }
  }

  // ---- shaders and their parameters ---------------------------------------

  ShaderInstance shader(const json& description, const std::string& p, int32_t kind,
                        const std::function<void(ShaderInstance&, const json&)>& hostValues) {
    const std::string sp = member(p, "shader");
    if (!description.contains("shader")) fail(p, "expected a \"shader\" naming a " + std::string(kindWord(kind)) + " shader");
    const std::string name = text(description["shader"], sp);
    if (!library_->has(name)) {
      std::string offered;
      for (const auto& n : library_->shaderNames())
        if (library_->info(n)->kind == kind) offered += (offered.empty() ? "" : ", ") + n;
      fail(sp, "the module has no shader '" + name + "' (its " + kindWord(kind) + " shaders: " +
                   (offered.empty() ? "none" : offered) + ")");
    }
    ShaderInstance instance;
    try {
      if (library_->info(name)->kind != kind)
        fail(sp, "'" + name + "' is a " + kindWord(library_->info(name)->kind) + " shader, expected a " +
                     kindWord(kind) + " shader");
      instance = createShader(*library_, name);
    } catch (const host::Error& e) {
      fail(sp, e.what());
    }
    const json params = description.contains("parameters") ? description["parameters"] : json::object();
    const std::string pp = member(p, "parameters");
    expectObject(params, pp);
    if (hostValues) hostValues(instance, params);
    for (auto it = params.begin(); it != params.end(); ++it) {
      const host::ParameterInfo* info = instance.info->findParameter(it.key());
      if (!info) fail(member(pp, it.key()), "shader '" + name + "' has no parameter '" + it.key() + "'");
      setParameter(instance, *info, it.value(), member(pp, it.key()));
    }
    instance.block->applyTo(instance.object.get());
    return instance;
  }

  void setParameter(ShaderInstance& s, const host::ParameterInfo& info, const json& v, const std::string& p) {
    host::ParameterBlock& block = *s.block;
    const std::string wrong = "expected " + std::string(expectedShape(info.kind)) + " for the " +
                              host::kindName(info.kind) + " parameter '" + info.name + "', got " + describe(v);
    switch (info.kind) {
      case ParamKind::Bool:
        if (v.is_boolean())
          block.setBool(info.name, v.get<bool>() ? 1 : 0);
        else if (v.is_number_integer() && v.get<long long>() >= 0 && v.get<long long>() <= 255)
          block.setBool(info.name, uint8_t(v.get<long long>()));  // shaders test any byte for non-zero
        else
          fail(p, wrong);
        return;
      case ParamKind::Int:
        if (!v.is_number_integer() || v.get<long long>() < -2147483648LL || v.get<long long>() > 2147483647LL) fail(p, wrong);
        block.setInt(info.name, int32_t(v.get<long long>()));
        return;
      case ParamKind::Float:
      case ParamKind::Float2:
      case ParamKind::Color3:
      case ParamKind::Color4:
      case ParamKind::Matrix3:
      case ParamKind::Matrix4: {
        const size_t count = host::kindFloatCount(info.kind);
        std::vector<float> values;
        if (info.kind == ParamKind::Float && v.is_number()) {
          values.push_back(toFloat(v, p));
        } else if ((info.kind == ParamKind::Matrix3 || info.kind == ParamKind::Matrix4) && v == "identity") {
          values.assign(count, 0.0f);
          const size_t n = info.kind == ParamKind::Matrix3 ? 3 : 4;
          for (size_t i = 0; i < n; ++i) values[i * n + i] = 1.0f;
        } else if (info.kind != ParamKind::Float && v.is_array() && v.size() == count) {
          for (size_t i = 0; i < count; ++i) {
            if (!v[i].is_number()) fail(element(p, i), "expected a number, got " + describe(v[i]));
            values.push_back(toFloat(v[i], element(p, i)));
          }
        } else {
          fail(p, wrong);
        }
        block.setFloats(info.name, values.data(), values.size());
        return;
      }
      case ParamKind::Texture:
      case ParamKind::EnvironmentMap: {
        ITextureSampler* sampler = nullptr;
        int32_t slot = -1;
        if (!v.is_null()) {
          if (!v.is_string() && !v.is_object()) fail(p, wrong);
          const size_t index = texture(v, p, info.kind);
          sampler = scene_.textures.samplers[index].get();
          slot = int32_t(index);
        }
        if (info.kind == ParamKind::Texture)
          block.setTexture(info.name, sampler, slot);
        else
          block.setEnvironmentMap(info.name, sampler, slot);
        return;
      }
      case ParamKind::ClippingMap: {
        if (v.is_null()) {
          block.setClippingMap(info.name, nullptr, -1);
        } else if (v == "global") {
          block.setClippingMap(info.name, scene_.clippingPlanes.get(), scene_.clippingPlanes ? 0 : -1);
        } else if (v.is_object()) {
          checkKeys(v, p, {"planes"});
          if (!v.contains("planes")) fail(p, wrong);
          auto table = std::make_unique<host::ClippingPlaneTable>(planes(v["planes"], member(p, "planes")));
          block.setClippingMap(info.name, table.get(), int32_t(scene_.ownedClippingTables.size()) + 1);
          scene_.ownedClippingTables.push_back(std::move(table));
        } else {
          fail(p, wrong);
        }
        return;
      }
    }
  }

  // ---- materials and objects ----------------------------------------------

  int material(const json& description, const std::string& p) {
    expectObject(description, p);
    checkKeys(description, p, {"shader", "parameters", "shading"});
    Material m;
    m.shader = shader(description, p, kMaterialKind, [&](ShaderInstance& s, const json& given) {
      // The scene's clipping planes reach every material that can test them.
      for (const auto& info : s.info->parameters) {
        if (info.kind != ParamKind::ClippingMap || given.contains(info.name) || !scene_.clippingPlanes) continue;
        if (info.name != "u_globalClippingMap") continue;
        s.block->setClippingMap(info.name, scene_.clippingPlanes.get(), 0);
        const auto* enable = s.info->findParameter("u_globalClippingMapEnable");
        if (enable && enable->kind == ParamKind::Bool && !given.contains(enable->name)) s.block->setBool(enable->name, 1);
      }
    });
    const uint32_t mask = m.shader.mask();
    m.wholeHit = (mask & kOpShadeSurface) && !(mask & (kOpTestCutout | kOpEvaluateRadiance));
    if (description.contains("shading")) {
      const std::string how = text(description["shading"], member(p, "shading"));
      if (how == "whole_hit")
        m.wholeHit = true;
      else if (how == "bsdf")
        m.wholeHit = false;
      else if (how != "auto")
        fail(member(p, "shading"), "expected \"auto\", \"whole_hit\" or \"bsdf\", got " + describe(description["shading"]));
    }
    auto offset = [&](const char* name, size_t floats) {
      const host::VaryingInfo* v = m.shader.info->findVarying(name);
      if (!v) return -1;
      if (v->offset + floats * sizeof(float) > sizeof(ShadingState::varyings))
        fail(member(p, "shader"), "shader '" + m.shader.shader + "' asks for the varying '" + name +
                                      "' at offset " + std::to_string(v->offset) + ", outside the state's varying area");
      return int(v->offset);
    };
    m.uvOffset = offset("uv", 2);
    m.colorOffset = offset("vtxcolor", 4);
    m.tangentOffset = offset("tangent", 3);
    m.bitangentOffset = offset("bitangent", 3);
    scene_.materials.push_back(std::move(m));
    return int(scene_.materials.size() - 1);
  }

  void readMaterials(const json& j, const std::string& p) {
    expectObject(j, p);
    for (auto it = j.begin(); it != j.end(); ++it) namedMaterials_[it.key()] = material(it.value(), member(p, it.key()));
  }

  int materialReference(const json& j, const std::string& p) {
    if (j.is_string()) {
      auto found = namedMaterials_.find(j.get<std::string>());
      if (found == namedMaterials_.end())
        fail(p, "unknown material '" + j.get<std::string>() + "' (not defined under /materials)");
      return found->second;
    }
    return material(j, p);
  }

  Affine transform(const json& j, const std::string& p) const {
    expectObject(j, p);
    checkKeys(j, p, {"translate", "rotate", "scale", "matrix"});
    Affine scale, rotate, translate, matrix;
    if (j.contains("scale")) {
      const json& s = j["scale"];
      scale = Affine::scaling(s.is_number() ? Vec3{1, 1, 1} * number(s, member(p, "scale"))
                                            : vec3(s, member(p, "scale")));
    }
    if (j.contains("rotate")) {
      // One rotation [x, y, z, degrees] about an axis, or a list of them
      // applied in order.
      const json& r = j["rotate"];
      const std::string rp = member(p, "rotate");
      const bool list = r.is_array() && !r.empty() && r[0].is_array();
      const size_t n = list ? r.size() : 1;
      for (size_t i = 0; i < n; ++i) {
        const auto v = numbers(list ? r[i] : r, list ? element(rp, i) : rp, 4, "a rotation [x, y, z, degrees]");
        if (!(length(Vec3{v[0], v[1], v[2]}) > 0.0f)) fail(list ? element(rp, i) : rp, "expected a non-zero rotation axis");
        rotate = Affine::rotation({v[0], v[1], v[2]}, v[3]) * rotate;
      }
    }
    if (j.contains("translate")) translate = Affine::translation(vec3(j["translate"], member(p, "translate")));
    if (j.contains("matrix")) {
      const auto v = numbers(j["matrix"], member(p, "matrix"), 16, "a 4 x 4 matrix (16 numbers, row by row)");
      for (int i = 0; i < 12; ++i) matrix.m[size_t(i)] = v[size_t(i)];
    }
    const Affine result = matrix * translate * rotate * scale;
    if (!(std::fabs(result.determinant()) > 0.0f) || !std::isfinite(result.determinant()))
      fail(p, "the transform is singular (it flattens the shape)");
    return result;
  }

  // The shared geometry of a shape description; sphere emitters are meshed.
  int prototype(const json& j, const std::string& p, bool needTriangles) {
    if (!j.contains("shape")) fail(p, "expected a \"shape\": sphere, plane, box, shader_ball or obj");
    const std::string shape = text(j["shape"], member(p, "shape"));
    if (j.contains("crease_angle") && shape != "obj")
      fail(member(p, "crease_angle"), "only obj shapes have a crease angle (their normals are computed)");
    std::string key = shape;
    std::function<Mesh()> make;
    if (shape == "sphere") {
      if (!needTriangles) return sharedPrototype("sphere", Prototype::Kind::Sphere, nullptr);
      key = "sphere:meshed";
      make = [] { return makeSphereMesh(32, 64); };
    } else if (shape == "plane") {
      float sx = 1.0f, sz = 1.0f, uv = 1.0f;
      if (j.contains("size")) {
        const json& s = j["size"];
        if (s.is_number()) {
          sx = sz = positive(s, member(p, "size"));
        } else {
          const auto v = numbers(s, member(p, "size"), 2, "a size (a number or [x, z])");
          sx = v[0];
          sz = v[1];
        }
      }
      if (j.contains("uv_scale")) uv = number(j["uv_scale"], member(p, "uv_scale"));
      key += ":" + std::to_string(sx) + ":" + std::to_string(sz) + ":" + std::to_string(uv);
      make = [=] { return makePlane(sx, sz, uv); };
    } else if (shape == "box") {
      Vec3 size{1, 1, 1};
      if (j.contains("size")) {
        const json& s = j["size"];
        size = s.is_number() ? Vec3{1, 1, 1} * positive(s, member(p, "size")) : vec3(s, member(p, "size"));
      }
      key += ":" + std::to_string(size.x) + ":" + std::to_string(size.y) + ":" + std::to_string(size.z);
      make = [=] { return makeBox(size); };
    } else if (shape == "shader_ball") {
      make = [] { return makeShaderBall(); };
    } else if (shape == "obj") {
      if (!j.contains("file")) fail(p, "an obj shape needs a \"file\"");
      const std::string path = file(j["file"], member(p, "file"));
      float crease = kDefaultCreaseAngle;
      if (j.contains("crease_angle")) {
        crease = number(j["crease_angle"], member(p, "crease_angle"));
        if (!(crease >= 0.0f && crease <= 180.0f))
          fail(member(p, "crease_angle"), "expected an angle from 0 to 180 (degrees), got " + describe(j["crease_angle"]));
      }
      key += ":" + std::to_string(crease) + ":" + path;
      make = [this, path, crease, fp = member(p, "file")] {
        try {
          return loadObj(path, crease);
        } catch (const std::exception& e) {
          fail(fp, e.what());
        }
      };
    } else {
      fail(member(p, "shape"), "expected sphere, plane, box, shader_ball or obj, got " + describe(j["shape"]));
    }
    auto found = prototypeByKey_.find(key);
    if (found != prototypeByKey_.end()) return found->second;
    auto mesh = std::make_shared<Mesh>(make());
    scene_.droppedTriangles += dropInvalidTriangles(*mesh);
    return sharedPrototype(key, Prototype::Kind::Mesh, std::move(mesh));
  }

  int sharedPrototype(const std::string& key, Prototype::Kind kind, std::shared_ptr<const Mesh> mesh) {
    auto found = prototypeByKey_.find(key);
    if (found != prototypeByKey_.end()) return found->second;
    scene_.prototypes.push_back(Prototype{kind, std::move(mesh), key});
    return prototypeByKey_[key] = int(scene_.prototypes.size() - 1);
  }

  Affine shapeTransform(const json& j, const std::string& p) const {
    Affine t = j.contains("transform") ? transform(j["transform"], member(p, "transform")) : Affine{};
    if (j.contains("radius")) t = t * Affine::scaling(Vec3{1, 1, 1} * positive(j["radius"], member(p, "radius")));
    return t;
  }

  void readObjects(const json& j, const std::string& p) {
    if (!j.is_array()) fail(p, "expected an array of objects, got " + describe(j));
    for (size_t i = 0; i < j.size(); ++i) {
      const std::string op = element(p, i);
      const json& o = j[i];
      expectObject(o, op);
      checkKeys(o, op, {"name", "shape", "file", "crease_angle", "size", "uv_scale", "radius", "transform", "material"});
      Object object;
      object.name = o.contains("name") ? text(o["name"], member(op, "name")) : "object " + std::to_string(i);
      object.prototype = prototype(o, op, false);
      object.toWorld = shapeTransform(o, op);
      checkPlacement(scene_.prototypes[size_t(object.prototype)], object.toWorld, op);
      object.toObject = object.toWorld.inverse();
      if (!o.contains("material")) fail(op, "expected a \"material\" (a name under /materials or a shader object)");
      object.material = materialReference(o["material"], member(op, "material"));
      scene_.objects.push_back(std::move(object));
    }
  }

  // ---- lights and environment ---------------------------------------------

  void readLights(const json& j, const std::string& p) {
    if (!j.is_array()) fail(p, "expected an array of lights, got " + describe(j));
    for (size_t i = 0; i < j.size(); ++i) readLight(j[i], element(p, i));
  }

  void readLight(const json& j, const std::string& p) {
    expectObject(j, p);
    checkKeys(j, p, {"shader", "parameters", "type", "position", "direction", "target", "emitter", "visible"});
    Light light;
    light.shader = shader(j, p, kLightKind, nullptr);
    std::optional<LightType> type;
    if (j.contains("type")) {
      const std::string t = text(j["type"], member(p, "type"));
      for (LightType candidate : {LightType::Point, LightType::Spot, LightType::Directional, LightType::Area,
                                  LightType::Ambient, LightType::Environment, LightType::Sky, LightType::Sphere})
        if (t == lightTypeName(candidate)) type = candidate;
      if (!type)
        fail(member(p, "type"), "expected point, spot, directional, area, ambient, environment, sky or sphere, got " +
                                    describe(j["type"]));
    }
    if (!j.contains("type")) type = lightTypeFromShaderName(light.shader.shader);
    if (!type) fail(p, "expected a \"type\" (point, spot, directional, area, ambient, environment, sky or sphere) for '" +
                           light.shader.shader + "'");
    light.type = *type;
    const bool placed = light.type == LightType::Point || light.type == LightType::Spot || light.type == LightType::Sphere;
    const bool aimed = light.type == LightType::Spot || light.type == LightType::Directional;
    if (j.contains("position")) {
      if (!placed) fail(member(p, "position"), std::string("a ") + lightTypeName(light.type) + " light has no position");
      light.position = point(j["position"], member(p, "position"));
    } else if (placed) {
      fail(p, std::string("a ") + lightTypeName(light.type) + " light needs a \"position\"");
    }
    if (j.contains("direction") && j.contains("target")) fail(member(p, "target"), "give either \"direction\" or \"target\", not both");
    if ((j.contains("direction") || j.contains("target")) && !aimed)
      fail(member(p, j.contains("direction") ? "direction" : "target"),
           std::string("a ") + lightTypeName(light.type) + " light has no direction");
    if (j.contains("direction")) light.direction = direction(j["direction"], member(p, "direction"));
    if (j.contains("target")) {
      const Vec3 from = light.type == LightType::Spot ? light.position : Vec3{};
      const Vec3 d = point(j["target"], member(p, "target")) - from;
      if (!(length(d) > 0.0f)) fail(member(p, "target"), "expected a target other than the light's position");
      light.direction = normalize(d);
    }
    if (light.type == LightType::Area) {
      if (!j.contains("emitter")) fail(p, "an area light needs an \"emitter\" shape");
      readEmitter(j["emitter"], member(p, "emitter"), light);
    } else if (j.contains("emitter")) {
      fail(member(p, "emitter"), std::string("a ") + lightTypeName(light.type) + " light has no emitter");
    }
    const bool selfSampled = light.type == LightType::Sphere || light.type == LightType::Spot;
    if (j.contains("visible") && !selfSampled)
      fail(member(p, "visible"), std::string("a ") + lightTypeName(light.type) + " light has no emitter of its own to show");
    if (selfSampled) addOwnEmitter(light, !j.contains("visible") || boolean(j["visible"], member(p, "visible")));
    scene_.lights.push_back(std::move(light));
    if (scene_.lights.back().object >= 0) scene_.objects[size_t(scene_.lights.back().object)].light = int(scene_.lights.size() - 1);
  }

  void readEmitter(const json& j, const std::string& p, Light& light) {
    expectObject(j, p);
    checkKeys(j, p, {"shape", "file", "crease_angle", "size", "uv_scale", "radius", "transform", "visible"});
    const int proto = prototype(j, p, true);
    const Affine toWorld = shapeTransform(j, p);
    checkPlacement(scene_.prototypes[size_t(proto)], toWorld, p);
    const Mesh& mesh = *scene_.prototypes[size_t(proto)].mesh;
    float total = 0.0f;
    for (size_t t = 0; t + 2 < mesh.indices.size(); t += 3) {
      const Vec3 a = toWorld.point(mesh.positions[mesh.indices[t]]);
      const Vec3 b = toWorld.point(mesh.positions[mesh.indices[t + 1]]);
      const Vec3 c = toWorld.point(mesh.positions[mesh.indices[t + 2]]);
      const Vec3 n = cross(b - a, c - a);
      const float area = 0.5f * length(n);
      if (!(area > 0.0f) || !std::isfinite(area)) continue;  // degenerate: never sampled
      light.corners.insert(light.corners.end(), {a, b, c});
      light.normals.push_back(normalize(n));
      total += area;
      light.areaCdf.push_back(total);
    }
    light.area = total;
    const bool visible = j.contains("visible") ? boolean(j["visible"], member(p, "visible")) : true;
    if (visible) {
      Object object;
      object.name = "emitter of " + light.shader.shader;
      object.prototype = proto;
      object.toWorld = toWorld;
      object.toObject = toWorld.inverse();
      scene_.objects.push_back(std::move(object));
      light.object = int(scene_.objects.size() - 1);
    }
  }

  // Sphere lights, and spot lights with a radius, sample themselves: their
  // shader's "radius" gives the ball (analytic) or the disk facing along the
  // spot's direction that rays see when visible.
  void addOwnEmitter(Light& light, bool visible) {
    const auto* radius = light.shader.info->findParameter("radius");
    if (radius && radius->kind == ParamKind::Float) light.radius = light.shader.block->getFloat("radius");
    if (!(light.radius > 0.0f) || !std::isfinite(light.radius) || !visible) return;
    Object object;
    object.name = "emitter of " + light.shader.shader;
    if (light.type == LightType::Sphere) {
      object.prototype = sharedPrototype("sphere", Prototype::Kind::Sphere, nullptr);
      object.toWorld = Affine::translation(light.position) * Affine::scaling(Vec3{1, 1, 1} * light.radius);
    } else {
      object.prototype = sharedPrototype("disk:" + std::to_string(scene_.lights.size()), Prototype::Kind::Mesh,
                                         std::make_shared<Mesh>(diskFacing(light.position, light.direction, light.radius)));
    }
    object.toObject = object.toWorld.inverse();
    scene_.objects.push_back(std::move(object));
    light.object = int(scene_.objects.size() - 1);
  }

  // A disk of triangles around `centre`, its front side facing `axis`.
  static Mesh diskFacing(Vec3 centre, Vec3 axis, float radius) {
    constexpr int kSegments = 48;
    Vec3 t, b;
    orthonormalBasis(axis, t, b);
    Mesh disk;
    disk.positions.push_back(centre);
    for (int i = 0; i < kSegments; ++i) {
      const float a = 2.0f * kPi * float(i) / float(kSegments);
      disk.positions.push_back(centre + (t * std::cos(a) + b * std::sin(a)) * radius);
    }
    for (uint32_t i = 0; i < kSegments; ++i) {
      const uint32_t next = 1 + (i + 1) % kSegments;
      // Wound so that the face normal (b - a) x (c - a) points along the axis.
      if (dot(cross(disk.positions[1 + i] - centre, disk.positions[next] - centre), axis) > 0.0f)
        disk.indices.insert(disk.indices.end(), {0, 1 + i, next});
      else
        disk.indices.insert(disk.indices.end(), {0, next, 1 + i});
    }
    completeVertexFrames(disk);
    return disk;
  }

  bool hasEnvironmentLight() const {
    for (const auto& l : scene_.lights)
      if (l.type == LightType::Sky || l.type == LightType::Environment) return true;
    return false;
  }

  // The direction towards the sun: the scene's, else against the first
  // directional light, else high in the south-west.
  Vec3 sunDirection(const json& j, const std::string& p) const {
    if (j.contains("sun_direction")) return direction(j["sun_direction"], member(p, "sun_direction"));
    for (const auto& l : scene_.lights)
      if (l.type == LightType::Directional) return -l.direction;
    return normalize(Vec3{-0.5f, 0.7f, -0.5f});
  }

  void readEnvironment(const json& j, const std::string& p) {
    expectObject(j, p);
    checkKeys(j, p, {"shader", "parameters", "sun_direction"});
    const host::ToneMapSettings toneMap = cameraToneMapSettings(scene_);
    const Vec3 sun = sunDirection(j, p);
    const bool standsForLight = hasEnvironmentLight();
    Environment environment;
    environment.shader = shader(j, p, kEnvironmentKind, [&](ShaderInstance& s, const json& given) {
      fillEnvironmentParameters(s, given, toneMap, sun, standsForLight);
    });
    fillPictureSize(environment.shader, j.contains("parameters") ? j["parameters"] : json::object());
    if (standsForLight)
      environment.forLights = shader(j, p, kEnvironmentKind, [&](ShaderInstance& s, const json& given) {
        fillEnvironmentParameters(s, given, toneMap, sun, false);
      });
    scene_.environment = std::move(environment);
  }

  // A background laid out on the screen learns its picture's size from the
  // picture bound to "image", unless the scene gives "imageResolution".
  static void fillPictureSize(ShaderInstance& s, const json& given) {
    const auto* size = s.info->findParameter("imageResolution");
    const auto* image = s.info->findParameter("image");
    if (!size || size->kind != ParamKind::Color3 || given.contains("imageResolution") || !image ||
        image->kind != ParamKind::Texture)
      return;
    const auto* picture = dynamic_cast<const host::ImageSampler*>(s.block->getTexture("image").sampler);
    if (!picture) return;
    s.block->setColor3("imageResolution", {float(picture->width()), float(picture->height()), 0.0f});
    s.block->applyTo(s.object.get());
  }

  // What the renderer knows for an environment: its tone mapping and camera,
  // the sun, and whether a light stands for it. The scene's own values win.
  static void fillEnvironmentParameters(ShaderInstance& s, const json& given, const host::ToneMapSettings& t,
                                        Vec3 sun, bool standsForLight) {
    host::ParameterBlock& b = *s.block;
    auto has = [&](const char* name, ParamKind kind) {
      const auto* info = s.info->findParameter(name);
      return info && info->kind == kind && !given.contains(name);
    };
    if (has("u_tm_enabled", ParamKind::Bool)) b.setBool("u_tm_enabled", t.enabled);
    if (has("u_tm_type", ParamKind::Int)) b.setInt("u_tm_type", t.type);
    const std::pair<const char*, float> floats[] = {
        {"u_tm_exposure", t.exposure},         {"u_tm_vignetting", t.vignetting},
        {"u_tm_crushBlacks", t.crushBlacks},   {"u_tm_burnHighlightsInv", t.burnHighlightsInv},
        {"u_tm_saturation", t.saturation},     {"u_tm_gamma", t.gamma},
        {"u_cam_imagePlaneWidth", t.imagePlaneWidth}, {"u_cam_imagePlaneHeight", t.imagePlaneHeight},
        {"u_cam_focalDistance", t.focalDistance}};
    for (const auto& [name, value] : floats)
      if (has(name, ParamKind::Float)) b.setFloat(name, value);
    if (has("u_tm_whiteColor", ParamKind::Color3)) b.setColor3("u_tm_whiteColor", {t.white[0], t.white[1], t.white[2]});
    if (has("adj_sun_direction", ParamKind::Color3)) {
      // The sky works in a z-up frame; with "y_is_up" it reads (x, z, y).
      const auto* yUp = s.info->findParameter("y_is_up");
      const bool yIsUp = given.contains("y_is_up") ? given["y_is_up"] == true
                                                   : (!yUp || yUp->kind != ParamKind::Bool || b.getBool("y_is_up"));
      const Vec3 d = yIsUp ? Vec3{sun.x, sun.z, sun.y} : sun;
      b.setColor3("adj_sun_direction", {d.x, d.y, d.z});
    }
    if (standsForLight) {
      if (has("u_hasLightRepresentation", ParamKind::Bool)) b.setBool("u_hasLightRepresentation", 1);
      if (has("illuminationOn", ParamKind::Bool)) b.setBool("illuminationOn", 0);
    }
  }

  std::string label_;
  std::string base_;
  std::shared_ptr<const ShaderLibrary> library_;
  Scene& scene_;
  std::map<std::string, std::pair<json, std::string>> textureDefinitions_;
  std::map<std::string, int> namedMaterials_;
  std::map<std::string, int> prototypeByKey_;
};

}  // namespace

SceneError::SceneError(const std::string& file, const std::string& pointer, const std::string& what)
    : std::runtime_error(file + ": " + (pointer.empty() ? std::string() : pointer + ": ") + what),
      file_(file),
      pointer_(pointer) {}

const char* lightTypeName(LightType type) {
  switch (type) {
    case LightType::Point: return "point";
    case LightType::Spot: return "spot";
    case LightType::Directional: return "directional";
    case LightType::Area: return "area";
    case LightType::Ambient: return "ambient";
    case LightType::Environment: return "environment";
    case LightType::Sky: return "sky";
    case LightType::Sphere: return "sphere";
  }
  return "unknown";
}

std::optional<LightType> lightTypeFromShaderName(const std::string& name) {
  auto has = [&](const char* word) { return name.find(word) != std::string::npos; };
  if (has("Spot")) return LightType::Spot;
  if (has("Ambient")) return LightType::Ambient;
  if (has("IBL")) return LightType::Environment;
  if (has("Sky")) return LightType::Sky;
  if (has("Direction")) return LightType::Directional;
  if (has("Point") || has("Photometric")) return LightType::Point;
  if (has("Lgt_Sphere")) return LightType::Sphere;
  if (has("Lgt_Diffuse") || has("Area")) return LightType::Area;
  return std::nullopt;
}

host::ToneMapSettings cameraToneMapSettings(const Scene& scene) {
  host::ToneMapSettings t = scene.toneMap;
  const float height = 2.0f * std::tan(0.5f * scene.camera.fovY * kPi / 180.0f);
  t.imagePlaneHeight = height;
  t.imagePlaneWidth = height * float(scene.settings.width) / float(scene.settings.height);
  t.focalDistance = 1.0f;
  return t;
}

std::unique_ptr<Scene> loadScene(const json& document, const std::string& label, const std::string& baseDirectory,
                                 std::shared_ptr<const ShaderLibrary> library) {
  auto scene = std::make_unique<Scene>();
  Loader(label, baseDirectory, std::move(library), *scene).load(document);
  return scene;
}

json readSceneDocument(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_directory(path, error)) throw SceneError(path, "", "is a folder, not a scene file");
  std::ifstream in(path);
  if (!in) throw SceneError(path, "", std::string("cannot read the scene: ") + std::strerror(errno));
  std::stringstream text;
  text << in.rdbuf();
  PointerTracker tracker;
  json document;
  try {
    document = json::parse(text.str(), std::ref(tracker));
  } catch (const PointerTracker::TooDeep& deep) {
    throw SceneError(path, deep.pointer, "values nested more than " + std::to_string(kMaxNesting) + " levels deep");
  } catch (const json::exception& e) {
    // Syntax errors say where they are; a number beyond the double range
    // (error 406) is named by its pointer.
    std::string what = e.what();
    const size_t bracket = what.find("] ");
    if (what.rfind("[json.exception", 0) == 0 && bracket != std::string::npos) what = what.substr(bracket + 2);
    if (e.id == 406) throw SceneError(path, tracker.current(), oneLine(what) + " (beyond the range of a double)");
    throw SceneError(path, "", "not valid JSON: " + oneLine(what));
  }
  if (!document.is_object()) throw SceneError(path, "", "expected a scene (a JSON object), got " + describe(document));
  return document;
}

std::unique_ptr<Scene> loadSceneFile(const std::string& path, std::shared_ptr<const ShaderLibrary> library) {
  const json document = readSceneDocument(path);
  const std::string base = std::filesystem::path(path).parent_path().string();
  return loadScene(document, path, base.empty() ? "." : base, std::move(library));
}

}  // namespace kvi::render
