// EncodingCommands.cpp - base64, html2text, text2html and utf8: the text and
// data encodings of the library applied to files or standard input, streamed
// so that memory stays bounded whatever the size of the input.
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraBstr.h"
#include "OvraCrypt.h"
#include "TextStreams.h"
#include "ToolCommon.h"

namespace ovratool {
namespace {

// --- Base64 ------------------------------------------------------------------

// The line length of encoded text unless --wrap says otherwise.
constexpr unsigned long long kDefaultWrap = 76;

bool IsBase64Letter(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '/';
}

// Writes text broken into lines of wrap characters (0: one line), column
// being the length of the line already written.
bool WriteWrapped(const char* command, const char* text, size_t size, unsigned long long wrap,
                  unsigned long long& column) {
  if (wrap == 0) return Write(command, text, size);
  while (size > 0) {
    if (column == wrap) {
      if (!Write(command, "\n", 1)) return false;
      column = 0;
    }
    const unsigned long long room = wrap - column;
    const size_t n = room < size ? static_cast<size_t>(room) : size;
    if (!Write(command, text, n)) return false;
    column += n;
    text += n;
    size -= n;
  }
  return true;
}

bool EncodeBase64(const char* command, Input& input, unsigned long long wrap) {
  constexpr size_t kGroupBytes = 3 * 16384;  // whole groups of three per call
  std::vector<unsigned char> data(kGroupBytes + kChunkSize);
  std::vector<char> text(4 * (data.size() / 3 + 1) + 1);
  size_t have = 0;
  unsigned long long column = 0;
  for (;;) {
    const size_t got = input.Read(data.data() + have, kChunkSize);
    have += got;
    const bool end = got == 0;
    const size_t take = end ? have : have / 3 * 3;
    if (take > 0) {
      const unsigned written =
          OvraBinToBase64(data.data(), static_cast<int>(take), text.data());
      if (!WriteWrapped(command, text.data(), written, wrap, column)) return false;
      memmove(data.data(), data.data() + take, have - take);
      have -= take;
    }
    if (end) break;
  }
  if (input.Failed()) return false;
  // The last line ends with a line feed, unless there is no line at all.
  return wrap == 0 || column == 0 || Write(command, "\n", 1);
}

// Base64 text decoded as the usual command-line tool decodes it: line feeds
// are ignored anywhere; the text is read in groups of four characters, each
// either four letters, three letters and "=", or two letters and "=="; the
// first group that is none of these (any other character, a zero byte or a
// carriage return among them) or an unfinished group at the end ends the
// decoding with an error, after the bytes its leading letters make. With
// ignoreGarbage, every character but the letters and "=" is left out first.
class Base64Decoder {
 public:
  Base64Decoder(const char* command, bool ignoreGarbage)
      : m_command(command), m_ignoreGarbage(ignoreGarbage) {}

  // Decodes one piece of input; false when the text is invalid (reported)
  // or output fails.
  bool Add(const unsigned char* data, size_t size) {
    for (size_t i = 0; i < size; ++i) {
      const unsigned char c = data[i];
      if (c == '\n') continue;
      if (m_ignoreGarbage && !IsBase64Letter(c) && c != '=') continue;
      m_text.push_back(static_cast<char>(c));
    }
    size_t good = 0;  // characters of whole, valid groups
    bool bad = false;
    while (m_text.size() - good >= 4) {
      if (!ValidGroup(m_text.data() + good)) {
        bad = true;
        break;
      }
      good += 4;
    }
    if (!DecodeGroups(good)) return false;
    if (bad) return Fail(4);
    return true;
  }

  // The end of the input: an unfinished group is an error.
  bool Finish() { return m_text.empty() || Fail(m_text.size()); }

 private:
  static bool ValidGroup(const char* g) {
    const unsigned char a = g[0], b = g[1], c = g[2], d = g[3];
    if (!IsBase64Letter(a) || !IsBase64Letter(b)) return false;
    if (c == '=') return d == '=';
    return IsBase64Letter(c) && (d == '=' || IsBase64Letter(d));
  }

  // Decodes the first count characters of the text (whole valid groups) with
  // the library and drops them from the text.
  bool DecodeGroups(size_t count) {
    if (count == 0) return true;
    std::string groups = m_text.substr(0, count);
    m_data.resize(count / 4 * 3);
    const int written = OvraBase64ToBin(groups.c_str(), m_data.data());
    m_text.erase(0, count);
    if (written <= 0) {
      Report(m_command, "invalid input");
      return false;
    }
    return Write(m_command, m_data.data(), static_cast<size_t>(written));
  }

  // The bad or unfinished group of length characters at the start of the
  // text: the bytes of its leading letters, as far as they make whole
  // bytes, are written, then the error is reported.
  bool Fail(size_t length) {
    const char* g = m_text.data();
    size_t letters = 0;
    while (letters < length && letters < 3 && IsBase64Letter(static_cast<unsigned char>(g[letters])))
      ++letters;
    if (letters >= 2) {
      char group[5] = {g[0], g[1], letters == 3 ? g[2] : '=', '=', 0};
      unsigned char bytes[3];
      const int written = OvraBase64ToBin(group, bytes);
      if (written > 0 && !Write(m_command, bytes, static_cast<size_t>(written))) return false;
    }
    Report(m_command, "invalid input");
    return false;
  }

