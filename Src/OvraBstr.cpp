// OvraBstr.cpp - counted string buffers, the UTF-8 conversions, TConvertBuffer
// and the string class TBstr. The single-byte conversions live in
// OvraBstrLatin1.cpp: they consult no code page of the system, so they give
// the same bytes on every platform.
#include "OvraBstr.h"

#include <new>
#include <limits.h>
#include <stdint.h>
#include <string.h>

#include "OvraCrt.h"
#include "OvraFormat.h"
#include "OvraHooks.h"
#include "OvraMem.h"
#include "OvraText.h"

// ---------------------------------------------------------------------------
// Shared constants
// ---------------------------------------------------------------------------

const unsigned short kAsciiEncoding[9] = {'u', 's', '-', 'a', 's', 'c', 'i', 'i', 0};
const unsigned short kLatin1Encoding[11] = {'i', 's', 'o', '-', '8', '8', '5', '9', '-', '1', 0};
const unsigned short kUtf8Encoding[6] = {'u', 't', 'f', '-', '8', 0};
const unsigned short kUnicodeEncoding[12] = {'u', 'n', 'i', 'c', 'o', 'd', 'e', '-', '2', '-', '0', 0};
const unsigned short kEnglishLanguage[3] = {'e', 'n', 0};

namespace {

// One zero character: a valid empty 16-bit string wherever one is needed.
const unsigned short kNullChar = 0;
// What TBstr::GetString returns for the empty string.
const unsigned short* const kEmptyBstr = &kNullChar;
// What TBstr::GetMultibyteString returns for the empty string.
const char kEmptyMultibyte[1] = {0};

constexpr unsigned short kBlank = 0x20;

// Size of the length field in front of a buffer's text.
constexpr size_t kLengthFieldSize = 4;

// Clamps a wide intermediate result to int, so that no length arithmetic wraps.
int ClampToInt(int64_t value) {
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int>(value);
}

// True when p points into the block of buffer (its text or its terminator), so
// that releasing the buffer would release p's text too.
bool PointsInto(const unsigned short* p, const unsigned short* buffer) {
  if (!p || !buffer) return false;
  const uintptr_t a = reinterpret_cast<uintptr_t>(p);
  const uintptr_t first = reinterpret_cast<uintptr_t>(buffer);
  const uintptr_t last = first + static_cast<uintptr_t>(OvraStringLen(buffer)) * 2;
  return a >= first && a <= last;
}

}  // namespace

// ---------------------------------------------------------------------------
// Start-up and shutdown hooks: no state of this facility needs them yet.
// ---------------------------------------------------------------------------

bool BstrInit() { return true; }

void BstrTerm() {}

// ---------------------------------------------------------------------------
// Counted string buffers
// ---------------------------------------------------------------------------

unsigned short* OvraAllocString(const unsigned short* s) {
  if (!s) return nullptr;
  const size_t length = ucslen(s);
  // A longer text cannot be held; OvraAllocStringLen refuses it rather than
  // letting the count wrap to a short one.
  if (length > kMaxStringLength) return nullptr;
  return OvraAllocStringLen(s, static_cast<unsigned int>(length));
}

unsigned short* OvraAllocStringLen(const unsigned short* s, unsigned int count) {
  if (count == 0 || count > kMaxStringLength) return nullptr;
  const uint32_t bytes = count * 2u;
  unsigned char* block =
      static_cast<unsigned char*>(OvraMemAlloc(static_cast<size_t>(bytes) + kLengthFieldSize + 2));
  if (!block) return nullptr;
  memcpy(block, &bytes, sizeof bytes);
  unsigned short* text = reinterpret_cast<unsigned short*>(block + kLengthFieldSize);
  if (s) memcpy(text, s, bytes);
  text[count] = 0;
  return text;
}

void OvraFreeString(unsigned short* buffer) {
  if (buffer) OvraMemFree(reinterpret_cast<unsigned char*>(buffer) - kLengthFieldSize);
}

unsigned int OvraStringLen(const unsigned short* buffer) {
  if (!buffer) return 0;
  uint32_t bytes;
  memcpy(&bytes, reinterpret_cast<const unsigned char*>(buffer) - kLengthFieldSize, sizeof bytes);
  return bytes >> 1;
}

unsigned int OvraStringByteLen(const unsigned short* buffer) { return OvraStringLen(buffer) * 2; }

// ---------------------------------------------------------------------------
// UTF-8
// ---------------------------------------------------------------------------

// The loops live in the text kernels (Src/OvraText.h), which convert runs of
// ASCII and blocks of two- and three-byte sequences with vector instructions
// where the processor has them, with the same output and counts as the
// scalar loop for every input.

int OvraStringUtf8ByteLen(const unsigned short* s) {
  if (!s) return 0;
  const uint64_t bytes = TextKernels().utf8Len(s);
  return bytes > INT32_MAX ? INT32_MAX : static_cast<int>(bytes);
}

int OvraStringToUtf8(const unsigned short* source, int count, char* dest, int size) {
  if (count < 1 || size < 1 || !source || !dest) return 0;
  const size_t n = static_cast<size_t>(count);
  const size_t room = static_cast<size_t>(size);
  // A sequence that starts just below size may end 2 bytes beyond it, so
  // with a size near INT_MAX the count could pass what the int result holds.
  // Below that, the kernels cannot reach INT_MAX; for the last two sizes the
  // characters are written one by one, each only while its whole sequence
  // keeps the count within INT_MAX.
  const size_t kResultMax = static_cast<size_t>(INT_MAX);
  if (room <= kResultMax - 2) {
    return static_cast<int>(TextKernels().toUtf8(source, n, dest, room));
  }
  size_t i = 0;
  size_t w = 0;
  while (i < n && w < room) {
    const unsigned c = source[i];
    const size_t length = c < 0x80 ? 1 : c < 0x800 ? 2 : 3;
    if (w + length > kResultMax) break;
    if (length == 1) {
      dest[w] = static_cast<char>(c);
    } else if (length == 2) {
      dest[w] = static_cast<char>(0xC0 | (c >> 6));
      dest[w + 1] = static_cast<char>(0x80 | (c & 0x3F));
    } else {
      dest[w] = static_cast<char>(0xE0 | (c >> 12));
      dest[w + 1] = static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      dest[w + 2] = static_cast<char>(0x80 | (c & 0x3F));
    }
    w += length;
    ++i;
  }
  return static_cast<int>(w);
}

