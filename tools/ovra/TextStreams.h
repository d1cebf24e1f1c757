// TextStreams.h - the ovra program's text conversions applied piece by piece,
// so that an input of any size is converted in bounded memory and gives the
// bytes that converting it whole would give. Each stream takes its input in
// pieces of any size (a UTF-8 sequence, a CR LF pair, a tag or an entity may
// be split anywhere) and hands its output to a sink.
#ifndef OVRA_TOOL_TEXTSTREAMS_H
#define OVRA_TOOL_TEXTSTREAMS_H

#include <stddef.h>

#include <functional>
#include <string>
#include <vector>

namespace ovratool {

// Where a stream's output goes; returns false to stop (a write error).
using ByteSink = std::function<bool(const char* data, size_t size)>;
using UnitSink = std::function<bool(const unsigned short* units, size_t count)>;

// UTF-8 to 16-bit characters with the library's decoder (nothing validated;
// see OvraUtf8ToString). A sequence split between two pieces is completed
// with the next one.
class Utf8Decoder {
 public:
  // Decodes the complete sequences of held bytes plus data onto out.
  void Decode(const unsigned char* data, size_t size, std::vector<unsigned short>& out);
  // Bytes of an unfinished sequence held back (0 to 2): at the end of the
  // input they are an incomplete sequence, which the decoder drops.
  size_t Held() const { return m_held.size(); }

 private:
  std::vector<unsigned char> m_held;
  std::vector<unsigned char> m_work;
};

// 16-bit characters to UTF-8 with the library's encoder, in blocks whose
// sizes stay far from the int limits of its interface.
bool EncodeUtf8(const unsigned short* units, size_t count, const ByteSink& sink);

// Plain text to an HTML page (OvraPlainToHtml), streamed: the page's head is
// given before the first text, its tail by Finish. A zero character is text
// like any other (the library's conversion stops at one, so the text is cut
// there and the zero passed through). False on a failed allocation or when
// the sink stops.
class PlainToHtmlStream {
 public:
  explicit PlainToHtmlStream(UnitSink sink) : m_sink(std::move(sink)) {}
  bool Add(const unsigned short* units, size_t count);
  bool Finish();

 private:
  bool Start();
  bool ConvertPiece(const unsigned short* units, size_t count);

  UnitSink m_sink;
  std::vector<unsigned short> m_head, m_tail;
  bool m_started = false;
  bool m_heldCr = false;  // a CR at the end of the last piece, which an LF may pair
};

// HTML to plain text (OvraHtmlToPlain), streamed. The text is cut where no
// tag and no entity is open, so that each part converts as it would within
// the whole; an open tag or entity is carried over to the next part, shrunk
// to what can still decide its fate (a tag longer than "<BR>" or an entity
// longer than "&quot;" can only vanish), so that memory stays bounded
// whatever the input. A zero character is text like any other.
class HtmlToPlainStream {
 public:
  explicit HtmlToPlainStream(UnitSink sink) : m_sink(std::move(sink)) {}
  bool Add(const unsigned short* units, size_t count);
  bool Finish();

 private:
  bool ConvertPiece(const unsigned short* units, size_t count);
  bool Flush(size_t cut);

  UnitSink m_sink;
  std::vector<unsigned short> m_pending;  // text not converted yet
  size_t m_scanned = 0;                   // units of m_pending already scanned
  bool m_inTag = false;
  size_t m_tagStart = 0;
  size_t m_tagLength = 0;                 // units from the "<", that one included
  bool m_inEntity = false;
  size_t m_entityStart = 0;
  std::vector<unsigned short> m_entityText;  // the entity's units after tags are removed
  bool m_entityLong = false;              // longer than any known entity
};

}  // namespace ovratool

#endif
