// OvraBstr.h - counted 16-bit string buffers, UTF-8 and single-byte text
// conversions, and the string value class TBstr.
//
// A counted string buffer is a pointer to 16-bit characters whose heap block
// starts 4 bytes earlier with the text's length in bytes (unsigned 32-bit) and
// ends with a zero character after the text: a block of n characters is
// 2n + 6 bytes, and the buffer is also an ordinary zero-terminated string.
// There is no buffer of length 0: the empty string is the null pointer, and
// every function here takes null as the empty string.
#ifndef OVRA_OVRABSTR_H
#define OVRA_OVRABSTR_H

#include <stdarg.h>

#include "OvraPlatform.h"

// ---------------------------------------------------------------------------
// Counted string buffers
// ---------------------------------------------------------------------------

// The longest text a buffer (and so a TBstr) can hold, in characters: the byte
// length must fit its 32-bit field and the block a 32-bit size. Longer
// requests fail like an allocation failure, on every platform alike.
constexpr unsigned int kMaxStringLength = 0x7FFFFFFCu;

// OvraAllocStringLen(s, s ? ucslen(s) : 0): a new buffer holding s, or null for
// a null or empty s and when the allocation fails.
OVRA_EXTERN_C OVRA_API unsigned short* OvraAllocString(const unsigned short* s);
// A new buffer of count characters copied from s (which need not be terminated;
// zero characters inside are kept), or with the text left uninitialised when s
// is null. Null for a count of 0, above kMaxStringLength, or on allocation failure.
OVRA_EXTERN_C OVRA_API unsigned short* OvraAllocStringLen(const unsigned short* s,
                                                          unsigned int count);
// Releases a buffer made by OvraAllocString/OvraAllocStringLen; null is ignored.
OVRA_EXTERN_C OVRA_API void OvraFreeString(unsigned short* buffer);
// The buffer's stored length in characters; 0 for null. Reads the length field,
// so zero characters inside the text are counted.
OVRA_EXTERN_C OVRA_API unsigned int OvraStringLen(const unsigned short* buffer);
// OvraStringLen(buffer) * 2: the text's length in bytes, terminator excluded.
OVRA_EXTERN_C OVRA_API unsigned int OvraStringByteLen(const unsigned short* buffer);

// ---------------------------------------------------------------------------
// UTF-8 and single-byte conversions
// ---------------------------------------------------------------------------

// UTF-8 bytes needed by the zero-terminated 16-bit string s (terminator not
// counted; the walk ends at the first zero, whatever a length field says): 1 per
// character below 0x80, 2 below 0x800, 3 otherwise. 0 for null. A text needing
// more than 2147483647 bytes reports 2147483647.
OVRA_EXTERN_C OVRA_API int OvraStringUtf8ByteLen(const unsigned short* s);
// Writes count 16-bit characters of source as UTF-8 (at most 3 bytes each) to
// dest and returns the bytes written; 0 when count is below 1 or a pointer is
// null. No terminator. Room is tested once per character: a sequence that starts
// below size is written whole, so dest needs 2 bytes beyond size. Surrogates are
// not paired (each becomes its own 3-byte sequence); zero characters become 0 bytes.
// The result never exceeds INT_MAX: with a size within 2 of INT_MAX, a character
// whose sequence would end beyond byte INT_MAX is not written (conversion stops).
OVRA_EXTERN_C OVRA_API int OvraStringToUtf8(const unsigned short* source, int count, char* dest,
                                            int size);
// Decodes count bytes of UTF-8 into at most size 16-bit characters and returns
// the characters written; 0 when count is below 1 or a pointer is null. No
// terminator. Deliberately validates nothing: continuation bytes are taken
// whatever their top bits, a byte with the top bit set starts a 3-byte sequence
// when its bit 0x20 is set (so 0xA0..0xBF and 0xF0..0xFF too, keeping the low 16
// bits) and a 2-byte one otherwise (0x80..0x9F too); overlong forms are accepted,
// 4-byte sequences are not understood, and an incomplete sequence at the end is dropped.
// The result is at most size, so it cannot overflow; sizes inside are size_t.
OVRA_EXTERN_C OVRA_API int OvraUtf8ToString(const char* source, int count, unsigned short* dest,
                                            int size);
