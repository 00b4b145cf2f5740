#include "kvi/host/module.h"

#include <dlfcn.h>
#include <unistd.h>
#include <elf.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "kvi/host/error.h"

#ifndef KVI_INSTALL_LIBDIR
#define KVI_INSTALL_LIBDIR "lib"
#endif
#ifndef KVI_DEFAULT_MODULE_PATH
#define KVI_DEFAULT_MODULE_PATH "libkvishaders.so"
#endif

namespace kvi::host {
namespace {

bool endsWith(const std::string& s, const char* suffix) {
  const size_t n = std::strlen(suffix);
  return s.size() > n && s.compare(s.size() - n, n, suffix) == 0;
}

std::vector<uint8_t> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error("cannot read module '" + path + "': " + std::strerror(errno));
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Copies a T out of the file, checking that it lies inside it.
template <class T>
T readAt(const std::vector<uint8_t>& file, uint64_t offset, const std::string& path) {
  if (offset > file.size() || file.size() - offset < sizeof(T))
    throw Error("module '" + path + "' is truncated or not a valid ELF object");
  T value;
  std::memcpy(&value, file.data() + offset, sizeof(T));
  return value;
}

}  // namespace

std::vector<std::string> exportedShaderNames(const std::string& path) {
  const std::vector<uint8_t> file = readFile(path);
  const auto header = readAt<Elf64_Ehdr>(file, 0, path);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64 ||
      header.e_ident[EI_DATA] != ELFDATA2LSB)
    throw Error("module '" + path + "' is not a 64-bit little-endian ELF object");
  if (header.e_shentsize != sizeof(Elf64_Shdr))
    throw Error("module '" + path + "' has unexpected ELF section headers");

  std::set<std::string> creates, versions;
  for (uint16_t i = 0; i < header.e_shnum; ++i) {
    const auto section = readAt<Elf64_Shdr>(file, header.e_shoff + uint64_t(i) * sizeof(Elf64_Shdr), path);
    if (section.sh_type != SHT_DYNSYM || section.sh_entsize != sizeof(Elf64_Sym)) continue;
    if (section.sh_link >= header.e_shnum) throw Error("module '" + path + "' has a broken symbol table");
    const auto strings =
        readAt<Elf64_Shdr>(file, header.e_shoff + uint64_t(section.sh_link) * sizeof(Elf64_Shdr), path);
    if (strings.sh_offset > file.size() || file.size() - strings.sh_offset < strings.sh_size)
      throw Error("module '" + path + "' has a broken string table");
    const char* names = reinterpret_cast<const char*>(file.data() + strings.sh_offset);
    for (uint64_t k = 0; k < section.sh_size / sizeof(Elf64_Sym); ++k) {
      const auto sym = readAt<Elf64_Sym>(file, section.sh_offset + k * sizeof(Elf64_Sym), path);
      if (sym.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(sym.st_info) != STT_FUNC) continue;
      if (sym.st_name >= strings.sh_size) continue;
      const char* begin = names + sym.st_name;
      const void* end = std::memchr(begin, '\0', strings.sh_size - sym.st_name);
      if (!end) continue;
      const std::string name(begin, static_cast<const char*>(end));
      if (endsWith(name, kCreateSuffix)) creates.insert(name.substr(0, name.size() - std::strlen(kCreateSuffix)));
      if (endsWith(name, kApiVersionSuffix))
        versions.insert(name.substr(0, name.size() - std::strlen(kApiVersionSuffix)));
    }
  }
  std::vector<std::string> shaders;
  std::set_intersection(creates.begin(), creates.end(), versions.begin(), versions.end(),
                        std::back_inserter(shaders));
  return shaders;
}

std::string defaultModulePath() {
  if (const char* fromEnvironment = std::getenv("KVI_MODULE"); fromEnvironment && *fromEnvironment)
    return fromEnvironment;
  // Beside the running program: bin/ next to lib/, in the build tree and
  // once installed.
  char self[4096];
  const ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
  if (n > 0) {
    std::string dir(self, size_t(n));
    dir = dir.substr(0, dir.find_last_of('/') + 1);
    for (const char* relative : {"../" KVI_INSTALL_LIBDIR "/libkvishaders.so", "../lib/libkvishaders.so"}) {
      const std::string candidate = dir + relative;
      if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
  }
  return KVI_DEFAULT_MODULE_PATH;
}

Module::Module(std::string path, std::shared_ptr<void> handle, std::vector<std::string> names)
    : path_(std::move(path)), handle_(std::move(handle)), names_(std::move(names)) {}

Module Module::open(const std::string& path) {
  dlerror();
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = dlerror();
    throw Error("cannot load module '" + path + "': " + (reason ? reason : "unknown reason"));
  }
  std::shared_ptr<void> owned(handle, [](void* h) { dlclose(h); });
  return Module(path, std::move(owned), exportedShaderNames(path));
}

bool Module::hasShader(const std::string& name) const {
  return std::binary_search(names_.begin(), names_.end(), name);
}

ShaderFactory Module::factory(const std::string& name) const {
  ShaderFactory f;
  f.name = name;
  f.create = reinterpret_cast<CreateFunction>(dlsym(handle_.get(), (name + kCreateSuffix).c_str()));
  f.apiVersion = reinterpret_cast<ApiVersionFunction>(dlsym(handle_.get(), (name + kApiVersionSuffix).c_str()));
  if (!f.create || !f.apiVersion)
    throw Error("module '" + path_ + "' has no shader '" + name + "' (" + name +
                (f.create ? kApiVersionSuffix : kCreateSuffix) + " is not exported)");
  const int32_t version = f.apiVersion();
  if (version != kApiVersion)
    throw Error("module '" + path_ + "': shader '" + name + "' is built for API version " + std::to_string(version) +
                ", this host needs " + std::to_string(kApiVersion));
  return f;
}

ShaderPtr Module::create(const std::string& name) const { return create(factory(name)); }

ShaderPtr Module::create(const ShaderFactory& f) const {
  IShaderBase* shader = f.create();
  if (!shader) throw Error("module '" + path_ + "': " + f.name + "_create returned no object (out of memory)");
  return ShaderPtr(shader, ShaderDeleter{handle_});
}

}  // namespace kvi::host