int OvraUtf8ToString(const char* source, int count, unsigned short* dest, int size) {
  if (count < 1 || size < 1 || !source || !dest) return 0;
  return static_cast<int>(TextKernels().fromUtf8(reinterpret_cast<const unsigned char*>(source),
                                                 static_cast<size_t>(count), dest,
                                                 static_cast<size_t>(size)));
}

// ---------------------------------------------------------------------------
// TConvertBuffer
// ---------------------------------------------------------------------------

TConvertBuffer::TConvertBuffer(const char* text, int length) : m_text(nullptr), m_length(0) {
  if (!text) return;
  int64_t n = length;
  if (length == -1) n = static_cast<int64_t>(strlen(text));
  if (n < 1 || n > static_cast<int64_t>(kMaxStringLength)) return;
  m_text = new (std::nothrow) unsigned short[static_cast<size_t>(n) + 1];
  if (!m_text) return;
  m_length = OvraMultibyteToUnicode(text, static_cast<int>(n), m_text, static_cast<int>(n));
  m_text[m_length] = 0;
}

TConvertBuffer::~TConvertBuffer() { delete[] m_text; }

// ---------------------------------------------------------------------------
// TBstr: construction, ownership, access
// ---------------------------------------------------------------------------

// Defined here as well, so that the library emits it and exports it: a
// program that binds a reference to it (a test's comparison, say) then finds
// it in ovra.dll on Windows, where the class's members are imported.
constexpr int TBstr::kMaxFormatLength;

TBstr::TBstr() : m_string(nullptr), m_multibyte(nullptr) {}

TBstr::TBstr(const TBstr& other) : m_string(nullptr), m_multibyte(nullptr) {
  InternalInit(other.GetString(), other.GetLength());
}

TBstr::TBstr(TBstr&& other) noexcept : m_string(other.m_string), m_multibyte(nullptr) {
  other.DestroyMultibyteBuffer();
  other.m_string = nullptr;
}

TBstr::TBstr(unsigned short ch, int count) : m_string(nullptr), m_multibyte(nullptr) {
  if (ch == 0 || count < 1) return;
  if (static_cast<unsigned int>(count) > kMaxStringLength) return;
  // Short runs are built on the stack; the heap serves longer ones only.
  unsigned short local[128];
  unsigned short* area = local;
  const size_t bytes = static_cast<size_t>(count) * 2;
  if (bytes > sizeof local) {
    area = static_cast<unsigned short*>(OvraMemAlloc(bytes));
    if (!area) return;
  }
  for (int i = 0; i < count; ++i) area[i] = ch;
  InternalInit(area, count);
  if (area != local) OvraMemFree(area);
}

TBstr::TBstr(const unsigned short* s) : m_string(nullptr), m_multibyte(nullptr) {
  Assign(s);
}

TBstr::TBstr(const unsigned short* s, int length) : m_string(nullptr), m_multibyte(nullptr) {
  InternalInit(s, length);
}

TBstr::TBstr(const char* s) : m_string(nullptr), m_multibyte(nullptr) {
  const TConvertBuffer wide(s, -1);
  InternalInit(wide.GetText() ? wide.GetText() : &kNullChar, wide.GetLength());
}

TBstr::TBstr(const char* s, int length) : m_string(nullptr), m_multibyte(nullptr) {
  const TConvertBuffer wide(s, length);
  InternalInit(wide.GetText() ? wide.GetText() : &kNullChar, wide.GetLength());
}

TBstr::~TBstr() {
  DestroyMultibyteBuffer();
  OvraFreeString(m_string);
  m_string = nullptr;
}

void TBstr::Attach(unsigned short* buffer) {
  DestroyMultibyteBuffer();
  m_string = buffer;  // the buffer held before is not released (see the header)
}

unsigned short* TBstr::Detach() {
  DestroyMultibyteBuffer();
  unsigned short* buffer = m_string;
  m_string = nullptr;
  return buffer;
}

unsigned short* TBstr::Copy() const {
  return OvraAllocStringLen(m_string, static_cast<unsigned int>(GetLength()));
}

unsigned short** TBstr::GetBstrPtr() {
  DestroyMultibyteBuffer();
  if (!IsEmpty()) Empty();
  return &m_string;
}

unsigned short** TBstr::GetRawBstrPtr() {
  // The caller may store another buffer through the address: a cached
  // single-byte copy would then describe the old text.
  DestroyMultibyteBuffer();
  return &m_string;
}

int TBstr::GetLength() const {
  return m_string ? static_cast<int>(OvraStringLen(m_string)) : 0;
}

bool TBstr::IsEmpty() const { return GetLength() == 0; }

void TBstr::Empty() {
  DestroyMultibyteBuffer();
  AdjustBuffer(0, false);
}

unsigned short TBstr::GetAt(int index) const {
  if (index < 0 || index >= GetLength()) return 0;
  return m_string[index];
}

void TBstr::SetAt(int index, unsigned short ch) {
  DestroyMultibyteBuffer();
  if (index < 0 || index >= GetLength() || ch == 0) return;
  m_string[index] = ch;
}

const unsigned short* TBstr::GetString() const { return m_string ? m_string : kEmptyBstr; }

const char* TBstr::GetMultibyteString() const {
  if (!m_string) return kEmptyMultibyte;
  if (!m_multibyte && !CreateMultibyteBuffer()) return kEmptyMultibyte;
  return m_multibyte;
}