// Narrows count characters (count -1: up to and including the terminator) to
// ISO-8859-1 bytes, a character above 255 becoming "?", while fewer than size
// bytes are written. Returns the bytes written; 0 for another count below 1 or a
// null pointer. With count -1, a text of INT_MAX characters or more counts as
// INT_MAX (no wrap), which only matters with a size of INT_MAX.
OVRA_EXTERN_C OVRA_API int OvraUnicodeToMultibyte(const unsigned short* source, int count,
                                                  char* dest, int size);
// Widens count bytes (count -1: up to and including the terminator) byte for
// byte (ISO-8859-1, no code page) while fewer than size characters are written.
// Returns the characters written; 0 for another count below 1 or a null pointer.
// With count -1, a text of INT_MAX bytes or more counts as INT_MAX (no wrap).
OVRA_EXTERN_C OVRA_API int OvraMultibyteToUnicode(const char* source, int count,
                                                  unsigned short* dest, int size);

// ---------------------------------------------------------------------------
// Encoding and language names (zero-terminated 16-bit strings)
// ---------------------------------------------------------------------------

OVRA_EXTERN_C OVRA_API const unsigned short kAsciiEncoding[9];     // "us-ascii"
OVRA_EXTERN_C OVRA_API const unsigned short kLatin1Encoding[11];   // "iso-8859-1"
OVRA_EXTERN_C OVRA_API const unsigned short kUtf8Encoding[6];      // "utf-8"
OVRA_EXTERN_C OVRA_API const unsigned short kUnicodeEncoding[12];  // "unicode-2-0"
OVRA_EXTERN_C OVRA_API const unsigned short kEnglishLanguage[3];   // "en"

// ---------------------------------------------------------------------------
// TConvertBuffer
// ---------------------------------------------------------------------------

// A short-lived holder of 16-bit text widened byte for byte from narrow text;
// TBstr builds itself from narrow text through it. Not copyable.
class OVRA_API TConvertBuffer {
 public:
  // Widens length bytes of text (-1: up to its terminating zero byte). Holds no
  // text (null, length 0) when text is null, the length is not positive or the
  // allocation fails.
  TConvertBuffer(const char* text, int length);
  // Releases the text.
  ~TConvertBuffer();

  TConvertBuffer(const TConvertBuffer&) = delete;
  TConvertBuffer& operator=(const TConvertBuffer&) = delete;

  // The zero-terminated 16-bit text, or null when there is none.
  const unsigned short* GetText() const { return m_text; }
  // Its length in characters, terminator not counted; 0 when there is no text.
  int GetLength() const { return m_length; }

 private:
  unsigned short* m_text;
  int m_length;
};

// ---------------------------------------------------------------------------
// TBstr
// ---------------------------------------------------------------------------

// The library's string value: one owned counted buffer of 16-bit characters
// (null when empty, never of length 0, always exactly as long as the text) and,
// on demand, a cached single-byte copy of it. Lengths and indexes are signed
// counts of characters. Copies never share a buffer. Narrow text is widened
// byte for byte (ISO-8859-1), never decoded as UTF-8. Every operation that may
// change the text drops the single-byte copy first.
//
// Failures are not reported: after a failed allocation (or a request longer
// than kMaxStringLength) the string is empty. Not for use by two threads at once,
// not even for reading (GetMultibyteString fills the cache).
class OVRA_API TBstr {
 public:
  // The empty string.
  TBstr();
  // An independent copy of other's text.
  TBstr(const TBstr& other);
  // Takes other's buffer; other is left empty.
  TBstr(TBstr&& other) noexcept;
  // count copies of ch; empty when ch is 0 or count is not positive. A work area
  // on the stack serves up to 128 characters, a heap one beyond.
  TBstr(unsigned short ch, int count);
  // The zero-terminated text s; null gives the empty string.
  TBstr(const unsigned short* s);
  // length characters of s, zero characters included; empty for a null s, a
  // length of 0 or a negative length.
  TBstr(const unsigned short* s, int length);
  // The narrow zero-terminated text s widened byte for byte; null gives empty.
  TBstr(const char* s);
  // length bytes of s widened (-1: up to the terminator); empty when not positive.
  TBstr(const char* s, int length);
  // Releases the text and the single-byte copy.
  ~TBstr();

  // --- ownership transfer ---------------------------------------------------

