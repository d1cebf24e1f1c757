// Fuzzes sequences of TBstr edits chosen by the input, mirrored on a plain
// vector model. After every step the string must hold exactly the model's
// text, terminated; searches, comparisons and substrings are checked against
// the model too. Texts passed in often point into the string itself.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <vector>

#include "FuzzSupport.h"
#include "OvraBstr.h"

namespace {

using Units = std::vector<unsigned short>;

constexpr size_t kMaxLength = 2000;

unsigned short Unit(FuzzedDataProvider& in) {
  static const unsigned short kAlphabet[] = {'a', 'b', 'A', ' ', 0x100, 0xFFFF, 'Z', '0'};
  const uint8_t b = in.ConsumeIntegral<uint8_t>();
  if (b >= 0xF8) {
    const unsigned short u = in.ConsumeIntegral<unsigned short>();
    return u ? u : 1;
  }
  return kAlphabet[b % 8];
}

// A short zero-terminated text without inner zeros.
Units Text(FuzzedDataProvider& in) {
  const size_t n = in.ConsumeIntegralInRange<size_t>(0, 6);
  Units t;
  for (size_t i = 0; i < n; ++i) t.push_back(Unit(in));
  t.push_back(0);
  return t;
}

int Index(FuzzedDataProvider& in, size_t length) {
  switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0: return -1;
    case 1: return INT32_MIN;
    case 2: return INT32_MAX;
    case 3: return static_cast<int>(length);
    default: return in.ConsumeIntegralInRange<int>(0, static_cast<int>(length) + 1);
  }
}

int Sign(int v) { return (v > 0) - (v < 0); }

void CheckSame(const TBstr& s, const Units& m) {
  FUZZ_CHECK(s.GetLength() == static_cast<int>(m.size()));
  FUZZ_CHECK(s.IsEmpty() == m.empty());
  const unsigned short* p = s.GetString();
  FUZZ_CHECK(p != nullptr);
  FUZZ_CHECK(m.empty() || memcmp(p, m.data(), m.size() * 2) == 0);
  FUZZ_CHECK(p[m.size()] == 0);
}

Units Sub(const Units& m, int first, int count) {
  const int len = static_cast<int>(m.size());
  first = std::max(0, std::min(first, len));
  if (count <= 0) return {};
  count = std::min(count, len - first);
  return Units(m.begin() + first, m.begin() + first + count);
}

// The source text of an operation: a new short text, or the tail of the
// string itself (so that the operation reads the buffer it changes).
const unsigned short* Source(FuzzedDataProvider& in, const TBstr& s, Units& scratch) {
  if (in.ConsumeBool() && !s.IsEmpty()) {
    const int from = in.ConsumeIntegralInRange<int>(0, s.GetLength());
    return s.GetString() + from;
  }
  scratch = Text(in);
  return scratch.data();
}

Units Copy(const unsigned short* p) { return Units(p, p + ovra_fuzz::UnitLength(p)); }

