#include "kvi/host/photometric_web.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "kvi/host/error.h"

namespace kvi::host {
namespace {

constexpr long kMaxAngles = 100000;  // per axis: far beyond any measured web

struct Token {
  std::string text;
  int line;
};

// The numbers after the TILT= line, with the line each stands on, and the
// file's lines before them.
class IesReader {
 public:
  IesReader(const std::string& text, std::string fileName) : fileName_(std::move(fileName)) { split(text); }

  PhotometricWeb read() {
    readHeader();
    count("the number of lamps", 1, 1000);
    number("the lumens per lamp");
    const float multiplier = nonNegative("the candela multiplier");
    const long verticalCount = count("the number of vertical angles", 1, kMaxAngles);
    const long horizontalCount = count("the number of horizontal angles", 1, kMaxAngles);
    readPhotometricType();
    count("the units type (1 feet, 2 metres)", 1, 2);
    for (const char* size : {"the luminaire's width", "the luminaire's length", "the luminaire's height"})
      number(size);
    const float ballast = nonNegative("the ballast factor");
    // 1995 and earlier: the ballast-lamp photometric factor; 2002: reserved, 1.
    const float lampFactor = nonNegative("the ballast-lamp factor (future use)");
    number("the input watts");

    PhotometricWeb web;
    web.verticalAngles = angles(verticalCount, "vertical");
    const int horizontalLine = position_ < tokens_.size() ? tokens_[position_].line : lastLine_;
    web.horizontalAngles = angles(horizontalCount, "horizontal");
    checkVerticalRange(web.verticalAngles);
    checkHorizontalLayout(web.horizontalAngles, horizontalLine);

    const float scale = multiplier * ballast * (format2002_ ? 1.0f : lampFactor);
    web.candela.reserve(size_t(verticalCount * horizontalCount));
    for (long h = 0; h < horizontalCount; ++h)
      for (long v = 0; v < verticalCount; ++v) {
        const long left = verticalCount * horizontalCount - long(web.candela.size());
        const Token& t = next("a candela value (" + std::to_string(left) + " of " +
                              std::to_string(verticalCount * horizontalCount) + " still to come)");
        const float value = numberOf(t, "a candela value");
        if (value < 0.0f)
          fail(t.line, "negative candela " + t.text + " at horizontal angle " +
                           format(web.horizontalAngles[size_t(h)]) + ", vertical angle " +
                           format(web.verticalAngles[size_t(v)]));
        web.candela.push_back(value * scale);
      }
    if (position_ < tokens_.size())
      fail(tokens_[position_].line, "unexpected '" + tokens_[position_].text + "' after the candela table (the counts say " +
                                        std::to_string(verticalCount) + " vertical and " +
                                        std::to_string(horizontalCount) + " horizontal angles)");
    return web;
  }

 private:
  [[noreturn]] void fail(int line, const std::string& what) const {
    throw Error(fileName_ + ":" + std::to_string(line) + ": " + what);
  }

  static std::string format(float value) {
    std::ostringstream out;
    out << value;
    return out.str();
  }

  void split(const std::string& text) {
    std::istringstream in(text);
    std::string line;
    int number = 0;
    while (std::getline(in, line)) {
      ++number;
      if (!line.empty() && line.back() == '\r') line.pop_back();
      lines_.push_back(line);
    }
    lastLine_ = std::max(1, number);
  }

  // The format line (if any), keyword lines, and the TILT= line with its data.
  void readHeader() {
    size_t index = 0;
    if (!lines_.empty() && lines_[0].rfind("IES", 0) == 0) {
      const std::string& format = lines_[0];
      const auto trimmed = format.substr(0, format.find_last_not_of(" \t") + 1);
      if (trimmed == "IESNA:LM-63-2002")
        format2002_ = true;
      else if (trimmed != "IESNA:LM-63-1995" && trimmed != "IESNA91")
        fail(1, "unknown format line '" + trimmed + "' (expected IESNA:LM-63-1995 or IESNA:LM-63-2002)");
      index = 1;
    }
    for (; index < lines_.size(); ++index) {
      const std::string& line = lines_[index];
      if (line.rfind("TILT=", 0) != 0) continue;  // keywords and free text before it
      const std::string tilt = line.substr(5, line.find_last_not_of(" \t") + 1 - 5);
      tokenize(index + 1);
      if (tilt == "INCLUDE") {
        skipTilt();
      } else if (tilt != "NONE") {
        fail(int(index + 1), "TILT=" + tilt + ": tilt data from a separate file is not supported "
                             "(expected TILT=NONE or TILT=INCLUDE)");
      }
      return;
    }
    fail(lastLine_, "the file ends before its TILT= line");
  }