int TBstr::GetEncodedByteLength(const unsigned short* encoding) const {
  if (!encoding || ucsicmp(encoding, kAsciiEncoding) == 0 ||
      ucsicmp(encoding, kLatin1Encoding) == 0) {
    return GetLength();
  }
  if (ucsicmp(encoding, kUtf8Encoding) == 0) return OvraStringUtf8ByteLen(m_string);
  if (ucsicmp(encoding, kUnicodeEncoding) == 0) {
    return ClampToInt(static_cast<int64_t>(GetLength()) * 2);
  }
  return 0;
}

TBstr TBstr::GetBestEncoding() const {
  unsigned largest = 0;
  for (const unsigned short* p = GetString(); *p && largest <= 0xFF; ++p) {
    if (*p > largest) largest = *p;
  }
  if (largest < 0x80) return TBstr(kAsciiEncoding);
  if (largest < 0x100) return TBstr(kLatin1Encoding);
  return TBstr(kUtf8Encoding);
}

// ---------------------------------------------------------------------------
// TBstr: assignment and appending
// ---------------------------------------------------------------------------

TBstr& TBstr::Assign(const TBstr& other) {
  if (&other != this) InternalInit(other.GetString(), other.GetLength());
  return *this;
}

TBstr& TBstr::Assign(unsigned short ch) {
  // A zero character does nothing at all: the text and its narrow copy stay.
  if (ch != 0) InternalInit(&ch, 1);
  return *this;
}

TBstr& TBstr::Assign(const unsigned short* s) {
  const size_t length = s ? ucslen(s) : 0;
  // A text too long for a buffer fails like an allocation: the string empties.
  if (length > kMaxStringLength) {
    Empty();
    return *this;
  }
  InternalInit(s, static_cast<int>(length));
  return *this;
}

TBstr& TBstr::Assign(const char* s) {
  const TConvertBuffer wide(s, -1);
  InternalInit(wide.GetText() ? wide.GetText() : &kNullChar, wide.GetLength());
  return *this;
}

TBstr& TBstr::operator=(TBstr&& other) noexcept {
  if (&other != this) {
    DestroyMultibyteBuffer();
    OvraFreeString(m_string);
    m_string = other.m_string;
    other.DestroyMultibyteBuffer();
    other.m_string = nullptr;
  }
  return *this;
}

TBstr& TBstr::Append(const TBstr& other) {
  InternalAppend(other.GetString(), other.GetLength());
  return *this;
}

TBstr& TBstr::Append(unsigned short ch) {
  // A zero character does nothing at all: the text and its narrow copy stay.
  if (ch != 0) InternalAppend(&ch, 1);
  return *this;
}

TBstr& TBstr::Append(const unsigned short* s) {
  const size_t length = s ? ucslen(s) : 0;
  if (length > kMaxStringLength) {
    Empty();
    return *this;
  }
  InternalAppend(s, static_cast<int>(length));
  return *this;
}

TBstr& TBstr::Append(const char* s) {
  const TConvertBuffer wide(s, -1);
  if (s && *s && !wide.GetText()) {
    Empty();  // the widened copy could not be made: fail like the append itself
    return *this;
  }
  InternalAppend(wide.GetText(), wide.GetLength());
  return *this;
}

// ---------------------------------------------------------------------------
// TBstr: comparison
// ---------------------------------------------------------------------------

int TBstr::Compare(const unsigned short* s) const {
  if (m_string && s) return ucscmp(m_string, s);
  return ClampToInt(static_cast<int64_t>(GetLength()) - static_cast<int64_t>(s ? ucslen(s) : 0));
}

int TBstr::CompareNoCase(const unsigned short* s) const {
  if (m_string && s) return ucsicmp(m_string, s);
  return ClampToInt(static_cast<int64_t>(GetLength()) - static_cast<int64_t>(s ? ucslen(s) : 0));
}

namespace {
// Length of s without its trailing blanks.
size_t LengthWithoutTrailingBlanks(const unsigned short* s, size_t length) {
  while (length > 0 && s[length - 1] == kBlank) --length;
  return length;
}
}  // namespace

int TBstr::CompareNormal(const unsigned short* s) const {
  if (m_string && s) {
    const unsigned short* a = m_string;
    const unsigned short* b = s;
    unsigned ca;
    unsigned cb;
    for (;;) {
      while (*a == kBlank) ++a;
      while (*b == kBlank) ++b;
      ca = toulower(*a);
      cb = toulower(*b);
      if (ca == 0 || ca != cb) break;
      ++a;
      ++b;
    }
    return static_cast<int>(ca) - static_cast<int>(cb);
  }
  const size_t mine = LengthWithoutTrailingBlanks(GetString(), static_cast<size_t>(GetLength()));
  const size_t theirs = s ? LengthWithoutTrailingBlanks(s, ucslen(s)) : 0;
  return ClampToInt(static_cast<int64_t>(mine) - static_cast<int64_t>(theirs));
}

// ---------------------------------------------------------------------------
// TBstr: substrings and conversion
// ---------------------------------------------------------------------------

TBstr TBstr::Mid(int first, int count) const {
  const int length = GetLength();
  int f = first < 0 ? 0 : first;
  if (f > length) f = length;
  const int c = count < length - f ? count : length - f;
  if (c <= 0) return TBstr();
  return TBstr(GetString() + f, c);
}

TBstr TBstr::Mid(int first) const {
  return Mid(first, ClampToInt(static_cast<int64_t>(GetLength()) - first));
}

TBstr TBstr::Left(int n) const { return Mid(0, n); }

TBstr TBstr::Right(int n) const {
  return Mid(ClampToInt(static_cast<int64_t>(GetLength()) - n), n);
}

long TBstr::ToLong() const { return m_string ? ucstol(m_string, nullptr, 10) : 0; }

void TBstr::MakeUpper() {
  DestroyMultibyteBuffer();
  if (m_string) ucsupr(m_string);
}