int FindIn(const Units& m, const Units& sub, int start) {
  if (start < 0 || start >= static_cast<int>(m.size())) return -1;
  auto it = std::search(m.begin() + start, m.end(), sub.begin(), sub.end());
  return it == m.end() && !sub.empty() ? -1 : static_cast<int>(it - m.begin());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  TBstr s;
  Units m;
  Units scratch;
  while (in.remaining_bytes() > 0) {
    const int len = static_cast<int>(m.size());
    switch (in.ConsumeIntegralInRange<int>(0, 27)) {
      case 0: {  // Assign text (maybe from inside the string)
        const unsigned short* src = Source(in, s, scratch);
        m = Copy(src);
        s.Assign(src);
        break;
      }
      case 1: {  // Append text (maybe from inside the string)
        const unsigned short* src = Source(in, s, scratch);
        const Units add = Copy(src);
        m.insert(m.end(), add.begin(), add.end());
        s.Append(src);
        break;
      }
      case 2: {  // Append a character
        const unsigned short ch = in.ConsumeBool() ? 0 : Unit(in);
        if (ch) m.push_back(ch);
        s.Append(ch);
        break;
      }
      case 3: {  // Append the string to itself
        m.insert(m.end(), m.begin(), m.end());
        s.Append(s);
        break;
      }
      case 4: {  // Insert a character
        const int index = Index(in, m.size());
        const unsigned short ch = in.ConsumeBool() ? 0 : Unit(in);
        if (index >= 0 && ch) m.insert(m.begin() + std::min(index, len), ch);
        FUZZ_CHECK(s.Insert(index, ch) == static_cast<int>(m.size()));
        break;
      }
      case 5: {  // Insert text (maybe from inside the string)
        const int index = Index(in, m.size());
        const unsigned short* src = Source(in, s, scratch);
        const Units add = Copy(src);
        if (index >= 0) m.insert(m.begin() + std::min(index, len), add.begin(), add.end());
        FUZZ_CHECK(s.Insert(index, src) == static_cast<int>(m.size()));
        break;
      }
      case 6: {  // Delete
        const int index = Index(in, m.size());
        const int count = Index(in, m.size());
        if (index >= 0 && index < len && count > 0)
          m.erase(m.begin() + index, m.begin() + index + std::min(count, len - index));
        FUZZ_CHECK(s.Delete(index, count) == static_cast<int>(m.size()));
        break;
      }
      case 7: {  // Mid with a count
        const int first = Index(in, m.size());
        const int count = Index(in, m.size());
        const TBstr part = s.Mid(first, count);
        CheckSame(part, Sub(m, first, count));
        if (in.ConsumeBool()) {
          s = part;
          m = Sub(m, first, count);
        }
        break;
      }
      case 8: {  // Mid, Left and Right
        const int n = Index(in, m.size());
        CheckSame(s.Mid(n), n < 0 ? m : Sub(m, n, len - n));
        CheckSame(s.Left(n), Sub(m, 0, n));
        CheckSame(s.Right(n), n < 0 ? Units() : Sub(m, len - std::min(n, len), n));
        break;
      }
      case 9: {  // Replace a character
        const unsigned short from = Unit(in);
        unsigned short to = Unit(in);
        int count = 0;
        for (auto& u : m)
          if (u == from) {
            u = to;
            ++count;
          }
        FUZZ_CHECK(s.Replace(from, to) == count);
        break;
      }
      case 10: {  // Replace text by text
        Units from = Text(in);
        const Units to = Text(in);
        const size_t fromLen = from.size() - 1;
        const size_t toLen = to.size() - 1;
        int count = 0;
        if (fromLen > 0) {
          Units out;
          size_t i = 0;
          while (i < m.size()) {
            if (i + fromLen <= m.size() && std::equal(from.begin(), from.end() - 1, m.begin() + i)) {
              out.insert(out.end(), to.begin(), to.end() - 1);
              i += fromLen;
              ++count;
            } else {
              out.push_back(m[i++]);
            }
          }
          m = out;
        }
        (void)toLen;
        FUZZ_CHECK(s.Replace(from.data(), in.ConsumeBool() && to.size() == 1 ? nullptr : to.data()) ==
                   count);
        break;
      }
      case 11: {  // Remove a character
        const unsigned short ch = Unit(in);
        const size_t before = m.size();
        m.erase(std::remove(m.begin(), m.end(), ch), m.end());
        FUZZ_CHECK(s.Remove(ch) == static_cast<int>(before - m.size()));
        break;
      }
      case 12: {  // Trim
        const unsigned short ch = in.ConsumeBool() ? 0x20 : Unit(in);
        if (in.ConsumeBool()) {
          size_t k = 0;
          while (k < m.size() && m[k] == ch) ++k;
          m.erase(m.begin(), m.begin() + k);
          s.TrimLeft(ch);
        } else {
          while (!m.empty() && m.back() == ch) m.pop_back();
          s.TrimRight(ch);
        }
        break;
      }
      case 13:  // Upper case
        for (auto& u : m)
          if (u >= 'a' && u <= 'z') u = static_cast<unsigned short>(u - 32);
        s.MakeUpper();
        break;
      case 14:  // Lower case
        for (auto& u : m)
          if (u >= 'A' && u <= 'Z') u = static_cast<unsigned short>(u + 32);
        s.MakeLower();
        break;
      case 15:  // Reverse
        std::reverse(m.begin(), m.end());
        s.MakeReverse();
        break;
      case 16:  // Byte swap
        for (auto& u : m) u = static_cast<unsigned short>((u >> 8) | (u << 8));
        s.MakeBigEndian();
        break;
      case 17: {  // Normalize
        Units out;
        for (unsigned short u : m) {
          if (u == ' ') continue;
          out.push_back(u >= 'A' && u <= 'Z' ? static_cast<unsigned short>(u + 32) : u);
        }
        m = out;
        s.Normalize();
        break;
      }
      case 18: {  // SetAt and GetAt
        const int index = Index(in, m.size());
        const unsigned short ch = in.ConsumeBool() ? 0 : Unit(in);
        if (index >= 0 && index < len && ch) m[static_cast<size_t>(index)] = ch;
        s.SetAt(index, ch);
        const int at = Index(in, m.size());
        FUZZ_CHECK(s.GetAt(at) == (at >= 0 && at < static_cast<int>(m.size())
                                       ? m[static_cast<size_t>(at)]
                                       : 0));
        break;
      }
      case 19: {  // Find a character, ReverseFind
        const unsigned short ch = in.ConsumeBool() ? 0 : Unit(in);
        const int start = Index(in, m.size());
        int expect = -1;
        if (start >= 0 && start < len) {
          if (ch == 0) {
            expect = len;
          } else {
            auto it = std::find(m.begin() + start, m.end(), ch);
            expect = it == m.end() ? -1 : static_cast<int>(it - m.begin());
          }
        }
        FUZZ_CHECK(s.Find(ch, start) == expect);
        int last = -1;
        if (len > 0) {
          if (ch == 0) {
            last = len;
          } else {
            for (int i = 0; i < len; ++i)
              if (m[static_cast<size_t>(i)] == ch) last = i;
          }
        }
        FUZZ_CHECK(s.ReverseFind(ch) == last);
        break;
      }
      case 20: {  // Find text, FindOneOf
        const Units sub = Text(in);
        const int start = Index(in, m.size());
        const Units subText(sub.begin(), sub.end() - 1);
        FUZZ_CHECK(s.Find(sub.data(), start) == FindIn(m, subText, start));
        int one = -1;
        for (int i = 0; i < len && one < 0; ++i)
          if (std::find(subText.begin(), subText.end(), m[static_cast<size_t>(i)]) != subText.end())
            one = i;
        FUZZ_CHECK(s.FindOneOf(sub.data()) == one);
        break;
      }
      case 21: {  // Compare and CompareNoCase
        const Units other = Text(in);
        const Units o(other.begin(), other.end() - 1);
        int expect;
        if (m.empty() || o.empty()) {
          expect = Sign(static_cast<int>(m.size()) - static_cast<int>(o.size()));
        } else {
          expect = Sign(std::lexicographical_compare(m.begin(), m.end(), o.begin(), o.end())
                            ? -1
                            : (m == o ? 0 : 1));
        }
        FUZZ_CHECK(Sign(s.Compare(other.data())) == expect);
        break;
      }
      case 22: {  // Copy, move, Detach and Attach
        TBstr copy(s);
        CheckSame(copy, m);
        TBstr moved(static_cast<TBstr&&>(copy));
        CheckSame(moved, m);
        CheckSame(copy, Units());
        unsigned short* raw = moved.Detach();
        FUZZ_CHECK((raw == nullptr) == m.empty());
        TBstr back;
        back.Attach(raw);
        CheckSame(back, m);
        s = back;
        break;
      }
      case 23: {  // The single-byte copy
        const char* narrow = s.GetMultibyteString();
        FUZZ_CHECK(strlen(narrow) == m.size());
        for (size_t i = 0; i < m.size(); ++i)
          FUZZ_CHECK(static_cast<unsigned char>(narrow[i]) == (m[i] > 255 ? '?' : m[i]));
        break;
      }
      case 24: {  // Format with the string itself as an argument
        static const unsigned short kTwice[] = {'%', 's', '-', '%', 's', 0};
        Units twice = m;
        twice.push_back('-');
        twice.insert(twice.end(), m.begin(), m.end());
        s.Format(kTwice, s.GetString(), s.GetString());
        m = twice;
        break;
      }
      case 25: {  // Repeated character constructor
        const unsigned short ch = Unit(in);
        const int count = in.ConsumeIntegralInRange<int>(-1, 300);
        TBstr rep(ch, count);
        m.assign(count > 0 ? static_cast<size_t>(count) : 0, ch);
        s = rep;
        break;
      }
      case 26:  // Empty
        m.clear();
        s.Empty();
        break;
      default: {  // Narrow assignment
        const std::string narrow = in.ConsumeRandomLengthString(12);
        m.assign(narrow.begin(), narrow.begin() + static_cast<long>(strlen(narrow.c_str())));
        for (auto& u : m) u = static_cast<unsigned char>(u);
        s = narrow.c_str();
        break;
      }
    }
    CheckSame(s, m);
    if (m.size() > kMaxLength) {
      m.resize(kMaxLength / 2);
      s = s.Left(static_cast<int>(kMaxLength / 2));
      CheckSame(s, m);
    }
  }
  return 0;
}