  const char* m_command;
  bool m_ignoreGarbage;
  std::string m_text;  // characters not decoded yet, line feeds left out
  std::vector<unsigned char> m_data;
};

bool DecodeBase64(const char* command, Input& input, bool ignoreGarbage) {
  Base64Decoder decoder(command, ignoreGarbage);
  std::vector<unsigned char> chunk(kChunkSize);
  for (;;) {
    const size_t got = input.Read(chunk.data(), chunk.size());
    if (got == 0) break;
    if (!decoder.Add(chunk.data(), got)) return false;
  }
  if (input.Failed()) return false;
  return decoder.Finish();
}

// --- UTF-8 and the HTML conversions ------------------------------------------

// Reads input to its end, decoding UTF-8 into 16-bit characters handed to
// take(units, count) chunk by chunk. An unfinished sequence at the end is
// reported: it would otherwise vanish without a trace.
template <typename Take>
bool ReadUtf8(const char* command, Input& input, Take take) {
  std::vector<unsigned char> chunk(kChunkSize);
  std::vector<unsigned short> units;
  Utf8Decoder decoder;
  for (;;) {
    const size_t got = input.Read(chunk.data(), chunk.size());
    if (got == 0) break;
    units.clear();
    decoder.Decode(chunk.data(), got, units);
    if (!take(units.data(), units.size())) return false;
  }
  if (input.Failed()) return false;
  if (decoder.Held() > 0) {
    Report(command, "invalid input: an unfinished UTF-8 sequence at the end");
    return false;
  }
  return true;
}

int RunHtmlConversion(const char* command, bool toText, int argc, char** argv) {
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                toText
                    ? "Usage: ovra html2text [FILE]\n"
                      "Prints the UTF-8 HTML of FILE (standard input when absent or -) as plain\n"
                      "text: tags are dropped, <BR> becomes a CR LF line break, and &amp; &lt;\n"
                      "&gt; &quot; become their characters (other entities vanish, and so does\n"
                      "the rest of the text after an \"&\" that no \";\" closes). A zero byte\n"
                      "is text like any other. Any size of input is converted in bounded memory.\n"
                    : "Usage: ovra text2html [FILE]\n"
                      "Prints the UTF-8 text of FILE (standard input when absent or -) as an\n"
                      "HTML page: & < > \" become entities and each CR LF pair becomes <BR>.\n"
                      "A zero byte is text like any other. Any size of input is converted in\n"
                      "bounded memory.\n");
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  Input input;
  if (!input.Open(command, args.operands.empty() ? "-" : args.operands[0])) return kExitFailure;
  bool writeFailed = false;
  const UnitSink sink = [&](const unsigned short* units, size_t count) {
    const bool ok = EncodeUtf8(units, count, [&](const char* data, size_t size) {
      return Write(command, data, size);
    });
    if (!ok) writeFailed = true;
    return ok;
  };
  // A stream that fails without a write error lost an allocation in the library.
  bool outOfMemory = false;
  auto convert = [&](auto& stream) {
    const bool read = ReadUtf8(command, input, [&](const unsigned short* u, size_t n) {
      if (stream.Add(u, n)) return true;
      outOfMemory = !writeFailed;
      return false;
    });
    if (!read && (writeFailed || outOfMemory || input.Failed())) return false;
    // Even after an unfinished sequence was reported, the page gets its end.
    if (!stream.Finish()) {
      outOfMemory = !writeFailed;
      return false;
    }
    return read;
  };
  bool ok;
  if (toText) {
    HtmlToPlainStream stream(sink);
    ok = convert(stream);
  } else {
    PlainToHtmlStream stream(sink);
    ok = convert(stream);
  }
  if (outOfMemory) Report(command, "out of memory");
  if (!FinishOutput(command)) return kExitFailure;
  return ok ? kExitOk : kExitFailure;
}

}  // namespace

