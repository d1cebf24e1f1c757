// DigestCommands.cpp - md4, md5, sha1, hmac and checksum: digests of files
// and standard input, read in chunks so that memory stays constant.
#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "OvraCrypt.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "ToolCommon.h"

namespace ovratool {
namespace {

// Whether a name needs the escapes of the usual checksum listings: a
// backslash, a line feed or a carriage return in it.
bool NeedsEscape(const std::string& name) {
  return name.find_first_of("\\\n\r") != std::string::npos;
}

// The name with those three characters escaped as "\\", "\n" and "\r".
std::string EscapeName(const std::string& name) {
  std::string escaped;
  for (char c : name) {
    switch (c) {
      case '\\': escaped += "\\\\"; break;
      case '\n': escaped += "\\n"; break;
      case '\r': escaped += "\\r"; break;
      default: escaped += c; break;
    }
  }
  return escaped;
}

// A line as the usual checksum listings print it: a name holding a
// backslash, a line feed or a carriage return starts the line with "\" and
// is escaped, so that every entry stays on one line and can be read back.
// binary marks the name with "*" instead of a space.
std::string ListingLine(const std::string& digest, const std::string& name, bool binary = false) {
  const bool escape = NeedsEscape(name);
  return (escape ? "\\" : "") + digest + " " + (binary ? "*" : " ") +
         (escape ? EscapeName(name) : name) + "\n";
}

// The same entry in the BSD style: "MD5 (name) = digest".
std::string TagLine(const char* tag, const std::string& digest, const std::string& name) {
  const bool escape = NeedsEscape(name);
  return (escape ? "\\" : "") + std::string(tag) + " (" + (escape ? EscapeName(name) : name) +
         ") = " + digest + "\n";
}

// Feeds every byte of input to update(data, size); false on a read error.
template <typename Update>
bool Stream(Input& input, Update update) {
  std::vector<unsigned char> chunk(kChunkSize);
  for (;;) {
    const size_t got = input.Read(chunk.data(), chunk.size());
    if (got == 0) break;
    update(chunk.data(), static_cast<unsigned>(got));
  }
  return !input.Failed();
}

// The operands, or standard input alone when there are none.
std::vector<std::string> InputNames(const ParsedArgs& args) {
  if (args.operands.empty()) return {"-"};
  return args.operands;
}

// Prints the line that line(text, name) makes for each input named by args,
// text being what sum(input, text) computes of it; an input that cannot be
// opened or read is reported, the others are still listed, and the status
// is then 1.
template <typename Sum, typename Line>
int ListInputs(const char* command, const ParsedArgs& args, Sum sum, Line line) {
  int status = kExitOk;
  for (const std::string& name : InputNames(args)) {
    Input input;
    std::string text;
    if (!input.Open(command, name) || !sum(input, text)) {
      status = kExitFailure;
      continue;
    }
    if (!Write(command, line(text, name))) return kExitFailure;
  }
  return FinishOutput(command) ? status : kExitFailure;
}

// The digest of one input in lower-case hexadecimal; false on a read error.
bool DigestOf(TMessageDigest& digest, Input& input, std::string& text) {
  digest.Reset();
  if (!Stream(input, [&](const unsigned char* data, unsigned size) { digest.Update(data, size); }))
    return false;
  unsigned char out[20];
  text = ToHex(out, digest.Finish(out, sizeof out));
  return true;
}

// Undoes EscapeName over text; false for any other escape or a backslash at
// the end.
bool UnescapeName(const std::string& text, std::string& name) {
  name.clear();
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      name += text[i];
      continue;
    }
    if (++i == text.size()) return false;
    switch (text[i]) {
      case 'n': name += '\n'; break;
      case 'r': name += '\r'; break;
      case '\\': name += '\\'; break;
      default: return false;
    }
  }
  return true;
}

bool IsWhite(char c) { return c == ' ' || c == '\t'; }

bool IsHexText(const std::string& text, size_t digits) {
  if (text.size() != digits) return false;
  for (char c : text) {
    if (!isxdigit(static_cast<unsigned char>(c))) return false;
  }
  return true;
}

// Verifies the listings named by args as the usual "--check" does: every
// line "<hex>  <name>", "<hex> *<name>", "<hex> <name>" (the short form, not
// mixed with the others) or "<TAG> (<name>) = <hex>", a leading "\" meaning
// an escaped name; lines starting with "#" and empty lines are skipped.
class Checker {
 public:
  Checker(const char* command, const char* tag, TMessageDigest& digest, size_t hexDigits)
      : m_command(command), m_tag(tag), m_digest(digest), m_hexDigits(hexDigits) {}

