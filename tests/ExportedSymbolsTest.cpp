// Checks the library's dynamic symbol table against the public interface
// listed in tests/symbols: nothing private leaks, nothing public is missing.
// The table is the ELF dynamic symbols (read with nm -D) or, on Windows, the
// names of the DLL's export directory (read from the file here: a Windows
// machine has no nm, and the file format is small enough to walk).
#include <cxxabi.h>
#include <dirent.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

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
// --- The export directory of a PE file -----------------------------------
// Little-endian fields at byte offsets; every read is bounds-checked, and a
// file that does not hold together gives an error text instead of names.

class PeFile {
 public:
  explicit PeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    m_bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  // The export directory's names in their (sorted) order; error says what
  // was wrong when the result cannot be trusted.
  std::vector<std::string> ExportNames(std::string& error) {
    std::vector<std::string> names;
    uint32_t pe = 0, signature = 0, exportRva = 0, exportSize = 0;
    uint16_t machine = 0, sections = 0, optionalSize = 0, magic = 0;
    if (!Read16(0, magic) || magic != 0x5A4D) return Fail(error, "no MZ header");
    if (!Read32(0x3C, pe) || !Read32(pe, signature) || signature != 0x00004550)
      return Fail(error, "no PE signature");
    const size_t coff = static_cast<size_t>(pe) + 4;
    if (!Read16(coff, machine) || !Read16(coff + 2, sections) ||
        !Read16(coff + 16, optionalSize))
      return Fail(error, "truncated file header");
    if (machine != 0x8664) return Fail(error, "not an x86-64 image");
    const size_t optional = coff + 20;
    // PE32+: the data directories start at 112, export directory first.
    uint32_t directories = 0;
    if (!Read16(optional, magic) || magic != 0x20B || optionalSize < 120 ||
        !Read32(optional + 108, directories) || directories < 1 ||
        !Read32(optional + 112, exportRva) || !Read32(optional + 116, exportSize))
      return Fail(error, "no PE32+ optional header with a data directory");
    m_sectionTable = optional + optionalSize;
    m_sections = sections;
    if (exportRva == 0 || exportSize < 40) return Fail(error, "no export directory");
    size_t dir = 0;
    uint32_t nameCount = 0, namesRva = 0;
    if (!Offset(exportRva, dir) || !Read32(dir + 24, nameCount) || !Read32(dir + 32, namesRva))
      return Fail(error, "export directory outside the file");
    size_t namesAt = 0;
    if (!Offset(namesRva, namesAt)) return Fail(error, "name table outside the file");
    for (uint32_t i = 0; i < nameCount; ++i) {
      uint32_t nameRva = 0;
      size_t at = 0;
      if (!Read32(namesAt + 4 * static_cast<size_t>(i), nameRva) || !Offset(nameRva, at))
        return Fail(error, "name " + std::to_string(i) + " outside the file");
      std::string name;
      while (at < m_bytes.size() && m_bytes[at] != 0) name.push_back(m_bytes[at++]);
      if (at >= m_bytes.size()) return Fail(error, "unterminated name " + name);
      names.push_back(name);
    }
    return names;
  }

 private:
  static std::vector<std::string> Fail(std::string& error, const std::string& what) {
    error = what;
    return std::vector<std::string>();
  }
  bool Read16(size_t at, uint16_t& value) const {
    if (at > m_bytes.size() || m_bytes.size() - at < 2) return false;
    value = static_cast<uint16_t>(Byte(at) | Byte(at + 1) << 8);
    return true;
  }
  bool Read32(size_t at, uint32_t& value) const {
    if (at > m_bytes.size() || m_bytes.size() - at < 4) return false;
    value = Byte(at) | Byte(at + 1) << 8 | Byte(at + 2) << 16 | Byte(at + 3) << 24;
    return true;
  }
  uint32_t Byte(size_t at) const { return static_cast<unsigned char>(m_bytes[at]); }
  // The file offset of an address relative to the image: the section whose
  // stored bytes hold it.
  bool Offset(uint32_t rva, size_t& offset) const {
    for (size_t i = 0; i < m_sections; ++i) {
      const size_t header = m_sectionTable + 40 * i;
      uint32_t virtualAddress = 0, rawSize = 0, rawOffset = 0;
      if (!Read32(header + 12, virtualAddress) || !Read32(header + 16, rawSize) ||
          !Read32(header + 20, rawOffset))
        return false;
      if (rva >= virtualAddress && rva - virtualAddress < rawSize) {
        offset = static_cast<size_t>(rawOffset) + (rva - virtualAddress);
        return offset < m_bytes.size();
      }
    }
    return false;
  }

  std::string m_bytes;
  size_t m_sectionTable = 0;
  size_t m_sections = 0;
};

std::vector<std::string> ExportedSymbols() {
  std::string error;
  const std::vector<std::string> names = PeFile(OVRA_LIBRARY_FILE).ExportNames(error);
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
