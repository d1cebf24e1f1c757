// Fuzzes TFile::CanonicalizeSpec on any units (mostly "/", "." and letters,
// so that components are formed) and compares the result with a plain model
// of the single forward scan: "." components dropped, ".." taking the
// component before it along, a ".." at the start emptying the result, and the
// scan never stepping back (so a "." or ".." moved in front of it stays).
// Also: never longer than the input path, unchanged without "." or ".." components.
#include <stdint.h>

#include <algorithm>
#include <vector>

#include "FuzzSupport.h"
#include "OvraBstr.h"
#include "OvraFile.h"

namespace {

// True when a component of the n units at p is exactly "." (or "..", when
// twoDotsToo).
bool HasDotComponent(const unsigned short* p, int n, bool twoDotsToo) {
  int start = 0;
  for (int i = 0; i <= n; ++i) {
    if (i == n || p[i] == '/') {
      const int len = i - start;
      if (len == 1 && p[start] == '.') return true;
      if (twoDotsToo && len == 2 && p[start] == '.' && p[start + 1] == '.') return true;
      start = i + 1;
    }
  }
  return false;
}

// The scan on a plain vector of units.
std::vector<unsigned short> Model(std::vector<unsigned short> s) {
  auto find = [&s](size_t from) -> long {
    for (size_t i = from; i < s.size(); ++i)
      if (s[i] == '.') return static_cast<long>(i);
    return -1;
  };
  auto erase = [&s](size_t at, size_t count) {
    s.erase(s.begin() + static_cast<long>(at),
            s.begin() + static_cast<long>(std::min(s.size(), at + count)));
  };
  long found = find(0);
  while (found >= 0) {
    const size_t p = static_cast<size_t>(found);
    const size_t n = s.size();
    if (p > 0 && s[p - 1] != '/') {
      found = find(p + 1);
    } else if (p + 1 == n || s[p + 1] == '/') {
      erase(p, 2);
      found = find(p);
    } else if (s[p + 1] != '.' || (p + 2 < n && s[p + 2] != '/')) {
      found = find(p + 1);
    } else if (p < 2) {
      s.clear();
      break;
    } else {
      size_t k = p - 1;
      while (k > 0 && s[k - 1] != '/') --k;
      erase(k, p - k + 3);
      found = find(p);
    }
  }
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text;
  for (size_t i = 0; i < size; ++i) {
    static const unsigned short kUnits[] = {'/', '.', '.', 'a', '/', 'b', '.', 0x2F2E};
    text.push_back(data[i] < 0xF0 ? kUnits[data[i] % 8] : static_cast<unsigned short>(data[i]));
  }
  text.push_back(0);
  const TBstr spec(text.data());
  const TBstr canonical = TFile::CanonicalizeSpec(spec);
  FUZZ_CHECK(canonical.GetLength() <= spec.GetLength());
  if (!HasDotComponent(spec.GetString(), spec.GetLength(), true))
    FUZZ_CHECK(canonical == spec);
  const std::vector<unsigned short> expected =
      Model(std::vector<unsigned short>(text.begin(), text.begin() + spec.GetLength()));
  FUZZ_CHECK(canonical.GetLength() == static_cast<int>(expected.size()));
  FUZZ_CHECK(std::equal(expected.begin(), expected.end(), canonical.GetString()));
  // The argument is left as it was.
  FUZZ_CHECK(spec.Compare(text.data()) == 0);
  return 0;
}