void TBstr::MakeLower() {
  DestroyMultibyteBuffer();
  if (m_string) ucslwr(m_string);
}

void TBstr::MakeReverse() {
  DestroyMultibyteBuffer();
  if (m_string) ucsrev(m_string);
}

void TBstr::MakeBigEndian() {
  DestroyMultibyteBuffer();
  for (int i = GetLength() - 1; i >= 0; --i) {
    const unsigned short c = m_string[i];
    m_string[i] = static_cast<unsigned short>((c >> 8) | (c << 8));
  }
}

// ---------------------------------------------------------------------------
// TBstr: trimming and normalising
// ---------------------------------------------------------------------------

void TBstr::TrimLeft(unsigned short ch) {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  if (length == 0 || ch == 0) return;
  int run = 0;
  while (run < length && m_string[run] == ch) ++run;
  if (run == 0) return;
  memmove(m_string, m_string + run, static_cast<size_t>(length - run) * 2);
  AdjustBuffer(length - run, true);
}

void TBstr::TrimRight(unsigned short ch) {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  if (length == 0 || ch == 0) return;
  int kept = length;
  while (kept > 0 && m_string[kept - 1] == ch) --kept;
  AdjustBuffer(kept, true);
}

void TBstr::Normalize() {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  int kept = 0;
  for (int i = 0; i < length; ++i) {
    if (m_string[i] != kBlank) m_string[kept++] = toulower(m_string[i]);
  }
  AdjustBuffer(kept, true);
}

// ---------------------------------------------------------------------------
// TBstr: replacing, removing, inserting, deleting
// ---------------------------------------------------------------------------

int TBstr::Replace(unsigned short from, unsigned short to) {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  int count = 0;
  for (int i = 0; i < length; ++i) {
    if (m_string[i] == from) {
      m_string[i] = to;
      ++count;
    }
  }
  return count;
}

int TBstr::Replace(const unsigned short* from, const unsigned short* to) {
  DestroyMultibyteBuffer();
  // Every change of length releases the buffer: texts that lie in it are
  // copied first so that they stay readable.
  if (PointsInto(from, m_string) || PointsInto(to, m_string)) {
    const TBstr fromCopy(from);
    const TBstr toCopy(to);
    if ((from && *from && fromCopy.IsEmpty()) || (to && *to && toCopy.IsEmpty())) {
      Empty();  // the copies could not be made
      return 0;
    }
    return Replace(fromCopy.GetString(), toCopy.GetString());
  }
  int n = GetLength();
  const int64_t m64 = from ? static_cast<int64_t>(ucslen(from)) : 0;
  const int64_t k64 = to ? static_cast<int64_t>(ucslen(to)) : 0;
  if (n < m64 || m64 < 1) return 0;
  if (k64 > kMaxStringLength) {
    Empty();
    return 0;
  }
  const int m = static_cast<int>(m64);
  const int k = static_cast<int>(k64);
  const unsigned short* found = ucsstr(m_string, from);
  if (!found) return 0;
  int count = 0;
  while (found) {
    const int i = static_cast<int>(found - m_string);
    if (k > m) {
      const int64_t grown = static_cast<int64_t>(n) + (k - m);
      if (grown > kMaxStringLength || !AdjustBuffer(static_cast<int>(grown), true)) {
        Empty();
        return count;
      }
      n = static_cast<int>(grown);
      // The tail that began at i + m now begins at i + k.
      memmove(m_string + i + k, m_string + i + m, static_cast<size_t>(n - (i + k)) * 2);
    }
    if (k > 0) memcpy(m_string + i, to, static_cast<size_t>(k) * 2);
    if (k < m) {
      memmove(m_string + i + k, m_string + i + m, static_cast<size_t>(n - (i + m)) * 2);
      n -= m - k;
      if (!AdjustBuffer(n, true)) return count;  // AdjustBuffer left it empty
    }
    ++count;
    // Search on right after the inserted text, never inside it.
    found = m_string ? ucsstr(m_string + i + k, from) : nullptr;
  }
  return count;
}

int TBstr::Remove(unsigned short ch) {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  if (length < 1) {
    Empty();
    return 0;
  }
  int kept = 0;
  for (int i = 0; i < length; ++i) {
    if (m_string[i] != ch) m_string[kept++] = m_string[i];
  }
  AdjustBuffer(kept, true);
  return length - kept;
}

bool TBstr::InsertText(int index, const unsigned short* s, int length) {
  // A new buffer is filled before the old one is released, so that s may lie
  // in this string's own text.
  const int old = GetLength();
  const int at = index < old ? index : old;
  if (static_cast<int64_t>(old) + length > kMaxStringLength) {
    Empty();
    return false;
  }
  unsigned short* fresh = OvraAllocStringLen(nullptr, static_cast<unsigned int>(old + length));
  if (fresh) {
    if (at > 0) memcpy(fresh, m_string, static_cast<size_t>(at) * 2);
    memcpy(fresh + at, s, static_cast<size_t>(length) * 2);
    if (old > at) memcpy(fresh + at + length, m_string + at, static_cast<size_t>(old - at) * 2);
  }
  OvraFreeString(m_string);
  m_string = fresh;
  return fresh != nullptr;
}

int TBstr::Insert(int index, unsigned short ch) {
  DestroyMultibyteBuffer();
  if (index < 0 || ch == 0) return GetLength();
  InsertText(index, &ch, 1);
  return GetLength();
}

int TBstr::Insert(int index, const unsigned short* s) {
  DestroyMultibyteBuffer();
  if (index < 0 || !s || !*s) return GetLength();
  const size_t length = ucslen(s);
  if (length > kMaxStringLength) {
    Empty();
    return 0;
  }
  InsertText(index, s, static_cast<int>(length));
  return GetLength();
}