  // Takes buffer (a counted buffer or null) as the text. The buffer held before
  // is NOT released: attach only to an empty TBstr, or accept the leak.
  void Attach(unsigned short* buffer);
  // Hands the buffer to the caller (who frees it with OvraFreeString) and leaves
  // the string empty; null when it was empty.
  unsigned short* Detach();
  // A new counted buffer with the same text for the caller to free; null for the
  // empty string or when the allocation fails.
  unsigned short* Copy() const;
  // Empties the string (freeing its text), then returns the address of the
  // buffer field so that a callee can store a new buffer into it.
  unsigned short** GetBstrPtr();
  // The address of the buffer field without emptying (the single-byte copy is
  // dropped, since the caller may store another buffer through it).
  unsigned short** GetRawBstrPtr();

  // --- access -----------------------------------------------------------------

  // Number of characters; 0 when empty.
  int GetLength() const;
  // GetLength() == 0.
  bool IsEmpty() const;
  // Frees the text: the string becomes empty.
  void Empty();
  // The character at index, or 0 when index is negative or not below the length.
  unsigned short GetAt(int index) const;
  // Stores ch at index when 0 <= index < length and ch is not 0; a zero ch is
  // refused silently, so the text never gains an inner terminator this way.
  // The narrow copy is dropped in every case.
  void SetAt(int index, unsigned short ch);
  // The zero-terminated text; a shared empty string when empty, never null.
  const unsigned short* GetString() const;
  // The text narrowed to ISO-8859-1 (characters above 255 become "?"), cached
  // until the next change; an empty narrow string when empty or when the copy
  // cannot be made. Never null.
  const char* GetMultibyteString() const;
  // Bytes the text takes in encoding (ASCII case ignored): the length for null,
  // "us-ascii" and "iso-8859-1", the UTF-8 length for "utf-8", twice the length
  // for "unicode-2-0" (2147483647 at most), 0 for any other name.
  int GetEncodedByteLength(const unsigned short* encoding) const;
  // "us-ascii" when every character is below 128 (the empty string too),
  // "iso-8859-1" when below 256, else "utf-8". Stops at an inner zero character.
  TBstr GetBestEncoding() const;

  // --- assignment and appending ----------------------------------------------

  // Copies other's text; assigning a string to itself changes nothing.
  TBstr& Assign(const TBstr& other);
  // The single character ch. A ch of 0 does nothing at all, deliberately: the
  // text (and its narrow copy) stay as they were.
  TBstr& Assign(unsigned short ch);
  // The zero-terminated text s (null: empty). s may point into this string.
  TBstr& Assign(const unsigned short* s);
  // The narrow text s widened byte for byte (null: empty).
  TBstr& Assign(const char* s);
  // Appends other's text; appending a string to itself doubles it.
  TBstr& Append(const TBstr& other);
  // Appends ch; a ch of 0 does nothing at all (the narrow copy stays too).
  TBstr& Append(unsigned short ch);
  // Appends the zero-terminated text s (null: nothing). s may point into this string.
  TBstr& Append(const unsigned short* s);
  // Appends the narrow text s widened byte for byte (null: nothing).
  TBstr& Append(const char* s);

  // Assign(other): an independent copy of other's text.
  TBstr& operator=(const TBstr& other) { return Assign(other); }
  // Takes other's buffer, leaving other empty; moving a string to itself changes nothing.
  TBstr& operator=(TBstr&& other) noexcept;
  // Assign(s) for zero-terminated wide text (null: empty).
  TBstr& operator=(const unsigned short* s) { return Assign(s); }
  // Assign(s) for narrow text, widened byte for byte (null: empty).
  TBstr& operator=(const char* s) { return Assign(s); }
  // Append(other); a string may be appended to itself.
  TBstr& operator+=(const TBstr& other) { return Append(other); }
  // Append(s) for zero-terminated wide text (null: nothing).
  TBstr& operator+=(const unsigned short* s) { return Append(s); }
  // Append(s) for narrow text, widened byte for byte (null: nothing).
  TBstr& operator+=(const char* s) { return Append(s); }
  // Append(ch); a ch of 0 does nothing.
  TBstr& operator+=(unsigned short ch) { return Append(ch); }

  // --- comparison (negative, zero, positive: this sorts before, equal, after) --

  // ucscmp of both texts when both are non-empty; otherwise the difference of
  // the lengths (so an empty string equals a null s).
  int Compare(const unsigned short* s) const;
  // As Compare, with ASCII letters folded (ucsicmp).
  int CompareNoCase(const unsigned short* s) const;
  // Ignores every blank (U+0020) and the case of ASCII letters: the result of the
  // first differing folded characters. When either side is empty, the difference
  // of the lengths without trailing blanks. No other normalisation (tabs, accents).
  int CompareNormal(const unsigned short* s) const;

