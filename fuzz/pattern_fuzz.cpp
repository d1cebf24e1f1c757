// Fuzzes TFileFinder::ComparePattern with a name and a pattern from the
// input (a small alphabet with "*" and "?", so that they meet). Checked: a
// pattern without wildcards compares as a plain string comparison does, "*"
// matches every name, a run of "?" as long as the name matches it, and a
// name always matches itself when it holds no wildcard characters.
#include <stdint.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraCrt.h"
#include "OvraFileFinder.h"

namespace {

int Sign(int v) { return (v > 0) - (v < 0); }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> name;
  std::vector<unsigned short> pattern;
  std::vector<unsigned short>* side = &name;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0) {  // a zero byte moves on to the pattern
      side = &pattern;
      continue;
    }
    static const unsigned short kUnits[] = {'a', 'b', 'c', '*', '?', '.', 0xFFFF, 'A'};
    side->push_back(data[i] < 0xF0 ? kUnits[data[i] % 8] : static_cast<unsigned short>(data[i]));
  }
  name.push_back(0);
  pattern.push_back(0);

  const int r = TFileFinder::ComparePattern(name.data(), pattern.data());
  bool wild = false;
  for (unsigned short u : pattern) wild |= u == '*' || u == '?';
  if (!wild) FUZZ_CHECK(Sign(r) == Sign(ucscmp(name.data(), pattern.data())));

  bool nameWild = false;
  for (unsigned short u : name) nameWild |= u == '*' || u == '?';
  if (!nameWild) FUZZ_CHECK(TFileFinder::ComparePattern(name.data(), name.data()) == 0);

  static const unsigned short kStar[] = {'*', 0};
  FUZZ_CHECK(TFileFinder::ComparePattern(name.data(), kStar) == 0);
  std::vector<unsigned short> marks(name.size() - 1, '?');
  marks.push_back(0);
  FUZZ_CHECK(TFileFinder::ComparePattern(name.data(), marks.data()) == 0);
  // Null pointers are empty strings.
  FUZZ_CHECK(Sign(TFileFinder::ComparePattern(nullptr, pattern.data())) ==
             Sign(TFileFinder::ComparePattern(kStar + 1, pattern.data())));
  FUZZ_CHECK(TFileFinder::ComparePattern(name.data(), nullptr) ==
             TFileFinder::ComparePattern(name.data(), kStar + 1));
  return 0;
}