  bool quiet = false;
  bool statusOnly = false;
  bool warn = false;
  bool strict = false;
  bool ignoreMissing = false;

  // Checks one listing; false when anything failed.
  bool CheckListing(const std::string& listing) {
    Input input;
    if (!input.Open(m_command, listing)) return false;
    const bool fromStdin = listing == "-";
    const std::string shown = fromStdin ? "standard input" : listing;
    Counts counts;
    std::string line;
    std::vector<unsigned char> chunk(kChunkSize);
    unsigned long long number = 0;
    bool ok = true;
    for (;;) {
      const size_t got = input.Read(chunk.data(), chunk.size());
      size_t start = 0;
      for (size_t i = 0; i < got; ++i) {
        if (chunk[i] != '\n') continue;
        line.append(reinterpret_cast<const char*>(chunk.data()) + start, i - start);
        if (!CheckLine(line, ++number, shown, fromStdin, counts)) return false;
        line.clear();
        start = i + 1;
      }
      line.append(reinterpret_cast<const char*>(chunk.data()) + start, got - start);
      if (got == 0) break;
    }
    if (input.Failed()) return false;
    if (!line.empty() && !CheckLine(line, ++number, shown, fromStdin, counts)) return false;
    if (counts.proper == 0) {
      Report(m_command, "%s: no properly formatted checksum lines found", Quote(shown).c_str());
      return false;
    }
    if (!statusOnly) {
      if (counts.misformatted)
        Report(m_command, "WARNING: %llu line%s improperly formatted", counts.misformatted,
               counts.misformatted == 1 ? " is" : "s are");
      if (counts.unreadable)
        Report(m_command, "WARNING: %llu listed file%s not be read", counts.unreadable,
               counts.unreadable == 1 ? " could" : "s could");
      if (counts.mismatched)
        Report(m_command, "WARNING: %llu computed checksum%s NOT match", counts.mismatched,
               counts.mismatched == 1 ? " did" : "s did");
      if (ignoreMissing && counts.matched == 0)
        Report(m_command, "%s: no file was verified", Quote(shown).c_str());
    }
    ok = counts.matched > 0 && counts.mismatched == 0 && counts.unreadable == 0 &&
         !(strict && counts.misformatted > 0);
    return ok;
  }

  // False when standard output failed.
  bool OutputFailed() const { return m_outputFailed; }

 private:
  struct Counts {
    unsigned long long proper = 0, misformatted = 0, unreadable = 0, mismatched = 0, matched = 0;
  };

  // Splits a line into its digest text and name; false when it is not a
  // listing line.
  bool Split(const std::string& text, std::string& hex, std::string& name) {
    size_t i = 0;
    while (i < text.size() && IsWhite(text[i])) ++i;
    bool escaped = false;
    if (i < text.size() && text[i] == '\\') {
      ++i;
      escaped = true;
    }
    const std::string tag = m_tag;
    if (text.compare(i, tag.size(), tag) == 0) {
      i += tag.size();
      if (i < text.size() && text[i] == ' ') ++i;
      if (i >= text.size() || text[i] != '(') return false;
      ++i;
      const size_t close = text.rfind(')');
      if (close == std::string::npos || close < i) return false;
      const std::string rawName = text.substr(i, close - i);
      if (escaped ? !UnescapeName(rawName, name) : (name = rawName, false)) return false;
      size_t j = close + 1;
      while (j < text.size() && IsWhite(text[j])) ++j;
      if (j >= text.size() || text[j] != '=') return false;
      ++j;
      while (j < text.size() && IsWhite(text[j])) ++j;
      hex = text.substr(j);
      return IsHexText(hex, m_hexDigits);
    }
    if (text.size() - i < m_hexDigits + 2) return false;
    hex = text.substr(i, m_hexDigits);
    i += m_hexDigits;
    if (!IsWhite(text[i])) return false;
    ++i;
    if (!IsHexText(hex, m_hexDigits)) return false;
    // "<hex> <name>", the short form, cannot be mixed with the usual one in
    // one run: a name could otherwise gain or lose a leading space.
    if (text.size() - i == 1 || (text[i] != ' ' && text[i] != '*')) {
      if (m_shortForm == 0) return false;
      m_shortForm = 1;
    } else if (m_shortForm != 1) {
      m_shortForm = 0;
      ++i;
    }
    const std::string rawName = text.substr(i);
    if (escaped) return UnescapeName(rawName, name);
    name = rawName;
    return true;
  }