int TBstr::Delete(int index, int count) {
  DestroyMultibyteBuffer();
  const int length = GetLength();
  // A negative count is refused like an index out of range.
  if (index < 0 || index >= length || count <= 0) return length;
  const int c = count < length - index ? count : length - index;
  memmove(m_string + index, m_string + index + c, static_cast<size_t>(length - index - c) * 2);
  AdjustBuffer(length - c, true);
  return GetLength();
}

// ---------------------------------------------------------------------------
// TBstr: searching
// ---------------------------------------------------------------------------

int TBstr::Find(unsigned short ch, int start) const {
  if (start < 0 || start >= GetLength()) return -1;
  const unsigned short* p = ucschr(m_string + start, ch);
  return p ? static_cast<int>(p - m_string) : -1;
}

int TBstr::ReverseFind(unsigned short ch) const {
  if (IsEmpty()) return -1;
  const unsigned short* p = ucsrchr(m_string, ch);
  return p ? static_cast<int>(p - m_string) : -1;
}

int TBstr::FindOneOf(const unsigned short* set) const {
  if (IsEmpty() || !set) return -1;
  const unsigned short* p = ucspbrk(m_string, set);
  return p ? static_cast<int>(p - m_string) : -1;
}

int TBstr::Find(const unsigned short* s, int start) const {
  if (!s || start < 0 || start >= GetLength()) return -1;
  const unsigned short* p = ucsstr(m_string + start, s);
  return p ? static_cast<int>(p - m_string) : -1;
}

// ---------------------------------------------------------------------------
// TBstr: formatting
// ---------------------------------------------------------------------------

namespace {

bool IsDecimalDigit(unsigned short c) { return c >= '0' && c <= '9'; }

// An upper estimate of the length of vsnuprintf's output for format, read from
// the format alone (and the string arguments' lengths). Stops counting once the
// total passes limit. The estimate can fall short (a width on "c", a decimal
// precision on "s", which the engine ignores, conversions counted as 0); the
// caller formats once more in that case.
int64_t EstimateFormatLength(const unsigned short* f, va_list args, int64_t limit) {
  va_list ap;
  va_copy(ap, args);
  int64_t total = 0;
  while (*f && total <= limit) {
    if (*f != '%') {
      ++total;
      ++f;
      continue;
    }
    ++f;
    if (*f == '%') {
      ++total;
      ++f;
      continue;
    }
    bool haveWidth = false;
    int64_t width = 0;
    for (;; ++f) {
      if (*f == '#') {
        total += 2;
      } else if (*f == '*') {
        width = va_arg(ap, int);
        haveWidth = true;
      } else if (*f != '-' && *f != '+' && *f != '0' && *f != kBlank) {
        break;
      }
    }
    if (!haveWidth) {
      width = ucstol(f, nullptr, 10);
      while (IsDecimalDigit(*f)) ++f;
    }
    bool havePrecision = false;
    int64_t precision = 0;
    if (*f == '.') {
      ++f;
      havePrecision = true;
      if (*f == '*') {
        precision = va_arg(ap, int);
        ++f;
      } else {
        precision = ucstol(f, nullptr, 10);
        while (IsDecimalDigit(*f)) ++f;
      }
    }
    if (*f == 'F' || *f == 'L' || *f == 'N' || *f == 'h' || *f == 'l') ++f;
    const unsigned short conversion = *f;
    if (conversion == 0) break;
    ++f;
    int64_t item = 0;
    switch (conversion) {
      case 'c':
      case 'C':
        (void)va_arg(ap, int);
        item = 1;  // the width is not counted
        break;
      case 's':
      case 'S': {
        int64_t length = 6;  // "(null)"
        if (conversion == 's') {
          const unsigned short* s = va_arg(ap, const unsigned short*);
          if (s) length = static_cast<int64_t>(ucslen(s));
        } else {
          const char* s = va_arg(ap, const char*);
          if (s) length = static_cast<int64_t>(strlen(s));
        }
        // A negative precision (from "*") means none to the engine.
        if (havePrecision && precision >= 0 && precision < length) length = precision;
        item = length > width ? length : width;
        break;
      }
      case 'd':
      case 'i':
      case 'o':
      case 'u':
      case 'x':
      case 'X':
        (void)va_arg(ap, int);
        item = width + precision > 32 ? width + precision : 32;
        break;
      case 'p':
        (void)va_arg(ap, void*);
        item = width + precision > 32 ? width + precision : 32;
        break;
      case 'n':
        (void)va_arg(ap, void*);
        break;
      default:
        break;  // no argument, nothing counted (floating point included)
    }
    if (item > 0) total += item;
  }
  va_end(ap);
  return total;
}

}  // namespace

void TBstr::Format(const unsigned short* format, ...) {
  DestroyMultibyteBuffer();
  va_list args;
  va_start(args, format);
  FormatV(format, args);
  va_end(args);
}

void TBstr::FormatV(const unsigned short* format, va_list args) {
  DestroyMultibyteBuffer();
  if (!format) {
    Empty();
    return;
  }
  int64_t room = EstimateFormatLength(format, args, kMaxFormatLength);
  if (room > kMaxFormatLength) {
    // The estimate reads the arguments by its own simpler rules and can
    // overshoot wildly ("%**d" takes a second width the engine prints as
    // text); the engine's own count decides whether the text is too long.
    va_list ap;
    va_copy(ap, args);
    unsigned short none[1];
    const int length = vsnuprintf(none, 0, format, ap);
    va_end(ap);
    room = length < 0 ? static_cast<int64_t>(kMaxFormatLength) + 1 : length;
  }
  // The output goes to a new buffer and the old one is released only
  // afterwards, so that the format and the arguments may lie in this string.
  // When the estimate was short the text is formatted once more with the length
  // the engine reported, so that it is always complete.
  for (int pass = 0; pass < 2; ++pass) {
    if (room > kMaxFormatLength) break;
    unsigned short* fresh = nullptr;
    unsigned short none[1];
    if (room > 0) {
      fresh = OvraAllocStringLen(nullptr, static_cast<unsigned int>(room));
      if (!fresh) break;
    }
    va_list ap;
    va_copy(ap, args);
    const int length = vsnuprintf(fresh ? fresh : none, static_cast<size_t>(room) + 1, format, ap);
    va_end(ap);
    if (length < 0 || length > room) {
      OvraFreeString(fresh);
      room = length < 0 ? static_cast<int64_t>(kMaxFormatLength) + 1 : length;
      continue;
    }
    // The buffer is exactly as long as the text: a shorter output moves to a
    // buffer of its own length.
    if (length < room) {
      unsigned short* exact =
          length > 0 ? OvraAllocStringLen(fresh, static_cast<unsigned int>(length)) : nullptr;
      OvraFreeString(fresh);
      fresh = exact;
      if (length > 0 && !exact) break;
    }
    OvraFreeString(m_string);
    m_string = fresh;
    return;
  }
  Empty();
}