  void tokenize(size_t firstLine) {
    for (size_t i = firstLine; i < lines_.size(); ++i) {
      std::string line = lines_[i];
      std::replace(line.begin(), line.end(), ',', ' ');
      std::istringstream words(line);
      std::string word;
      while (words >> word) tokens_.push_back({word, int(i + 1)});
    }
  }

  void skipTilt() {
    const Token& geometry = next("the lamp-to-luminaire geometry (1, 2 or 3)");
    const long g = integerOf(geometry, "the lamp-to-luminaire geometry (1, 2 or 3)");
    if (g < 1 || g > 3) fail(geometry.line, "expected the lamp-to-luminaire geometry 1, 2 or 3, got '" + geometry.text + "'");
    const long n = count("the number of tilt angles", 1, kMaxAngles);
    for (const char* what : {"a tilt angle", "a tilt multiplying factor"})
      for (long i = 0; i < n; ++i) number(what);
  }

  void readPhotometricType() {
    const Token& t = next("the photometric type (1 for type C)");
    const long type = integerOf(t, "the photometric type (1 for type C)");
    if (type == 2 || type == 3)
      fail(t.line, std::string("type ") + (type == 2 ? "B" : "A") +
                       " photometry is not supported (expected photometric type 1, type C)");
    if (type != 1) fail(t.line, "unknown photometric type '" + t.text + "' (expected 1, type C)");
  }

  std::vector<float> angles(long n, const std::string& which) {
    std::vector<float> list;
    for (long i = 0; i < n; ++i) {
      const Token& t = next("a " + which + " angle (" + std::to_string(n - i) + " of " + std::to_string(n) +
                            " still to come)");
      const float a = numberOf(t, "a " + which + " angle");
      if (!list.empty() && !(a > list.back()))
        fail(t.line, which + " angles out of order: " + t.text + " after " + format(list.back()) +
                         " (expected increasing angles)");
      list.push_back(a);
    }
    return list;
  }

  void checkVerticalRange(const std::vector<float>& v) const {
    const int line = firstAngleLine_;
    if (!(v.front() == 0.0f || v.front() == 90.0f) || !(v.back() == 90.0f || v.back() == 180.0f || v.size() == 1))
      fail(line, "type C vertical angles must run from 0 or 90 to 90 or 180 degrees, got " + format(v.front()) +
                     " to " + format(v.back()));
  }

  void checkHorizontalLayout(const std::vector<float>& h, int line) const {
    const float first = h.front(), last = h.back();
    const bool ok = (first == 0.0f && (last == 0.0f || last == 90.0f || last == 180.0f || last == 360.0f)) ||
                    (first == 90.0f && last == 270.0f);
    if (!ok)
      fail(line, "type C horizontal angles must run from 0 to 0, 90, 180 or 360 degrees, or from 90 to 270, got " +
                     format(first) + " to " + format(last));
  }

  const Token& next(const std::string& expected) {
    if (position_ >= tokens_.size()) fail(lastLine_, "the file ends where " + expected + " was expected");
    if (firstAngleLine_ == 0 && expected.rfind("a vertical angle", 0) == 0) firstAngleLine_ = tokens_[position_].line;
    return tokens_[position_++];
  }

  float numberOf(const Token& t, const std::string& what) const {
    errno = 0;
    char* end = nullptr;
    const double v = std::strtod(t.text.c_str(), &end);
    if (end == t.text.c_str() || *end != '\0' || !std::isfinite(v) || errno == ERANGE ||
        std::fabs(v) > 3.0e38)
      fail(t.line, "expected " + what + " (a number), got '" + t.text + "'");
    return float(v);
  }
  long integerOf(const Token& t, const std::string& what) const {
    const float v = numberOf(t, what);
    if (v != std::floor(v) || std::fabs(v) > 1e9f) fail(t.line, "expected " + what + " (a whole number), got '" + t.text + "'");
    return long(v);
  }