  // Compare(other.GetString()) == 0: like Compare, ends at an inner zero character.
  bool operator==(const TBstr& other) const { return Compare(other.GetString()) == 0; }
  // The negation of operator==.
  bool operator!=(const TBstr& other) const { return !(*this == other); }

  // --- substrings --------------------------------------------------------------

  // count characters from first; first is clamped to 0..length and count to
  // what remains; empty when nothing remains or count is not positive.
  TBstr Mid(int first, int count) const;
  // Mid(first, length - first): a negative first gives the whole text.
  TBstr Mid(int first) const;
  // The first n characters (all of them when n exceeds the length).
  TBstr Left(int n) const;
  // The last n characters (all of them when n exceeds the length, none for a
  // negative n).
  TBstr Right(int n) const;

  // --- conversion, case and order ---------------------------------------------

  // ucstol of the text in base 10 (leading blanks, optional sign, clamped to
  // 32-bit range); 0 when empty.
  long ToLong() const;
  // "a".."z" to capitals; nothing else changes.
  void MakeUpper();
  // "A".."Z" to small letters; nothing else changes.
  void MakeLower();
  // Reverses the characters (up to an inner zero character, if any).
  void MakeReverse();
  // Swaps the two bytes of every character, whatever the host's byte order;
  // twice restores the text.
  void MakeBigEndian();

  // --- trimming and normalising ------------------------------------------------

  // Removes the run of ch (this one value only; tabs are not blanks) at the
  // start; nothing for a ch of 0.
  void TrimLeft(unsigned short ch = 0x20);
  // Removes the run of ch at the end; nothing for a ch of 0.
  void TrimRight(unsigned short ch = 0x20);
  // Removes every blank and folds ASCII capitals to small letters: the form
  // that CompareNormal treats as equal.
  void Normalize();

  // --- replacing, removing, inserting, deleting ----------------------------

  // Replaces every from by to (a to of 0 is stored as it is); returns the count.
  int Replace(unsigned short from, unsigned short to);
  // Replaces every occurrence of the text from by the text to (null or empty to:
  // removes them), scanning on after each inserted text so that it is never
  // matched again. Returns the number of replacements; 0 for a null or empty
  // from. After an allocation failure the string is empty and the replacements
  // made until then are counted.
  int Replace(const unsigned short* from, const unsigned short* to);
  // Removes every ch, keeping the order of the rest; returns how many went.
  int Remove(unsigned short ch);
  // Inserts ch before min(index, length) and returns the new length; a negative
  // index or a ch of 0 changes nothing and returns the length.
  int Insert(int index, unsigned short ch);
  // Inserts the text s (which may point into this string) before min(index,
  // length) and returns the new length; a negative index or a null or empty s
  // changes nothing and returns the length.
  int Insert(int index, const unsigned short* s);
  // Removes min(count, length - index) characters from index and returns the new
  // length; an index out of 0..length-1 or a negative count changes nothing and
  // returns the length.
  int Delete(int index, int count);

  // --- searching (a character index, or -1; searches stop at an inner zero) ---

  // The first ch at or after start; -1 when start is out of 0..length-1. A ch of 0
  // finds the terminator (the length).
  int Find(unsigned short ch, int start = 0) const;
  // The last ch; -1 for the empty string. A ch of 0 gives the length.
  int ReverseFind(unsigned short ch) const;
  // The first character that is in set; -1 for the empty string or a null set.
  int FindOneOf(const unsigned short* set) const;
  // The first occurrence of s at or after start; -1 for a null s or a start out
  // of 0..length-1. An empty s is found at start.
  int Find(const unsigned short* s, int start = 0) const;

  // --- formatting -----------------------------------------------------------

  // Replaces the text by vsnuprintf's output for format (16-bit; "%s" takes
  // 16-bit strings). The whole output is kept even when the first estimate of
  // its length falls short. Arguments may point into this string. A null format
  // and output longer than kMaxFormatLength characters leave the string empty.
  // Caution: a first length estimate reads the arguments by simpler rules, in
  // which "S" takes a narrow string and "C" an int although the formatter takes
  // none for them, so a format using them needs those arguments present too.
  void Format(const unsigned short* format, ...);
  // Format with an argument list; args is not consumed (it is copied).
  void FormatV(const unsigned short* format, va_list args);