// ---------------------------------------------------------------------------
// TBstr: internal operations
// ---------------------------------------------------------------------------

bool TBstr::AdjustBuffer(int length, bool keep) {
  const int old = GetLength();
  if (length == old) return true;
  unsigned short* fresh = nullptr;
  bool ok = true;
  if (length > 0) {
    fresh = OvraAllocStringLen(nullptr, static_cast<unsigned int>(length));
    if (!fresh) {
      ok = false;
    } else if (keep && old >= 1) {
      memcpy(fresh, m_string, static_cast<size_t>(length < old ? length : old) * 2);
    }
  }
  // No rollback: a failed allocation leaves the string empty.
  OvraFreeString(m_string);
  m_string = fresh;
  return ok;
}

bool TBstr::InternalInit(const unsigned short* s, int length) {
  DestroyMultibyteBuffer();
  if (s && length >= 1) {
    if (length == GetLength()) {
      // Same length: the buffer stays and the text is overwritten (s may lie in it).
      memmove(m_string, s, static_cast<size_t>(length) * 2);
      return true;
    }
    // The new buffer is filled before the old one is released, so that s may
    // lie in this string's own text.
    unsigned short* fresh = OvraAllocStringLen(s, static_cast<unsigned int>(length));
    OvraFreeString(m_string);
    m_string = fresh;
    return fresh != nullptr;
  }
  if (s && length < 0) return false;
  Empty();
  return true;
}

bool TBstr::InternalAppend(const unsigned short* s, int length) {
  DestroyMultibyteBuffer();
  if (!s || length < 1) return !(s && length < 0);
  const int old = GetLength();
  unsigned short* fresh = nullptr;
  if (static_cast<int64_t>(old) + length <= kMaxStringLength) {
    fresh = OvraAllocStringLen(nullptr, static_cast<unsigned int>(old + length));
  }
  // The old text and s are copied before the old buffer is released, so that a
  // string can be appended to itself. On failure the string is left empty.
  if (fresh) {
    if (old > 0) memcpy(fresh, m_string, static_cast<size_t>(old) * 2);
    memcpy(fresh + old, s, static_cast<size_t>(length) * 2);
  }
  OvraFreeString(m_string);
  m_string = fresh;
  return fresh != nullptr;
}

bool TBstr::CreateMultibyteBuffer() const {
  const int n = GetLength();
  // n * 2 + 1 bytes, the text's byte length and a terminator, although the
  // conversion fills only n + 1 of them: the block keeps the size it has always had.
  const size_t bytes = static_cast<size_t>(n) * 2 + 1;
  m_multibyte = new (std::nothrow) char[bytes];
  if (!m_multibyte) return false;
  const int room = bytes > INT32_MAX ? INT32_MAX : static_cast<int>(bytes);
  OvraUnicodeToMultibyte(GetString(), n + 1, m_multibyte, room);
  return true;
}

void TBstr::DestroyMultibyteBuffer() {
  delete[] m_multibyte;
  m_multibyte = nullptr;
}

// ===========================================================================
// Text conversions: encoding and language codes, HTML and entities
// ===========================================================================

#include <ctype.h>

const unsigned short kTextMimeType[5] = {'t', 'e', 'x', 't', 0};
const unsigned short kTextPlainMimeType[11] = {'t', 'e', 'x', 't', '/', 'p', 'l', 'a', 'i', 'n', 0};
const unsigned short kTextQelRtfMimeType[14] = {'t', 'e', 'x', 't', '/', 'x', '-',
                                                'q', 'e', 'l', 'r', 't', 'f', 0};

