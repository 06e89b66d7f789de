// The dynamic symbols of the shared library it links, read here from the ELF
// file: the test needs no tool and cannot pass for want of one.
#include <cxxabi.h>
#include <elf.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
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

// Demangled names of the defined, default-visibility symbols of .dynsym, each
// also without its parameter list and as its scope ("X::" for a member of X).
std::set<std::string> exported_names(const char* path) {
  std::ifstream file(path, std::ios::binary);
  const std::string image((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
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
      const char* raw = image.c_str() + strings.sh_offset + sym.st_name;
      char* demangled = abi::__cxa_demangle(raw, nullptr, nullptr, nullptr);
      const std::string name = demangled != nullptr ? demangled : raw;
      std::free(demangled);
      const std::string bare = name.substr(0, name.find('('));
      const std::size_t scope = bare.rfind("::");
      names.insert({name, bare, scope == std::string::npos ? name : bare.substr(0, scope + 2)});
    }
  }
  return names;
}

TEST(ExportedSymbolsTest, EveryFamilyIsExportedAndNothingInternalLeaks) {
  const std::set<std::string> names = exported_names(KRLPORT_SHARED_LIBRARY);
  ASSERT_GT(names.size(), 100u) << "no dynamic symbols read from " << KRLPORT_SHARED_LIBRARY;
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
  EXPECT_EQ(0u, names.count("gettimeofday"));  // the C library's stays the process's
}

// The host (a PIE) gets the library's scanner, both using the host's variables.
TEST(ExportedSymbolsTest, TheHostGetsTheLibrarysScanner) {
  char* argv[] = {const_cast<char*>("/bin/prog"), const_cast<char*>("-q")};
  testing::internal::CaptureStdout();
  EXPECT_EQ('?', getopt(2, argv, "a"));
  EXPECT_EQ("prog: illegal option -- q\n", testing::internal::GetCapturedStdout());
  EXPECT_EQ('q', optopt);
}

}  // namespace