  float number(const std::string& what) { return numberOf(next(what), what); }
  float nonNegative(const std::string& what) {
    const Token& t = next(what);
    const float v = numberOf(t, what);
    if (v < 0.0f) fail(t.line, "expected " + what + " of 0 or more, got '" + t.text + "'");
    return v;
  }
  long count(const std::string& what, long lo, long hi) {
    const Token& t = next(what);
    const long n = integerOf(t, what);
    if (n < lo || n > hi)
      fail(t.line, "expected " + what + " from " + std::to_string(lo) + " to " + std::to_string(hi) + ", got '" +
                       t.text + "'");
    return n;
  }

  std::string fileName_;
  std::vector<std::string> lines_;
  std::vector<Token> tokens_;
  size_t position_ = 0;
  int lastLine_ = 1;
  int firstAngleLine_ = 0;
  bool format2002_ = false;
};

// The index i of the interval [a[i], a[i + 1]] holding x and the fraction
// along it; a single angle is its own interval. False outside [a0, an].
bool locate(const std::vector<float>& a, float x, size_t& i, float& fraction) {
  if (!(x >= a.front() && x <= a.back())) return false;
  if (a.size() == 1) {
    i = 0;
    fraction = 0.0f;
    return true;
  }
  i = size_t(std::upper_bound(a.begin(), a.end(), x) - a.begin());
  i = std::min(std::max(i, size_t(1)), a.size() - 1) - 1;
  fraction = (x - a[i]) / (a[i + 1] - a[i]);
  return true;
}

// H folded into the range the table covers, by the layout's symmetry.
float unfold(const std::vector<float>& h, float angle) {
  const float first = h.front(), last = h.back();
  if (h.size() == 1 || last == 0.0f) return first;
  if (first == 90.0f) return angle < 90.0f ? 180.0f - angle : angle > 270.0f ? 540.0f - angle : angle;
  if (last == 90.0f) {
    if (angle > 270.0f) return 360.0f - angle;
    if (angle > 180.0f) return angle - 180.0f;
    if (angle > 90.0f) return 180.0f - angle;
    return angle;
  }
  if (last == 180.0f) return angle > 180.0f ? 360.0f - angle : angle;
  return angle;
}

}  // namespace

float PhotometricWeb::intensity(float horizontal, float vertical) const {
  if (!std::isfinite(horizontal) || !std::isfinite(vertical) || candela.empty()) return 0.0f;
  float wrapped = std::fmod(horizontal, 360.0f);
  if (wrapped < 0.0f) wrapped += 360.0f;
  size_t h, v;
  float fh, fv;
  if (!locate(horizontalAngles, unfold(horizontalAngles, wrapped), h, fh)) return 0.0f;
  if (!locate(verticalAngles, vertical, v, fv)) return 0.0f;
  const size_t n = verticalAngles.size();
  const size_t h1 = std::min(h + 1, horizontalAngles.size() - 1), v1 = std::min(v + 1, n - 1);
  const auto at = [&](size_t hi, size_t vi) { return candela[hi * n + vi]; };
  const float low = at(h, v) + (at(h, v1) - at(h, v)) * fv;
  const float high = at(h1, v) + (at(h1, v1) - at(h1, v)) * fv;
  return low + (high - low) * fh;
}

PhotometricWeb parseIes(const std::string& text, const std::string& fileName) {
  return IesReader(text, fileName).read();
}

PhotometricWeb readIesFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error(path + ": cannot read the photometric file: " + std::strerror(errno));
  std::stringstream text;
  text << in.rdbuf();
  return parseIes(text.str(), path);
}

void PhotometricWebSampler::sample(float out[4], const float* coords) {
  const float value = web_.intensity(coords[0] * 360.0f, coords[1] * 180.0f);
  out[0] = out[1] = out[2] = value;
  out[3] = 1.0f;
}

}  // namespace kvi::host