namespace {

// --- encoding and language codes ---------------------------------------------

struct SEncodingName {
  int code;
  const unsigned short* name;
};

// Every encoding code there is, in the order names are looked up.
const SEncodingName kEncodingTable[] = {
    {0, kAsciiEncoding},
    {2, kUnicodeEncoding},
    {3, kLatin1Encoding},
    {13, kUtf8Encoding},
};

constexpr int kLanguageCount = 144;

// Language tags by code; "" where a code has no tag. Some tags appear twice
// and the old tags "iw", "ji", "in" and "mo" stay: codes stored by earlier
// releases must keep naming the language they always named.
const char kLanguageTable[kLanguageCount][6] = {
    "en", "fr", "de", "it", "nl", "sv", "es", "da", "pt", "no",                 // 0-9
    "iw", "ja", "ar", "fi", "el", "is", "mt", "tr", "hr", "zh-tw",              // 10-19
    "ur", "hi", "th", "ko", "lt", "pl", "hu", "et", "lv", "",                   // 20-29
    "fo", "fa", "ru", "zh-cn", "", "ga", "sq", "ro", "cs", "sk",                // 30-39
    "sl", "ji", "sr", "mk", "bg", "uk", "be", "uz", "kk", "az",                 // 40-49
    "az", "hy", "ka", "mo", "ky", "tg", "tk", "mn", "mn", "ps",                 // 50-59
    "ku", "ks", "sd", "bo", "ne", "sa", "mr", "bn", "as", "gu",                 // 60-69
    "pa", "or", "ml", "kn", "ta", "te", "si", "my", "km", "lo",                 // 70-79
    "vi", "in", "tl", "ms", "ms", "am", "ti", "om", "so", "sw",                 // 80-89
    "rw", "rn", "", "mg", "el", "", "", "", "", "",                             // 90-99
    "", "", "", "", "", "", "", "", "", "",                                     // 100-109
    "", "", "", "", "", "", "", "", "", "",                                     // 110-119
    "", "", "", "", "", "", "", "",                                             // 120-127
    "cy", "eu", "ca", "la", "qu", "gn", "ay", "tt", "ug", "dz",                 // 128-137
    "jw", "su", "gd", "gv", "br", "iu",                                         // 138-143
};

const unsigned short kUnknownName[2] = {'?', 0};

// Stores text in name and reports whether it is there: a failed allocation
// leaves name empty, and that is no success whatever the code was.
bool StoreName(TBstr& name, const unsigned short* text) {
  name.Assign(text);
  return name.GetAt(0) != 0 && name.GetAt(0) != '?';
}

// The platform's 8-bit tolower for one unit; units beyond 8 bits stay as they
// are (and so never match an ASCII tag).
unsigned short LowerUnit(unsigned short c) {
  return c <= 0xFF ? static_cast<unsigned short>(tolower(c)) : c;
}

// Whether entry (a non-empty tag) is a prefix of tag, each unit of tag lowered.
// Stops at the first difference, so tag's terminator ends the walk.
bool TagStartsWith(const unsigned short* tag, const char* entry) {
  for (; *entry; ++entry, ++tag) {
    if (LowerUnit(*tag) != static_cast<unsigned char>(*entry)) return false;
  }
  return true;
}

// --- HTML and entities ---------------------------------------------------------

struct SEntity {
  unsigned short character;
  unsigned short entity[8];  // zero-terminated
  int length;                // units of entity before the terminator
};

// Looked up in this order; '&' comes first so that escaping in turn never
// escapes the ampersand of an entity already produced.
const SEntity kEntityTable[4] = {
    {'&', {'&', 'a', 'm', 'p', ';', 0}, 5},
    {'<', {'&', 'l', 't', ';', 0}, 4},
    {'>', {'&', 'g', 't', ';', 0}, 4},
    {'"', {'&', 'q', 'u', 'o', 't', ';', 0}, 6},
};

const SEntity* EntityFor(unsigned short c) {
  for (const SEntity& row : kEntityTable) {
    if (row.character == c) return &row;
  }
  return nullptr;
}

// The frame of a document and the line break tag (not zero-terminated).
const unsigned short kHtmlHead[] = {'<', 'H', 'T', 'M', 'L', '>', '<', 'B', 'O', 'D', 'Y', '>'};
const unsigned short kHtmlTail[] = {'<', '/', 'B', 'O', 'D', 'Y', '>',
                                    '<', '/', 'H', 'T', 'M', 'L', '>'};
const unsigned short kLineBreakTag[] = {'<', 'B', 'R', '>'};
constexpr size_t kHtmlHeadLength = sizeof kHtmlHead / sizeof kHtmlHead[0];
constexpr size_t kHtmlTailLength = sizeof kHtmlTail / sizeof kHtmlTail[0];
constexpr size_t kLineBreakTagLength = sizeof kLineBreakTag / sizeof kLineBreakTag[0];

// Work buffers of up to this many units live on the stack.
constexpr size_t kStackWorkUnits = 128;

// A work buffer of a given number of units: on the stack up to
// kStackWorkUnits, from OvraMemAlloc beyond. Get() is null when the heap
// request failed.
class TWorkBuffer {
 public:
  explicit TWorkBuffer(size_t units) : m_heap(nullptr) {
    if (units > kStackWorkUnits) {
      m_heap = static_cast<unsigned short*>(OvraMemAlloc(units * sizeof(unsigned short)));
    }
    m_units = units > kStackWorkUnits ? m_heap : m_stack;
  }
  ~TWorkBuffer() { OvraMemFree(m_heap); }
  TWorkBuffer(const TWorkBuffer&) = delete;
  TWorkBuffer& operator=(const TWorkBuffer&) = delete;

  unsigned short* Get() { return m_units; }

