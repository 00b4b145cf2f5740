#include "kvi/host/module.h"

#include <dlfcn.h>
#include <unistd.h>
#include <elf.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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

// The ELF machine and byte order of the programs this host runs in: a module
// must match them to be loaded.
#if defined(__x86_64__)
constexpr uint16_t kThisMachine = EM_X86_64;
#elif defined(__aarch64__)
constexpr uint16_t kThisMachine = EM_AARCH64;
#else
constexpr uint16_t kThisMachine = EM_NONE;  // not compared
#endif
constexpr unsigned char kThisByteOrder = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? ELFDATA2LSB : ELFDATA2MSB;

// True when [offset, offset + length) lies inside a file of the given size.
bool within(uint64_t offset, uint64_t length, uint64_t size) { return offset <= size && length <= size - offset; }

// A module file read whole and checked before the dynamic loader maps it: the
// loader trusts the headers, and a segment reaching past the end of the file
// ends the process with SIGBUS when its page is touched.
class ElfModule {
 public:
  explicit ElfModule(const std::string& path) : path_(path), bytes_(readFile(path)) {
    checkHeader();
    checkSegments();
    checkSections();
  }

  // Names with both a <Name>_create and a <Name>_getAPIVersion function
  // defined in the dynamic symbol table, sorted.
  std::vector<std::string> shaderNames() const {
    std::set<std::string> creates, versions;
    for (uint64_t i = 0; i < sectionCount_; ++i) {
      const auto section = sectionHeader(i);
      if (section.sh_type != SHT_DYNSYM) continue;
      if (section.sh_entsize != sizeof(Elf64_Sym) || section.sh_link >= sectionCount_)
        fail("has a broken dynamic symbol table");
      const auto strings = sectionHeader(section.sh_link);
      const char* names = reinterpret_cast<const char*>(bytes_.data() + strings.sh_offset);
      for (uint64_t k = 0; k < section.sh_size / sizeof(Elf64_Sym); ++k) {
        const auto symbol = read<Elf64_Sym>(section.sh_offset + k * sizeof(Elf64_Sym));
        if (symbol.st_shndx == SHN_UNDEF || ELF64_ST_TYPE(symbol.st_info) != STT_FUNC) continue;
        if (symbol.st_name >= strings.sh_size) continue;
        const char* begin = names + symbol.st_name;
        const void* end = std::memchr(begin, '\0', strings.sh_size - symbol.st_name);
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

 private:
  static std::vector<uint8_t> readFile(const std::string& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) throw Error("module '" + path + "' is a directory");
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Error("cannot read module '" + path + "': " + std::strerror(errno));
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  [[noreturn]] void fail(const std::string& what) const { throw Error("module '" + path_ + "' " + what); }

  [[noreturn]] void truncated(const std::string& part, uint64_t end) const {
    fail("is truncated or damaged: its " + part + " ends at byte " + std::to_string(end) + " of a " +
         std::to_string(bytes_.size()) + "-byte file");
  }

  template <class T>
  T read(uint64_t offset) const {
    if (!within(offset, sizeof(T), bytes_.size())) truncated("data", offset + sizeof(T));
    T value;
    std::memcpy(&value, bytes_.data() + offset, sizeof(T));
    return value;
  }

  Elf64_Shdr sectionHeader(uint64_t index) const {
    return read<Elf64_Shdr>(header_.e_shoff + index * sizeof(Elf64_Shdr));
  }

  void checkHeader() {
    if (bytes_.size() < SELFMAG || std::memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0)
      fail("is not a shared library (no ELF header)");
    if (bytes_.size() < sizeof(Elf64_Ehdr)) truncated("ELF header", sizeof(Elf64_Ehdr));
    header_ = read<Elf64_Ehdr>(0);
    if (header_.e_ident[EI_CLASS] != ELFCLASS64 || header_.e_ident[EI_DATA] != kThisByteOrder)
      fail("is not a 64-bit ELF object of this machine's byte order");
    if (header_.e_type != ET_DYN) fail("is not a shared library (ELF type " + std::to_string(header_.e_type) + ")");
    if (kThisMachine != EM_NONE && header_.e_machine != kThisMachine)
      fail("is built for another machine (ELF machine " + std::to_string(header_.e_machine) + ", this one is " +
           std::to_string(kThisMachine) + ")");
    if (header_.e_phentsize != sizeof(Elf64_Phdr) || (header_.e_shnum && header_.e_shentsize != sizeof(Elf64_Shdr)))
      fail("has ELF headers of an unexpected size");
  }

  void checkSegments() const {
    const uint64_t table = uint64_t(header_.e_phnum) * sizeof(Elf64_Phdr);
    if (!within(header_.e_phoff, table, bytes_.size())) truncated("program header table", header_.e_phoff + table);
    for (uint16_t i = 0; i < header_.e_phnum; ++i) {
      const auto segment = read<Elf64_Phdr>(header_.e_phoff + uint64_t(i) * sizeof(Elf64_Phdr));
      if (!within(segment.p_offset, segment.p_filesz, bytes_.size()))
        truncated("segment " + std::to_string(i), segment.p_offset + segment.p_filesz);
    }
  }

  void checkSections() {
    if (header_.e_shoff == 0) fail("has no section headers, so its shaders cannot be listed");
    sectionCount_ = header_.e_shnum;
    // With 65280 sections or more the count lives in the first section header.
    if (sectionCount_ == 0) sectionCount_ = read<Elf64_Shdr>(header_.e_shoff).sh_size;
    if (sectionCount_ > bytes_.size() / sizeof(Elf64_Shdr)) fail("is damaged: it claims more sections than it can hold");
    const uint64_t table = sectionCount_ * sizeof(Elf64_Shdr);
    if (!within(header_.e_shoff, table, bytes_.size())) truncated("section header table", header_.e_shoff + table);
    for (uint64_t i = 0; i < sectionCount_; ++i) {
      const auto section = sectionHeader(i);
      if (section.sh_type != SHT_NOBITS && !within(section.sh_offset, section.sh_size, bytes_.size()))
        truncated("section " + std::to_string(i), section.sh_offset + section.sh_size);
    }
  }

  std::string path_;
  std::vector<uint8_t> bytes_;
  Elf64_Ehdr header_{};
  uint64_t sectionCount_ = 0;
};

}  // namespace

std::vector<std::string> exportedShaderNames(const std::string& path) { return ElfModule(path).shaderNames(); }

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
  // Checked and listed before the loader maps it: a broken file is refused
  // with a message instead of crashing the host.
  std::vector<std::string> names = exportedShaderNames(path);
  if (names.empty())
    throw Error("'" + path + "' is not a kvi module: it exports no shader (no <Name>" + kCreateSuffix + " with its <Name>" +
                kApiVersionSuffix + ")");
  dlerror();
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle) {
    const char* reason = dlerror();
    throw Error("cannot load module '" + path + "': " + (reason ? reason : "unknown reason"));
  }
  std::shared_ptr<void> owned(handle, [](void* h) { dlclose(h); });
  return Module(path, std::move(owned), std::move(names));
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