  bool CheckLine(std::string line, unsigned long long number, const std::string& shown,
                 bool fromStdin, Counts& counts) {
    if (!line.empty() && line[0] == '#') return true;
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) return true;
    std::string hex, name;
    // A zero byte cannot be part of a file name: such a line is malformed.
    const bool proper = line.find('\0') == std::string::npos && Split(line, hex, name) &&
                        !(fromStdin && name == "-");
    if (!proper) {
      ++counts.misformatted;
      if (warn)
        Report(m_command, "%s: %llu: improperly formatted %s checksum line", Quote(shown).c_str(),
               number, m_tag);
      return true;
    }
    ++counts.proper;
    Input input;
    std::string actual;
    const bool missing = name != "-" && access(name.c_str(), F_OK) != 0 && errno == ENOENT;
    if (ignoreMissing && missing) return true;
    const bool read = input.Open(m_command, name) && DigestOf(m_digest, input, actual);
    // Results name the file as it is, escaped only when it holds a line feed
    // (which would break the line), as the usual checks print them.
    const bool escape = name.find('\n') != std::string::npos;
    const std::string shownName = (escape ? "\\" : "") + (escape ? EscapeName(name) : name);
    if (!read) {
      ++counts.unreadable;
      if (!statusOnly) return Print(shownName + ": FAILED open or read\n");
      return true;
    }
    bool match = true;
    for (size_t k = 0; k < actual.size(); ++k) {
      match = match && tolower(static_cast<unsigned char>(hex[k])) == actual[k];
    }
    if (match) ++counts.matched; else ++counts.mismatched;
    if (!statusOnly && (!match || !quiet))
      return Print(shownName + (match ? ": OK\n" : ": FAILED\n"));
    return true;
  }

  bool Print(const std::string& text) {
    if (Write(m_command, text)) return true;
    m_outputFailed = true;
    return false;
  }

  const char* m_command;
  const char* m_tag;
  TMessageDigest& m_digest;
  size_t m_hexDigits;
  int m_shortForm = -1;  // unknown, 0: the usual form seen, 1: the short form seen
  bool m_outputFailed = false;
};

int RunDigest(const char* command, const char* tag, TMessageDigest& digest, size_t digestBytes,
              int argc, char** argv) {
  static const OptionSpec kSpecs[] = {{"binary", 'b', false}, {"check", 'c', false},
                                      {"tag", 0, false},      {"text", 't', false},
                                      {"ignore-missing", 0, false}, {"quiet", 0, false},
                                      {"status", 0, false},   {"strict", 0, false},
                                      {"warn", 'w', false},   {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command, Format(
        "Usage: ovra %s [OPTION]... [FILE]...\n"
        "Prints or checks %s digests of each FILE (standard input when none is\n"
        "given or for -), as the usual checksum programs do, byte for byte:\n"
        "\"<hex>  <name>\" (\"<hex> *<name>\" with -b), names holding a backslash, a\n"
        "line feed or a carriage return escaped on a line starting with \"\\\".\n"
        "  -b, --binary          mark names with \"*\" (the bytes read are the same)\n"
        "  -t, --text            mark names with a space (the default)\n"
        "      --tag             print BSD-style lines: \"%s (<name>) = <hex>\"\n"
        "  -c, --check           read listings from the FILEs and check the files\n"
        "                        they name: \"<name>: OK\" or \"<name>: FAILED\"\n"
        "With --check:\n"
        "      --ignore-missing  skip listed files that do not exist\n"
        "      --quiet           print nothing for files that are OK\n"
        "      --status          print nothing; the exit status tells\n"
        "      --strict          fail on improperly formatted listing lines\n"
        "  -w, --warn            report improperly formatted listing lines\n"
        "A file that cannot be read is reported and the others are still done;\n"
        "the exit status is then 1, as it is for any failed check.\n",
        command, tag, tag));
  }
  const bool check = args.Has("check");
  bool binary = false, textMode = false;
  Checker checker(command, tag, digest, digestBytes * 2);
  for (size_t i = 0; i < args.names.size(); ++i) {
    const std::string& name = args.names[i];
    if (name == "binary") binary = true, textMode = false;
    if (name == "text") textMode = true, binary = false;
    // The last of --quiet, --status and --warn decides.
    if (name == "quiet") checker.quiet = true, checker.statusOnly = false, checker.warn = false;
    if (name == "status") checker.statusOnly = true, checker.quiet = false, checker.warn = false;
    if (name == "warn") checker.warn = true, checker.quiet = false, checker.statusOnly = false;
    if (name == "strict") checker.strict = true;
    if (name == "ignore-missing") checker.ignoreMissing = true;
  }
  const bool tagged = args.Has("tag");
  if (check && tagged) {
    Report(command, "the --tag option is meaningless when verifying checksums");
    return kExitUsage;
  }
  if (check && (args.Has("binary") || args.Has("text"))) {
    Report(command, "the --binary and --text options are meaningless when verifying checksums");
    return kExitUsage;
  }
  if (tagged && textMode) {
    Report(command, "--tag does not support --text mode");
    return kExitUsage;
  }
  if (!check) {
    for (const char* only : {"ignore-missing", "quiet", "status", "strict", "warn"}) {
      if (args.Has(only)) {
        Report(command, "the --%s option is meaningful only when verifying checksums", only);
        return kExitUsage;
      }
    }
  }
  if (check) {
    int status = kExitOk;
    for (const std::string& listing : InputNames(args)) {
      if (!checker.CheckListing(listing)) status = kExitFailure;
      if (checker.OutputFailed()) return kExitFailure;
    }
    return FinishOutput(command) ? status : kExitFailure;
  }
  return ListInputs(
      command, args,
      [&](Input& input, std::string& text) { return DigestOf(digest, input, text); },
      [&](const std::string& text, const std::string& name) {
        return tagged ? TagLine(tag, text, name) : ListingLine(text, name, binary);
      });
}

}  // namespace