 private:
  unsigned short m_stack[kStackWorkUnits];
  unsigned short* m_heap;
  unsigned short* m_units;
};

// Gives out the zero-terminated text, or leaves out as it was when the copy
// cannot be made.
void AssignOrKeep(TBstr& out, const unsigned short* text) {
  TBstr result(text);
  if (text[0] != 0 && result.IsEmpty()) return;
  out = static_cast<TBstr&&>(result);
}

// Copies text to dest without its entities: the four known ones become their
// characters, any other "&...;" vanishes, and so does an entity left open at
// the end. Writes at most as many units as text has, then a terminator.
void UnescapeInto(const unsigned short* text, unsigned short* dest) {
  const unsigned short* entity = nullptr;  // the open entity's "&"
  for (const unsigned short* p = text; *p; ++p) {
    if (*p == '&') {
      entity = p;  // a second "&" starts the entity anew
    } else if (!entity) {
      *dest++ = *p;
    } else if (*p == ';') {
      const ptrdiff_t length = p - entity + 1;
      for (const SEntity& row : kEntityTable) {
        if (length == row.length &&
            memcmp(entity, row.entity, static_cast<size_t>(length) * sizeof(unsigned short)) == 0) {
          *dest++ = row.character;
          break;
        }
      }
      entity = nullptr;
    }
  }
  *dest = 0;
}

// Copies text to dest without its tags: a tag equal to "<BR>" but for case
// becomes "\r\n", any other "<...>" vanishes, and so does a tag left open at
// the end. A tag of four units gives two, so dest never needs more units than
// text has, plus its terminator.
void StripTagsInto(const unsigned short* text, unsigned short* dest) {
  const unsigned short* tag = nullptr;  // the open tag's "<"
  for (const unsigned short* p = text; *p; ++p) {
    if (*p == '<') {
      tag = p;  // a second "<" starts the tag anew
    } else if (!tag) {
      *dest++ = *p;
    } else if (*p == '>') {
      if (p - tag + 1 == static_cast<ptrdiff_t>(kLineBreakTagLength) &&
          ucsnicmp(tag, kLineBreakTag, kLineBreakTagLength) == 0) {
        *dest++ = '\r';
        *dest++ = '\n';
      }
      tag = nullptr;
    }
  }
  *dest = 0;
}

// Units that text needs once its special characters are entities, and once,
// when lineBreaks is set, each "\r\n" pair is "<BR>" as well.
uint64_t EscapedLength(const unsigned short* text, bool lineBreaks) {
  uint64_t length = 0;
  for (const unsigned short* p = text; *p; ++p) {
    if (lineBreaks && p[0] == '\r' && p[1] == '\n') {
      length += kLineBreakTagLength;
      ++p;
    } else if (const SEntity* row = EntityFor(*p)) {
      length += static_cast<uint64_t>(row->length);
    } else {
      ++length;
    }
  }
  return length;
}

// Writes what EscapedLength counted and returns the position after it. Pairs
// are taken from the left, so "\r\r\n" gives "\r<BR>".
unsigned short* EscapeInto(const unsigned short* text, bool lineBreaks, unsigned short* dest) {
  for (const unsigned short* p = text; *p; ++p) {
    if (lineBreaks && p[0] == '\r' && p[1] == '\n') {
      memcpy(dest, kLineBreakTag, sizeof kLineBreakTag);
      dest += kLineBreakTagLength;
      ++p;
    } else if (const SEntity* row = EntityFor(*p)) {
      memcpy(dest, row->entity, static_cast<size_t>(row->length) * sizeof(unsigned short));
      dest += row->length;
    } else {
      *dest++ = *p;
    }
  }
  return dest;
}

// Escapes text into out in one pass, between head and tail when given. The
// result is the one that replacing the four characters in turn ("&" first) and
// then each "\r\n" would give, without a reallocation per occurrence. out is
// left empty when its buffer cannot be had.
void EscapeText(const unsigned short* text, TBstr& out, bool html) {
  static const unsigned short kNone[1] = {0};
  if (!text) text = kNone;
  uint64_t length = EscapedLength(text, html);
  if (html) length += kHtmlHeadLength + kHtmlTailLength;
  unsigned short* buffer = nullptr;
  if (length > 0 && length <= kMaxStringLength) {
    // The new text is complete before out lets go of its own, since text may lie in it.
    buffer = OvraAllocStringLen(nullptr, static_cast<unsigned int>(length));
    if (buffer) {
      unsigned short* p = buffer;
      if (html) {
        memcpy(p, kHtmlHead, sizeof kHtmlHead);
        p += kHtmlHeadLength;
      }
      p = EscapeInto(text, html, p);
      if (html) memcpy(p, kHtmlTail, sizeof kHtmlTail);
    }
  }
  out.Empty();
  out.Attach(buffer);
}

}  // namespace

// --- encoding and language codes ---------------------------------------------

bool OvraQelToIsoEncoding(int code, TBstr& name) {
  for (const SEncodingName& row : kEncodingTable) {
    if (row.code == code) return StoreName(name, row.name);
  }
  StoreName(name, kUnknownName);
  return false;
}

bool OvraIsoToQelEncoding(const unsigned short* name, int& code) {
  code = -1;
  if (!name || !*name) {
    code = 0;
  } else {
    for (const SEncodingName& row : kEncodingTable) {
      if (ucsicmp(name, row.name) == 0) {
        code = row.code;
        break;
      }
    }
  }
  return code >= 0;
}

bool OvraQelToIsoLang(int code, TBstr& tag) {
  if (code >= 0 && code < kLanguageCount && kLanguageTable[code][0]) {
    // Widened here rather than through the narrow Assign, which would take a
    // heap block of its own for a tag of at most five characters.
    unsigned short wide[sizeof kLanguageTable[0]];
    size_t i = 0;
    for (const char* c = kLanguageTable[code]; *c; ++c) wide[i++] = static_cast<unsigned char>(*c);
    wide[i] = 0;
    return StoreName(tag, wide);
  }
  StoreName(tag, kUnknownName);
  return false;
}

bool OvraIsoToQelLang(const unsigned short* tag, int& code) {
  if (!tag || !*tag) {
    code = 0;  // no tag means English
    return true;
  }
  code = -1;
  for (int i = 0; i < kLanguageCount; ++i) {
    if (kLanguageTable[i][0] && TagStartsWith(tag, kLanguageTable[i])) {
      code = i;
      break;
    }
  }
  return code >= 0;
}

// --- HTML and entities ---------------------------------------------------------

void OvraEntityEscape(const unsigned short* text, TBstr& out) { EscapeText(text, out, false); }

void OvraPlainToHtml(const unsigned short* text, TBstr& out) { EscapeText(text, out, true); }

void OvraEntityUnescape(const unsigned short* text, TBstr& out) {
  const size_t length = text ? ucslen(text) : 0;
  // Longer text could not be held by out anyway; it fails like an allocation.
  if (length > kMaxStringLength) return;
  TWorkBuffer work(length + 1);
  if (!work.Get()) return;
  if (text) {
    UnescapeInto(text, work.Get());
  } else {
    work.Get()[0] = 0;
  }
  AssignOrKeep(out, work.Get());
}

void OvraHtmlToPlain(const unsigned short* text, TBstr& out) {
  const size_t length = text ? ucslen(text) : 0;
  if (length > kMaxStringLength) return;
  TWorkBuffer work(length + 1);
  if (!work.Get()) return;
  if (text) {
    StripTagsInto(text, work.Get());
  } else {
    work.Get()[0] = 0;
  }
  OvraEntityUnescape(work.Get(), out);
}
