// TextStreams.cpp - the text conversions of the ovra program, piece by piece.
#include "TextStreams.h"

#include <string.h>

#include "OvraBstr.h"

namespace ovratool {
namespace {

// The largest piece handed to the library at once: far below its int limits,
// and small enough that the work buffers stay small.
constexpr size_t kPieceUnits = 64 * 1024;

// Stands for a zero character inside a tag or an entity, where the text is
// dropped anyway and only its length matters; the library cannot be given a
// zero inside its zero-terminated text.
constexpr unsigned short kFiller = 0xFFFF;

bool IsB(unsigned short c) { return c == 'B' || c == 'b'; }
bool IsR(unsigned short c) { return c == 'R' || c == 'r'; }

}  // namespace

void Utf8Decoder::Decode(const unsigned char* data, size_t size,
                         std::vector<unsigned short>& out) {
  const unsigned char* bytes = data;
  size_t n = size;
  if (!m_held.empty()) {
    m_work.assign(m_held.begin(), m_held.end());
    m_work.insert(m_work.end(), data, data + size);
    bytes = m_work.data();
    n = m_work.size();
  }
  // The library decodes whole sequences only; their ends are found with its
  // own rule for the length of a sequence from its first byte.
  size_t sliceStart = 0;
  size_t i = 0;
  for (;;) {
    const bool atEnd = i >= n;
    size_t length = 0;
    if (!atEnd) {
      const unsigned b = bytes[i];
      length = b < 0x80 ? 1 : (b & 0x20) ? 3 : 2;
    }
    if (atEnd || i + length > n || i - sliceStart >= kPieceUnits) {
      const size_t count = i - sliceStart;
      if (count > 0) {
        const size_t old = out.size();
        out.resize(old + count);
        const int got = OvraUtf8ToString(reinterpret_cast<const char*>(bytes + sliceStart),
                                         static_cast<int>(count), out.data() + old,
                                         static_cast<int>(count));
        out.resize(old + static_cast<size_t>(got));
      }
      sliceStart = i;
      if (atEnd || i + length > n) break;
    }
    i += length;
  }
  m_held.assign(bytes + i, bytes + n);
}

bool EncodeUtf8(const unsigned short* units, size_t count, const ByteSink& sink) {
  constexpr size_t kBlock = 16 * 1024;
  // Three bytes at most per character, and the two of slack the encoder may
  // write beyond its size.
  char buffer[3 * kBlock + 2];
  for (size_t done = 0; done < count;) {
    const size_t n = count - done < kBlock ? count - done : kBlock;
    const int written =
        OvraStringToUtf8(units + done, static_cast<int>(n), buffer, static_cast<int>(3 * n));
    if (!sink(buffer, static_cast<size_t>(written))) return false;
    done += n;
  }
  return true;
}

// --- plain text to HTML ------------------------------------------------------

bool PlainToHtmlStream::Start() {
  if (m_started) return true;
  // The page's frame is the library's: the page of one letter, cut around it.
  const unsigned short letter[2] = {'x', 0};
  TBstr page;
  OvraPlainToHtml(letter, page);
  const unsigned short* text = page.GetString();
  const size_t length = static_cast<size_t>(page.GetLength());
  size_t at = 0;
  while (at < length && text[at] != 'x') ++at;
  if (at == length) return false;
  m_head.assign(text, text + at);
  m_tail.assign(text + at + 1, text + length);
  m_started = true;
  return m_sink(m_head.data(), m_head.size());
}

bool PlainToHtmlStream::ConvertPiece(const unsigned short* units, size_t count) {
  std::vector<unsigned short> piece;
  piece.reserve(count + 2);
  if (m_heldCr) piece.push_back('\r');
  m_heldCr = false;
  piece.insert(piece.end(), units, units + count);
  if (piece.empty()) return true;
  piece.push_back(0);
  TBstr page;
  OvraPlainToHtml(piece.data(), page);
  const size_t length = static_cast<size_t>(page.GetLength());
  const unsigned short* text = page.GetString();
  // A page always has its frame: anything else is a failed allocation.
  if (length < m_head.size() + m_tail.size() ||
      memcmp(text, m_head.data(), m_head.size() * 2) != 0 ||
      memcmp(text + length - m_tail.size(), m_tail.data(), m_tail.size() * 2) != 0)
    return false;
  return m_sink(text + m_head.size(), length - m_head.size() - m_tail.size());
}

bool PlainToHtmlStream::Add(const unsigned short* units, size_t count) {
  if (!Start()) return false;
  while (count > kPieceUnits) {
    if (!Add(units, kPieceUnits)) return false;
    units += kPieceUnits;
    count -= kPieceUnits;
  }
  if (count == 0) return true;
  size_t start = 0;
  for (size_t i = 0; i < count; ++i) {
    if (units[i] != 0) continue;
    // The text before a zero is complete: a CR just before it is alone.
    if (!ConvertPiece(units + start, i - start)) return false;
    const unsigned short zero = 0;
    if (!m_sink(&zero, 1)) return false;
    start = i + 1;
  }
  // A CR at the end may meet its LF in the next piece: it waits.
  size_t end = count;
  const bool cr = end > start && units[end - 1] == '\r';
  if (cr) --end;
  if (!ConvertPiece(units + start, end - start)) return false;
  m_heldCr = cr;
  return true;
}

bool PlainToHtmlStream::Finish() {
  if (!Start()) return false;
  if (!ConvertPiece(nullptr, 0)) return false;
  return m_sink(m_tail.data(), m_tail.size());
}

// --- HTML to plain text ------------------------------------------------------

bool HtmlToPlainStream::ConvertPiece(const unsigned short* units, size_t count) {
  if (count == 0) return true;
  std::vector<unsigned short> piece(units, units + count);
  piece.push_back(0);
  // The conversion never lengthens text, so a result as long as this marker
  // means the library left out unchanged: its allocation failed.
  TBstr out(static_cast<unsigned short>('x'), static_cast<int>(count + 1));
  if (out.IsEmpty()) return false;
  OvraHtmlToPlain(piece.data(), out);
  const size_t length = static_cast<size_t>(out.GetLength());
  if (length > count) return false;
  return m_sink(out.GetString(), length);
}

bool HtmlToPlainStream::Add(const unsigned short* units, size_t count) {
  while (count > kPieceUnits) {
    if (!Add(units, kPieceUnits)) return false;
    units += kPieceUnits;
    count -= kPieceUnits;
  }
  m_pending.insert(m_pending.end(), units, units + count);
  unsigned short* p = m_pending.data();
  const size_t n = m_pending.size();
  size_t pieceStart = 0;  // m_pending[0, pieceStart) is converted already
  // The library's two passes, followed without converting: tags over the
  // text, entities over what the tags leave ("<BR>" leaves "\r\n").
  for (size_t i = m_scanned; i < n; ++i) {
    const unsigned short c = p[i];
    if (m_inTag) {
      if (c == '<') {
        m_tagStart = i;  // a second "<" starts the tag again
        m_tagLength = 1;
      } else if (c == '>') {
        const bool br = m_tagLength == 3 && IsB(p[m_tagStart + 1]) && IsR(p[m_tagStart + 2]);
        m_inTag = false;
        if (br && m_inEntity) {
          for (unsigned short unit : {static_cast<unsigned short>('\r'),
                                      static_cast<unsigned short>('\n')}) {
            if (!m_entityLong) m_entityText.push_back(unit);
          }
        }
      } else {
        if (c == 0) p[i] = kFiller;
        ++m_tagLength;
      }
    } else if (c == '<') {
      m_inTag = true;
      m_tagStart = i;
      m_tagLength = 1;
    } else if (c == '&') {
      m_inEntity = true;  // a second "&" starts the entity again
      m_entityStart = i;
      m_entityText.assign(1, '&');
      m_entityLong = false;
    } else if (m_inEntity) {
      if (c == ';') {
        m_inEntity = false;
      } else {
        if (c == 0) p[i] = kFiller;
        if (!m_entityLong) m_entityText.push_back(p[i]);
      }
    } else if (c == 0) {
      // Outside any tag or entity a zero is text: the text before it is
      // complete, and the zero passes through.
      if (!ConvertPiece(p + pieceStart, i - pieceStart)) return false;
      const unsigned short zero = 0;
      if (!m_sink(&zero, 1)) return false;
      pieceStart = i + 1;
    }
    // The longest entity, "&quot;", has five units before its ";".
    if (m_inEntity && m_entityText.size() > 5) m_entityLong = true;
  }
  // Converts up to the first open tag or entity; what is open is carried
  // over, shrunk: an entity by what the tags inside it left, a tag longer than
  // "<BR" to a stand-in of the same fate.
  size_t cut = n;
  if (m_inEntity) cut = m_entityStart;
  else if (m_inTag) cut = m_tagStart;
  if (!ConvertPiece(p + pieceStart, cut - pieceStart)) return false;
  std::vector<unsigned short> kept;
  if (m_inEntity) {
    if (m_entityLong) m_entityText.assign({'&', kFiller, kFiller, kFiller, kFiller, kFiller});
    kept = m_entityText;
    m_entityStart = 0;
  }
  if (m_inTag) {
    const size_t start = kept.size();
    if (m_tagLength > 3) {
      kept.insert(kept.end(), {'<', kFiller, kFiller, kFiller});
      m_tagLength = 4;
    } else {
      kept.insert(kept.end(), p + m_tagStart, p + n);
    }
    m_tagStart = start;
  }
  m_pending.swap(kept);
  m_scanned = m_pending.size();
  return true;
}

bool HtmlToPlainStream::Finish() {
  // An open tag or entity at the end is dropped, as the whole conversion drops it.
  const bool ok = ConvertPiece(m_pending.data(), m_pending.size());
  m_pending.clear();
  m_scanned = 0;
  m_inTag = m_inEntity = false;
  return ok;
}

}  // namespace ovratool
