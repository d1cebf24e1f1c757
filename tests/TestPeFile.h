// TestPeFile.h - the export directory of a 64-bit Windows DLL, read from its
// file: what the tests that check a library's exported names use where there
// is no nm. Plain C++ (no system header), so that it builds anywhere.
// Little-endian fields at byte offsets; every read is bounds-checked, and a
// file that does not hold together gives an error text instead of entries.
#ifndef OVRA_TESTS_TESTPEFILE_H
#define OVRA_TESTS_TESTPEFILE_H

#include <stddef.h>
#include <stdint.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ovra_test {

// Section flags (the section header's Characteristics).
constexpr uint32_t kPeSectionCode = 0x00000020;
constexpr uint32_t kPeSectionInitializedData = 0x00000040;
constexpr uint32_t kPeSectionExecutable = 0x20000000;
constexpr uint32_t kPeSectionWritable = 0x80000000;

struct PeExport {
  std::string name;
  uint32_t rva = 0;       // address relative to the image's base
  uint32_t section = 0;   // flags of the section that holds it (0: none)
};

class PeFile {
 public:
  explicit PeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    m_bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  // The named exports in the directory's (sorted) order; error says what was
  // wrong when the result cannot be trusted.
  std::vector<PeExport> Exports(std::string& error) {
    std::vector<PeExport> exports;
    uint32_t pe = 0, signature = 0, exportRva = 0, exportSize = 0, directories = 0;
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
    // PE32+: the data directories start at 112, the export directory first.
    if (!Read16(optional, magic) || magic != 0x20B || optionalSize < 120 ||
        !Read32(optional + 108, directories) || directories < 1 ||
        !Read32(optional + 112, exportRva) || !Read32(optional + 116, exportSize))
      return Fail(error, "no PE32+ optional header with a data directory");
    m_sectionTable = optional + optionalSize;
    m_sections = sections;
    if (exportRva == 0 || exportSize < 40) return Fail(error, "no export directory");
    size_t dir = 0, namesAt = 0, ordinalsAt = 0, functionsAt = 0;
    uint32_t functionCount = 0, nameCount = 0, functionsRva = 0, namesRva = 0, ordinalsRva = 0;
    if (!Offset(exportRva, dir) || !Read32(dir + 20, functionCount) ||
        !Read32(dir + 24, nameCount) || !Read32(dir + 28, functionsRva) ||
        !Read32(dir + 32, namesRva) || !Read32(dir + 36, ordinalsRva))
      return Fail(error, "export directory outside the file");
    if (nameCount && (!Offset(namesRva, namesAt) || !Offset(ordinalsRva, ordinalsAt) ||
                      !Offset(functionsRva, functionsAt)))
      return Fail(error, "export tables outside the file");
    for (uint32_t i = 0; i < nameCount; ++i) {
      uint32_t nameRva = 0;
      uint16_t ordinal = 0;
      size_t at = 0;
      PeExport entry;
      if (!Read32(namesAt + 4 * static_cast<size_t>(i), nameRva) || !Offset(nameRva, at) ||
          !Read16(ordinalsAt + 2 * static_cast<size_t>(i), ordinal) || ordinal >= functionCount ||
          !Read32(functionsAt + 4 * static_cast<size_t>(ordinal), entry.rva))
        return Fail(error, "export " + std::to_string(i) + " outside the file");
      while (at < m_bytes.size() && m_bytes[at] != 0) entry.name.push_back(m_bytes[at++]);
      if (at >= m_bytes.size()) return Fail(error, "unterminated name " + entry.name);
      entry.section = SectionFlags(entry.rva);
      exports.push_back(entry);
    }
    return exports;
  }

 private:
  static std::vector<PeExport> Fail(std::string& error, const std::string& what) {
    error = what;
    return std::vector<PeExport>();
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
  // The section header (its offset in the file) whose memory holds rva.
  bool Section(uint32_t rva, size_t& header) const {
    for (size_t i = 0; i < m_sections; ++i) {
      uint32_t virtualSize = 0, virtualAddress = 0;
      header = m_sectionTable + 40 * i;
      uint32_t rawSize = 0;
      if (!Read32(header + 8, virtualSize) || !Read32(header + 12, virtualAddress) ||
          !Read32(header + 16, rawSize))
        return false;
      if (virtualSize == 0) virtualSize = rawSize;  // some linkers leave it out
      if (rva >= virtualAddress && rva - virtualAddress < virtualSize) return true;
    }
    return false;
  }
  uint32_t SectionFlags(uint32_t rva) const {
    size_t header = 0;
    uint32_t flags = 0;
    return Section(rva, header) && Read32(header + 36, flags) ? flags : 0;
  }
  // The file offset of rva: within the section's stored bytes.
  bool Offset(uint32_t rva, size_t& offset) const {
    size_t header = 0;
    uint32_t virtualAddress = 0, rawSize = 0, rawOffset = 0;
    if (!Section(rva, header) || !Read32(header + 12, virtualAddress) ||
        !Read32(header + 16, rawSize) || !Read32(header + 20, rawOffset) ||
        rva - virtualAddress >= rawSize)
      return false;
    offset = static_cast<size_t>(rawOffset) + (rva - virtualAddress);
    return offset < m_bytes.size();
  }

  std::string m_bytes;
  size_t m_sectionTable = 0;
  size_t m_sections = 0;
};

}  // namespace ovra_test

#endif