  // Longest text Format produces; longer output leaves the string empty rather
  // than exhausting memory for an absurd width.
  static constexpr int kMaxFormatLength = 0x1000000;

 private:
  bool InternalInit(const unsigned short* s, int length);
  bool InternalAppend(const unsigned short* s, int length);
  bool AdjustBuffer(int length, bool keep);
  bool CreateMultibyteBuffer() const;
  void DestroyMultibyteBuffer();
  bool InsertText(int index, const unsigned short* s, int length);

  unsigned short* m_string;             // counted buffer, null when empty
  mutable char* m_multibyte;            // single-byte copy, null when absent
};

// ===========================================================================
// Text conversions: encoding and language codes, HTML and entities
// ===========================================================================
//
// Every text argument below is a zero-terminated 16-bit string or null (taken
// as the empty string); the caller need provide nothing else. Any unit values
// are accepted, and only the units before the first zero are read.

// MIME type names of the text formats (zero-terminated 16-bit strings).
OVRA_EXTERN_C OVRA_API const unsigned short kTextMimeType[5];         // "text"
OVRA_EXTERN_C OVRA_API const unsigned short kTextPlainMimeType[11];   // "text/plain"
OVRA_EXTERN_C OVRA_API const unsigned short kTextQelRtfMimeType[14];  // "text/x-qelrtf"

// The MIME charset name of a Qel encoding code: 0 "us-ascii", 2 "unicode-2-0",
// 3 "iso-8859-1", 13 "utf-8". Any other code stores "?" and returns false; false
// too, with name empty, when name cannot be stored (allocation failure).
OVRA_EXTERN_C OVRA_API bool OvraQelToIsoEncoding(int code, TBstr& name);
// The Qel code of a charset name, ASCII case ignored, whole names only. A null
// or empty name is "us-ascii" (0). An unknown name sets code to -1 and returns false.
OVRA_EXTERN_C OVRA_API bool OvraIsoToQelEncoding(const unsigned short* name, int& code);
// The lower-case ISO 639 tag of a Qel language code 0..143 ("zh-tw" 19,
// "zh-cn" 33; older tags such as "iw" kept). A code without a tag or out of
// range stores "?" and returns false; false too, with tag empty, on allocation failure.
OVRA_EXTERN_C OVRA_API bool OvraQelToIsoLang(int code, TBstr& tag);
// The lowest Qel language code whose tag starts tag (each unit lowered by the
// platform's 8-bit tolower), so "en-US" and even "english" give 0 while "zh"
// gives -1 and false. A null or empty tag gives 0 (English) and true.
OVRA_EXTERN_C OVRA_API bool OvraIsoToQelLang(const unsigned short* tag, int& code);

// out = text with "&", "<", ">" and the double quote written as "&amp;",
// "&lt;", "&gt;" and "&quot;" (nothing else changes; an existing entity is
// escaped again). text may lie in out. On allocation failure out is empty.
OVRA_EXTERN_C OVRA_API void OvraEntityEscape(const unsigned short* text, TBstr& out);
// out = text with those four entities (case-sensitive) turned back into their
// characters. Deliberately lossy: any other "&...;" vanishes, and an "&" that no
// ";" closes drops the rest of the text. text may lie in out; on allocation
// failure out is left unchanged. Work space of up to 128 units is on the stack.
OVRA_EXTERN_C OVRA_API void OvraEntityUnescape(const unsigned short* text, TBstr& out);
// out = "<HTML><BODY>" + text escaped as OvraEntityEscape does, each "\r\n"
// pair then "<BR>" (a lone "\r" or "\n" stays) + "</BODY></HTML>". text may lie
// in out. On allocation failure out is empty.
OVRA_EXTERN_C OVRA_API void OvraPlainToHtml(const unsigned short* text, TBstr& out);
// out = text without its tags, then unescaped as by OvraEntityUnescape. A tag
// exactly "<BR>" in any case becomes "\r\n" ("<br/>" and "<BR clear>" do not);
// every other tag, and one that no ">" closes, is dropped. text may lie in out;
// on allocation failure out is left unchanged. Work space as OvraEntityUnescape's.
OVRA_EXTERN_C OVRA_API void OvraHtmlToPlain(const unsigned short* text, TBstr& out);

#endif
