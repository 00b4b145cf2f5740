// The reference host reports every failure as an Error whose message names
// what went wrong: the module, the shader, the parameter.
#pragma once

#include <stdexcept>
#include <string>

namespace kvi::host {

class Error : public std::runtime_error {
 public:
  explicit Error(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace kvi::host
