// EncodingCommands.cpp - base64, html2text, text2html and utf8: the text and
// data encodings of the library applied to files or standard input.
#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraBstr.h"
#include "OvraCrypt.h"
#include "ToolCommon.h"

namespace ovratool {
namespace {

// The largest input the whole-text commands accept: their conversions count
// in ints, and a 16-bit copy of the text has to fit beside it.
constexpr size_t kMaxWholeInput = 0x10000000;  // 256 MiB

bool EncodeBase64(const char* command, Input& input) {
  constexpr size_t kGroupBytes = 3 * 16384;  // whole groups of three per call
  std::vector<unsigned char> data(kGroupBytes + kChunkSize);
  std::vector<char> text(4 * (data.size() / 3 + 1) + 1);
  size_t have = 0;
  for (;;) {
    const size_t got = input.Read(data.data() + have, kChunkSize);
    have += got;
    const bool end = got == 0;
    const size_t take = end ? have : have / 3 * 3;
    if (take > 0) {
      const unsigned written =
          OvraBinToBase64(data.data(), static_cast<int>(take), text.data());
      if (!Write(command, text.data(), written)) return false;
      memmove(data.data(), data.data() + take, have - take);
      have -= take;
    }
    if (end) break;
  }
  return !input.Failed();
}

bool DecodeBase64(const char* command, Input& input) {
  std::vector<unsigned char> chunk(kChunkSize);
  std::string text;  // characters not yet decoded, line breaks left out
  std::vector<unsigned char> data(3 * (kChunkSize / 4 + 2));
  for (;;) {
    const size_t got = input.Read(chunk.data(), chunk.size());
    for (size_t i = 0; i < got; ++i) {
      if (chunk[i] != '\n' && chunk[i] != '\r') text += static_cast<char>(chunk[i]);
    }
    const size_t take = got == 0 ? text.size() : text.size() / 4 * 4;
    if (take > 0) {
      if (take % 4 != 0) {
        Report(command, "invalid input: truncated Base64 text");
        return false;
      }
      const std::string group = text.substr(0, take);
      if (data.size() < take / 4 * 3) data.resize(take / 4 * 3);
      const int written = OvraBase64ToBin(group.c_str(), data.data());
      if (written <= 0) {
        Report(command, "invalid input: not Base64 text");
        return false;
      }
      if (!Write(command, data.data(), static_cast<size_t>(written))) return false;
      text.erase(0, take);
    }
    if (got == 0) break;
  }
  return !input.Failed();
}

// Decodes UTF-8 into 16-bit text; reports and returns false when the text is
// too long for the library's strings.
bool Utf8ToWide(const char* command, const std::string& bytes, std::vector<unsigned short>& wide) {
  if (bytes.size() > kMaxWholeInput) {
    Report(command, "input too large (at most %u bytes)", static_cast<unsigned>(kMaxWholeInput));
    return false;
  }
  wide.assign(bytes.size() + 1, 0);
  const int count = OvraUtf8ToString(bytes.data(), static_cast<int>(bytes.size()), wide.data(),
                                     static_cast<int>(bytes.size()));
  wide.resize(static_cast<size_t>(count));
  return true;
}

// Encodes count 16-bit characters as UTF-8 onto standard output.
bool WriteUtf8(const char* command, const unsigned short* text, size_t count) {
  if (count == 0) return true;
  // Three bytes at most per character, and two of slack the encoder may touch.
  std::vector<char> out(3 * count + 3);
  const int written = OvraStringToUtf8(text, static_cast<int>(count), out.data(),
                                       static_cast<int>(3 * count));
  return Write(command, out.data(), static_cast<size_t>(written));
}

int RunHtmlConversion(const char* command, bool toText, int argc, char** argv) {
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    if (toText)
      printf("Usage: ovra html2text [FILE]\n"
             "Prints the UTF-8 HTML of FILE (standard input when absent or -) as plain\n"
             "text: tags are dropped, <BR> becomes a CR LF line break, and &amp; &lt;\n"
             "&gt; &quot; become their characters (other entities vanish).\n");
    else
      printf("Usage: ovra text2html [FILE]\n"
             "Prints the UTF-8 text of FILE (standard input when absent or -) as an\n"
             "HTML page: & < > \" become entities and each CR LF pair becomes <BR>.\n");
    return kExitOk;
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  std::string bytes;
  if (!ReadAll(command, args.operands.empty() ? "-" : args.operands[0], bytes))
    return kExitFailure;
  std::vector<unsigned short> wide;
  if (!Utf8ToWide(command, bytes, wide)) return kExitFailure;
  wide.push_back(0);
  TBstr out;
  if (toText)
    OvraHtmlToPlain(wide.data(), out);
  else
    OvraPlainToHtml(wide.data(), out);
  // A page always has its frame, so only a failed allocation leaves it empty;
  // text may be empty for good reason, and a failure cannot be told apart there.
  if (!toText && out.IsEmpty()) {
    Report(command, "out of memory");
    return kExitFailure;
  }
  if (!WriteUtf8(command, out.GetString(), static_cast<size_t>(out.GetLength())))
    return kExitFailure;
  return FinishOutput(command) ? kExitOk : kExitFailure;
}

}  // namespace

int RunBase64(int argc, char** argv) {
  const char* command = "base64";
  static const OptionSpec kSpecs[] = {{"decode", 'd', false}, {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    printf("Usage: ovra base64 [-d|--decode] [FILE]\n"
           "Encodes FILE (standard input when absent or -) as Base64 on one line with\n"
           "no line break at the end, or with -d decodes Base64 text, line breaks\n"
           "ignored. Padding is accepted leniently: \"=\" may end any group.\n");
    return kExitOk;
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  Input input;
  if (!input.Open(command, args.operands.empty() ? "-" : args.operands[0])) return kExitFailure;
  const bool ok = args.Has("decode") ? DecodeBase64(command, input) : EncodeBase64(command, input);
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
    printf("Usage: ovra utf8 --to ENCODING [FILE]\n"
           "       ovra utf8 --from ENCODING [FILE]\n"
           "Converts FILE (standard input when absent or -) from UTF-8 to ENCODING,\n"
           "or from ENCODING to UTF-8. ENCODING is utf16le, utf16be (no byte order\n"
           "mark) or latin1 (ISO-8859-1; characters beyond it become \"?\"). Text is\n"
           "16-bit inside: characters beyond U+FFFF are not supported, and UTF-8 is\n"
           "decoded without validation.\n");
    return kExitOk;
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
  std::string bytes;
  if (!ReadAll(command, args.operands.empty() ? "-" : args.operands[0], bytes))
    return kExitFailure;
  if (bytes.size() > kMaxWholeInput) {
    Report(command, "input too large (at most %u bytes)", static_cast<unsigned>(kMaxWholeInput));
    return kExitFailure;
  }
  bool ok = true;
  if (to) {
    std::vector<unsigned short> wide;
    if (!Utf8ToWide(command, bytes, wide)) return kExitFailure;
    std::string out;
    if (encoding == "latin1") {
      out.assign(wide.size() + 1, '\0');
      const int written = OvraUnicodeToMultibyte(wide.data(), static_cast<int>(wide.size()),
                                                 &out[0], static_cast<int>(out.size()));
      out.resize(wide.empty() ? 0 : static_cast<size_t>(written));
    } else {
      const bool little = encoding == "utf16le";
      for (unsigned short ch : wide) {
        const char low = static_cast<char>(ch & 0xFF);
        const char high = static_cast<char>(ch >> 8);
        out += little ? low : high;
        out += little ? high : low;
      }
    }
    ok = Write(command, out);
  } else {
    std::vector<unsigned short> wide;
    if (encoding == "latin1") {
      wide.assign(bytes.size() + 1, 0);
      const int count = bytes.empty() ? 0
                        : OvraMultibyteToUnicode(bytes.data(), static_cast<int>(bytes.size()),
                                                 wide.data(), static_cast<int>(wide.size()));
      wide.resize(static_cast<size_t>(count));
    } else {
      if (bytes.size() % 2 != 0) {
        Report(command, "invalid UTF-16 input: an odd number of bytes");
        return kExitFailure;
      }
      const bool little = encoding == "utf16le";
      for (size_t i = 0; i < bytes.size(); i += 2) {
        const unsigned first = static_cast<unsigned char>(bytes[i]);
        const unsigned second = static_cast<unsigned char>(bytes[i + 1]);
        wide.push_back(static_cast<unsigned short>(little ? first | second << 8
                                                          : first << 8 | second));
      }
    }
    ok = WriteUtf8(command, wide.data(), wide.size());
  }
  if (!FinishOutput(command)) return kExitFailure;
  return ok ? kExitOk : kExitFailure;
}

}  // namespace ovratool