int RunMd4(int argc, char** argv) {
  TMd4Digest digest;
  return RunDigest("md4", "MD4", digest, 16, argc, argv);
}

int RunMd5(int argc, char** argv) {
  TMd5Digest digest;
  return RunDigest("md5", "MD5", digest, 16, argc, argv);
}

int RunSha1(int argc, char** argv) {
  TShaDigest digest;
  return RunDigest("sha1", "SHA1", digest, 20, argc, argv);
}

int RunHmac(int argc, char** argv) {
  const char* command = "hmac";
  static const OptionSpec kSpecs[] = {
      {"digest", 0, true}, {"key", 0, true}, {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra hmac --digest md5|sha1 --key HEX [FILE]\n"
                "Prints the HMAC (RFC 2104) of FILE (standard input when absent or -)\n"
                "under the key given in hexadecimal, as \"<hex>  <name>\".\n"
                "md4 is accepted as a digest as well.\n");
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  const std::string* digestName = args.Value("digest");
  const std::string* keyText = args.Value("key");
  if (!digestName) {
    Report(command, "missing --digest (md5 or sha1)");
    return kExitUsage;
  }
  if (!keyText) {
    Report(command, "missing --key HEX");
    return kExitUsage;
  }
  std::vector<unsigned char> key;
  if (!ParseHex(*keyText, key)) {
    Report(command, "bad hexadecimal key '%s'", keyText->c_str());
    return kExitUsage;
  }
  TMd4Digest md4;
  TMd5Digest md5;
  TShaDigest sha1;
  TMessageDigest* digest = nullptr;
  if (*digestName == "md5") digest = &md5;
  else if (*digestName == "sha1") digest = &sha1;
  else if (*digestName == "md4") digest = &md4;
  if (!digest) {
    Report(command, "unknown digest '%s' (md5 or sha1)", digestName->c_str());
    return kExitUsage;
  }
  const std::string name = args.operands.empty() ? "-" : args.operands[0];
  Input input;
  if (!input.Open(command, name)) return kExitFailure;
  THmac hmac(*digest, key.data(), static_cast<unsigned>(key.size()));
  // An empty update first, so that an empty message gets its true MAC.
  hmac.Update(nullptr, 0);
  if (!Stream(input, [&](const unsigned char* data, unsigned size) { hmac.Update(data, size); }))
    return kExitFailure;
  unsigned char out[20];
  const unsigned size = hmac.Finish(out, sizeof out);
  if (!Write(command, ListingLine(ToHex(out, size), name))) return kExitFailure;
  return FinishOutput(command) ? kExitOk : kExitFailure;
}

int RunChecksum(int argc, char** argv) {
  const char* command = "checksum";
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    return Help(command,
                "Usage: ovra checksum [FILE...]\n"
                "Prints the Internet checksum (RFC 1071: the one's complement of the\n"
                "one's complement sum of the big-endian 16-bit words, an odd last byte\n"
                "padded with zero) of each FILE (standard input when none is given or\n"
                "for -) as four hexadecimal digits, \"<hex>  <name>\".\n");
  }
  return ListInputs(command, args, [&](Input& input, std::string& text) {
    TInetChecksum checksum;
    if (!Stream(input, [&](const unsigned char* data, unsigned size) { checksum.Update(data, size); }))
      return false;
    char hex[8];
    snprintf(hex, sizeof hex, "%04x", static_cast<unsigned>(checksum.Finish()));
    text = hex;
    return true;
  }, [](const std::string& text, const std::string& name) { return ListingLine(text, name); });
}

}  // namespace ovratool