int RunBase64(int argc, char** argv) {
  const char* command = "base64";
  static const OptionSpec kSpecs[] = {{"decode", 'd', false},
                                      {"ignore-garbage", 'i', false},
                                      {"wrap", 'w', true},
                                      {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra base64 [OPTION]... [FILE]\n"
                "Base64 encodes or decodes FILE (standard input when absent or -) to\n"
                "standard output, as the usual base64 command does, byte for byte.\n"
                "  -d, --decode          decode data\n"
                "  -i, --ignore-garbage  when decoding, ignore non-alphabet characters\n"
                "  -w, --wrap=COLS       wrap encoded lines after COLS characters\n"
                "                        (default 76); 0 disables line wrapping\n"
                "Encoded text ends with a line feed unless wrapping is disabled or the\n"
                "input is empty. Decoding ignores line feeds; any other character outside\n"
                "the alphabet (a carriage return or a zero byte too) is invalid input\n"
                "unless -i is given. \"=\" pads the end of a group of four: \"xx==\" or\n"
                "\"xxx=\". Invalid input is reported and gives status 1, after the bytes\n"
                "decoded before it.\n");
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  unsigned long long wrap = kDefaultWrap;
  if (const std::string* text = args.Value("wrap")) {
    if (!ParseCount(*text, wrap)) {
      Report(command, "invalid wrap size: '%s'", text->c_str());
      return kExitUsage;
    }
  }
  Input input;
  if (!input.Open(command, args.operands.empty() ? "-" : args.operands[0])) return kExitFailure;
  const bool ok = args.Has("decode") ? DecodeBase64(command, input, args.Has("ignore-garbage"))
                                     : EncodeBase64(command, input, wrap);
  if (!FinishOutput(command)) return kExitFailure;
  return ok ? kExitOk : kExitFailure;
}

int RunHtmlToText(int argc, char** argv) { return RunHtmlConversion("html2text", true, argc, argv); }

int RunTextToHtml(int argc, char** argv) { return RunHtmlConversion("text2html", false, argc, argv); }

int RunUtf8(int argc, char** argv) {
  const char* command = "utf8";
  static const OptionSpec kSpecs[] = {{"to", 0, true}, {"from", 0, true}, {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra utf8 --to ENCODING [FILE]\n"
                "       ovra utf8 --from ENCODING [FILE]\n"
                "Converts FILE (standard input when absent or -) from UTF-8 to ENCODING,\n"
                "or from ENCODING to UTF-8. ENCODING is utf16le, utf16be (no byte order\n"
                "mark) or latin1 (ISO-8859-1; characters beyond it become \"?\"). Text is\n"
                "16-bit inside: characters beyond U+FFFF are not supported, and UTF-8 is\n"
                "decoded without validation; an unfinished sequence at the end, or an odd\n"
                "number of bytes of UTF-16, is reported (status 1) after the rest is\n"
                "converted. Any size of input is converted in bounded memory.\n");
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  const std::string* to = args.Value("to");
  const std::string* from = args.Value("from");
  if ((to != nullptr) == (from != nullptr)) {
    Report(command, "give exactly one of --to and --from");
    return kExitUsage;
  }
  const std::string& encoding = to ? *to : *from;
  if (encoding != "utf16le" && encoding != "utf16be" && encoding != "latin1") {
    Report(command, "unknown encoding '%s' (utf16le, utf16be or latin1)", encoding.c_str());
    return kExitUsage;
  }
  Input input;
  if (!input.Open(command, args.operands.empty() ? "-" : args.operands[0])) return kExitFailure;
  const bool little = encoding == "utf16le";
  const bool latin1 = encoding == "latin1";
  std::vector<char> bytes;
  bool ok = true;
  if (to) {
    ok = ReadUtf8(command, input, [&](const unsigned short* units, size_t count) {
      bytes.resize(latin1 ? count : 2 * count);
      if (latin1) {
        // Blocks far below the int limit of the library's interface.
        for (size_t done = 0; done < count;) {
          const size_t n = count - done < kChunkSize ? count - done : kChunkSize;
          OvraUnicodeToMultibyte(units + done, static_cast<int>(n), bytes.data() + done,
                                 static_cast<int>(n));
          done += n;
        }
      } else {
        for (size_t i = 0; i < count; ++i) {
          const char low = static_cast<char>(units[i] & 0xFF);
          const char high = static_cast<char>(units[i] >> 8);
          bytes[2 * i] = little ? low : high;
          bytes[2 * i + 1] = little ? high : low;
        }
      }
      return Write(command, bytes.data(), bytes.size());
    });
  } else {
    std::vector<unsigned char> chunk(kChunkSize + 1);
    std::vector<unsigned short> units;
    const ByteSink sink = [&](const char* data, size_t size) { return Write(command, data, size); };
    size_t have = 0;  // a byte of UTF-16 waiting for its pair
    for (;;) {
      const size_t got = input.Read(chunk.data() + have, kChunkSize);
      if (got == 0) break;
      const size_t total = have + got;
      if (latin1) {
        units.resize(total);
        OvraMultibyteToUnicode(reinterpret_cast<const char*>(chunk.data()),
                               static_cast<int>(total), units.data(), static_cast<int>(total));
        have = 0;
      } else {
        units.resize(total / 2);
        for (size_t i = 0; i + 1 < total; i += 2) {
          const unsigned first = chunk[i];
          const unsigned second = chunk[i + 1];
          units[i / 2] = static_cast<unsigned short>(little ? first | second << 8
                                                            : first << 8 | second);
        }
        have = total % 2;
        if (have) chunk[0] = chunk[total - 1];
      }
      if (!EncodeUtf8(units.data(), units.size(), sink)) {
        ok = false;
        break;
      }
    }
    if (ok && input.Failed()) ok = false;
    if (ok && have) {
      Report(command, "invalid UTF-16 input: an odd number of bytes");
      ok = false;
    }
  }
  if (!FinishOutput(command)) return kExitFailure;
  return ok ? kExitOk : kExitFailure;
}

}  // namespace ovratool
