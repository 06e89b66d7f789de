// The exported symbols of the shared library it links, read here from the
// file itself: on Linux the defined, default-visibility symbols of the ELF
// file's .dynsym, on Windows the names of the DLL's export directory. The test
// needs no tool and cannot pass for want of one.
#include <cxxabi.h>
#include <gtest/gtest.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <elf.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <set>
#include <string>

#include "krlport/services/getopt.h"

namespace {

template <class T>
T read_at(const std::string& image, std::size_t offset) {
  T value{};
  if (offset + sizeof(T) <= image.size()) std::memcpy(&value, image.data() + offset, sizeof(T));
  return value;
}

// Adds a raw symbol name demangled, also without its parameter list and as its
// scope ("X::" for a member of X).
void add_name(std::set<std::string>& names, const char* raw) {
  char* demangled = abi::__cxa_demangle(raw, nullptr, nullptr, nullptr);
  const std::string name = demangled != nullptr ? demangled : raw;
  std::free(demangled);
  const std::string bare = name.substr(0, name.find('('));
  const std::size_t scope = bare.rfind("::");
  names.insert({name, bare, scope == std::string::npos ? name : bare.substr(0, scope + 2)});
}

std::string read_file(const char* path) {
  std::ifstream file(path, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
}

#if defined(_WIN32)
// The file of the DLL this program runs with, as the system found it.
std::string library_path() {
  HMODULE dll = ::GetModuleHandleA("krlport_r_6.dll");
  char path[MAX_PATH] = "";
  if (dll != nullptr) ::GetModuleFileNameA(dll, path, sizeof path);
  return path;
}

// A PE32+ file (a DLL) read from disk. Offsets and fields as in the PE
// format: the DOS header points at "PE\0\0", the COFF header follows, then
// the optional header, whose data directories begin at its byte 112 (the
// export table first, the import table second); relative addresses map to
// the file through the section table. Reads past the end give zeros.
class PeFile {
 public:
  explicit PeFile(const char* path) : _image(read_file(path)) {
    if (_image.compare(0, 2, "MZ") != 0) return;
    const auto pe = read_at<std::uint32_t>(_image, 0x3C);
    if (_image.compare(pe, 4, std::string("PE\0\0", 4)) != 0) return;
    const std::size_t coff = pe + 4;
    _sections = read_at<std::uint16_t>(_image, coff + 2);
    _optional = coff + 20;
    _section_table = _optional + read_at<std::uint16_t>(_image, coff + 16);
    _valid = read_at<std::uint16_t>(_image, _optional) == 0x20B;
  }

  bool valid() const { return _valid; }
  // File offset of data directory i's contents.
  std::size_t directory(unsigned i) const {
    return offset(read_at<std::uint32_t>(_image, _optional + 112 + 8 * i));
  }
  std::size_t offset(std::uint32_t rva) const {
    for (unsigned i = 0; i < _sections; ++i) {
      const std::size_t h = _section_table + 40 * i;
      const auto size = read_at<std::uint32_t>(_image, h + 8);
      const auto address = read_at<std::uint32_t>(_image, h + 12);
      const auto raw = read_at<std::uint32_t>(_image, h + 20);
      if (rva >= address && rva < address + size) return raw + (rva - address);
    }
    return _image.size();
  }
  std::uint32_t u32(std::size_t at) const { return read_at<std::uint32_t>(_image, at); }
  // The text at relative address rva, or null.
  const char* text(std::uint32_t rva) const {
    const std::size_t at = offset(rva);
    return at < _image.size() ? _image.c_str() + at : nullptr;
  }

 private:
  std::string _image;
  std::size_t _optional = 0, _section_table = 0;
  unsigned _sections = 0;
  bool _valid = false;
};

// The names of the DLL's export directory.
std::set<std::string> exported_names(const char* path) {
  const PeFile dll(path);
  std::set<std::string> names;
  if (!dll.valid()) return names;
  const std::size_t exports = dll.directory(0);
  const std::uint32_t count = dll.u32(exports + 24);
  const std::size_t name_table = dll.offset(dll.u32(exports + 32));
  for (std::uint32_t k = 0; k < count; ++k) {
    if (const char* raw = dll.text(dll.u32(name_table + 4 * k))) add_name(names, raw);
  }
  return names;
}

// The DLLs that the DLL imports from, by their names in its import table.
std::set<std::string> imported_libraries(const char* path) {
  const PeFile dll(path);
  std::set<std::string> libraries;
  if (!dll.valid()) return libraries;
  // Import descriptors of 20 bytes, the name at byte 12; a zero one ends.
  for (std::size_t at = dll.directory(1); dll.u32(at + 12) != 0; at += 20) {
    if (const char* name = dll.text(dll.u32(at + 12))) libraries.insert(name);
  }
  return libraries;
}
#else
std::string library_path() { return KRLPORT_SHARED_LIBRARY; }

// The defined, default-visibility symbols of .dynsym.
std::set<std::string> exported_names(const char* path) {
  const std::string image = read_file(path);
  const auto header = read_at<Elf64_Ehdr>(image, 0);
  std::set<std::string> names;
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0) return names;  // no ELF file
  for (unsigned i = 0; i < header.e_shnum; ++i) {
    const auto sh = read_at<Elf64_Shdr>(image, header.e_shoff + i * sizeof(Elf64_Shdr));
    if (sh.sh_type != SHT_DYNSYM) continue;
    const auto strings = read_at<Elf64_Shdr>(image, header.e_shoff + sh.sh_link * sizeof(sh));
    for (std::size_t k = 1; k < sh.sh_size / sizeof(Elf64_Sym); ++k) {
      const auto sym = read_at<Elf64_Sym>(image, sh.sh_offset + k * sizeof(Elf64_Sym));
      if (sym.st_shndx == SHN_UNDEF || ELF64_ST_VISIBILITY(sym.st_other) != STV_DEFAULT) continue;
      add_name(names, image.c_str() + strings.sh_offset + sym.st_name);
    }
  }
  return names;
}
#endif

TEST(ExportedSymbolsTest, EveryFamilyIsExportedAndNothingInternalLeaks) {
  const std::string library = library_path();
  const std::set<std::string> names = exported_names(library.c_str());
  ASSERT_GT(names.size(), 100u) << "no exported symbols read from " << library;
  // clang-format off
  const char* const members[] = {  // a member or two of each family; "X::": any member of X
      "KRLPortLibManager::initialize", "CORBA::string_dup", "_krl_hash(KRLStringWrapper const&)",
      "KRLResource::garbage_collect", "CORBA_Exception::Description::desc", "CORBA_Environment::",
      "CORBA_SystemException::minor", "operator<<(KRLostream&, CORBA_Exception const&)",
      "KRLMutex_var::", "KRLSpinMutex::lock", "KRLCondition::wait", "KRLRWLock::write_lock",
      "KRLThread::run", "KRLThreadLocal::instance", "KRLostream::putCString", "KRLOffsetTable::add",
      "operator>>(KRListream&, CORBA_String_var&)", "BaseUtil::", "KRLPortable::tcpConnect",
      "KRLPipe::", "KRLLogger::instance", "typeinfo for KRLLoadLibrary::LoadError",
      "KRLArgList::getArgValue", "getopt", "optarg", "optind", "optopt"};
  // clang-format on
  for (const char* member : members) EXPECT_EQ(1u, names.count(member)) << member;
  const char* const exceptions[] = {
#define KRL_SYSTEM_EXCEPTION(NAME) "CORBA_" #NAME,
#include "krlport/exceptions/system_exception_list.inc"
#undef KRL_SYSTEM_EXCEPTION
  };
  for (const std::string e : exceptions)
    EXPECT_TRUE(names.count("typeinfo for " + e) && names.count(e + "::_description")) << e;
  const char* const internal[] = {"krl_internal::", "KRLSpinWordPool", "KRLSpinRecordPool",
                                  "CountBlockPool", "DictionaryCore",  "KRLDebugLogger"};
  for (const std::string& name : names)
    for (const char* part : internal) EXPECT_EQ(std::string::npos, name.find(part)) << name;
#if defined(_WIN32)
  EXPECT_EQ(1u, names.count("gettimeofday"));  // exported as the plain function there
#else
  EXPECT_EQ(0u, names.count("gettimeofday"));  // the C library's stays the process's
#endif
}

// The host gets the library's scanner: on Linux a PIE, whose variables both
// use; on Windows through the DLL's import entries (a plain reference to
// optind would have linked the C runtime's getopt as well, and failed).
TEST(ExportedSymbolsTest, TheHostGetsTheLibrarysScanner) {
  char* argv[] = {const_cast<char*>("/bin/prog"), const_cast<char*>("-q")};
  testing::internal::CaptureStdout();
  EXPECT_EQ('?', getopt(2, argv, "a"));
  EXPECT_EQ("prog: illegal option -- q\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ('q', optopt);
}

#if defined(_WIN32)
// One C++ runtime on both sides of the boundary: the DLL imports it, and this
// program's std::cout lies in that same module. So there is one std::cout,
// whose address the library compares with the streams it is given.
TEST(ExportedSymbolsTest, TheDllAndTheHostShareOneCxxRuntime) {
  const std::string library = library_path();
  EXPECT_EQ(1u, imported_libraries(library.c_str()).count("libstdc++-6.dll")) << library;
  HMODULE runtime = ::GetModuleHandleA("libstdc++-6.dll");
  ASSERT_NE(nullptr, runtime);
  HMODULE of_cout = nullptr;
  ASSERT_TRUE(::GetModuleHandleExA(
      GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
      reinterpret_cast<LPCSTR>(&std::cout), &of_cout));
  EXPECT_EQ(runtime, of_cout);
}
#endif

}  // namespace
