// Checks the library's dynamic symbol table against the public interface
// listed in tests/symbols: nothing private leaks, nothing public is missing.
// The table is the ELF dynamic symbols (read with nm -D) or, on Windows, the
// names of the DLL's export directory (read from the file by TestPeFile.h: a
// Windows machine has no nm).
#include <cxxabi.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TestPeFile.h"

namespace {

struct Interface {
  std::set<std::string> plain;                 // undecorated names
  std::map<std::string, int> classes;          // class name -> symbols seen
  std::map<std::string, int> cxxPrefixes;      // demangled prefix -> symbols seen
};

Interface ReadInterface() {
  Interface api;
  DIR* dir = opendir(OVRA_SYMBOLS_DIR);
  if (!dir) return api;
  while (dirent* e = readdir(dir)) {
    const std::string name = e->d_name;
    if (name.size() < 6 || name.compare(name.size() - 5, 5, ".syms") != 0) continue;
    std::ifstream in(std::string(OVRA_SYMBOLS_DIR) + "/" + name);
    std::string line;
    while (std::getline(in, line)) {
      if (line.empty() || line[0] == '#') continue;
      if (line.rfind("class ", 0) == 0) {
        api.classes[line.substr(6)] = 0;
      } else if (line.rfind("cxx ", 0) == 0) {
        api.cxxPrefixes[line.substr(4)] = 0;
      } else {
        api.plain.insert(line);
      }
    }
  }
  closedir(dir);
  return api;
}

#if defined(_WIN32)
std::vector<std::string> ExportedSymbols() {
  std::string error;
  std::vector<std::string> names;
  for (const ovra_test::PeExport& e : ovra_test::PeFile(OVRA_LIBRARY_FILE).Exports(error))
    names.push_back(e.name);
  EXPECT_EQ(error, "") << OVRA_LIBRARY_FILE;
  return names;
}
#else
std::vector<std::string> ExportedSymbols() {
  std::vector<std::string> symbols;
  const std::string cmd = std::string("nm -D --defined-only '") + OVRA_LIBRARY_FILE + "'";
  FILE* p = popen(cmd.c_str(), "r");
  if (!p) return symbols;
  char line[4096];
  while (fgets(line, sizeof line, p)) {
    std::istringstream fields(line);
    std::string address, type, name;
    fields >> address >> type >> name;
    if (!name.empty()) symbols.push_back(name);
  }
  pclose(p);
  return symbols;
}
#endif

std::string Demangle(const std::string& name) {
  int status = 0;
  char* d = abi::__cxa_demangle(name.c_str(), nullptr, nullptr, &status);
  std::string out = (status == 0 && d) ? d : name;
  free(d);
  return out;
}

bool StartsWith(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

// True if the demangled symbol belongs to class `c` (members, vtable, typeinfo).
bool BelongsToClass(const std::string& d, const std::string& c) {
  static const char* const kPrefixes[] = {"", "vtable for ", "typeinfo for ",
                                          "typeinfo name for ", "non-virtual thunk to ",
                                          "virtual thunk to "};
  for (const char* p : kPrefixes) {
    const std::string full = std::string(p) + c;
    if (d == full && *p) return true;
    if (StartsWith(d, full + "::")) return true;
  }
  return false;
}

TEST(ExportedSymbolsTest, DynamicSymbolTableMatchesThePublicInterface) {
  Interface api = ReadInterface();
  ASSERT_FALSE(api.plain.empty()) << "no symbol lists found in " << OVRA_SYMBOLS_DIR;
  const std::vector<std::string> exported = ExportedSymbols();
  ASSERT_FALSE(exported.empty()) << "no exported symbols found in " << OVRA_LIBRARY_FILE;

  std::set<std::string> seenPlain;
  for (const std::string& sym : exported) {
    if (api.plain.count(sym)) {
      seenPlain.insert(sym);
      continue;
    }
    const std::string d = Demangle(sym);
    bool covered = false;
    for (auto& c : api.classes) {
      if (BelongsToClass(d, c.first)) {
        ++c.second;
        covered = true;
      }
    }
    for (auto& f : api.cxxPrefixes) {
      if (StartsWith(d, f.first)) {
        ++f.second;
        covered = true;
      }
    }
    EXPECT_TRUE(covered) << "exported but not public: " << sym << " (" << d << ")";
  }
  for (const std::string& name : api.plain)
    EXPECT_TRUE(seenPlain.count(name)) << "public but not exported: " << name;
  for (const auto& c : api.classes)
    EXPECT_GT(c.second, 0) << "public class without exported symbols: " << c.first;
  for (const auto& f : api.cxxPrefixes)
    EXPECT_GT(f.second, 0) << "public function not exported: " << f.first;
}

TEST(ExportedSymbolsTest, PlainNamesAreUndecorated) {
  for (const std::string& name : ReadInterface().plain)
    EXPECT_FALSE(StartsWith(name, "_Z")) << name;
}

TEST(ExportedSymbolsTest, AllocationOperatorsAreNotExported) {
  for (const std::string& sym : ExportedSymbols()) {
    const std::string d = Demangle(sym);
    EXPECT_FALSE(StartsWith(d, "operator new") || StartsWith(d, "operator delete")) << d;
  }
}

}  // namespace
