// DigestCommands.cpp - md4, md5, sha1, hmac and checksum: digests of files
// and standard input, read in chunks so that memory stays constant.
#include <stdio.h>

#include <string>
#include <vector>

#include "OvraCrypt.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "ToolCommon.h"

namespace ovratool {
namespace {

// A name as the usual checksum listings print it: a line holding a backslash,
// a line feed or a carriage return in its name starts with "\" and has them
// escaped, so that every entry stays on one line and can be read back.
std::string ListingLine(const std::string& digest, const std::string& name) {
  std::string escaped;
  bool needsEscape = false;
  for (char c : name) {
    switch (c) {
      case '\\': escaped += "\\\\"; needsEscape = true; break;
      case '\n': escaped += "\\n"; needsEscape = true; break;
      case '\r': escaped += "\\r"; needsEscape = true; break;
      default: escaped += c; break;
    }
  }
  return (needsEscape ? "\\" : "") + digest + "  " + escaped + "\n";
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

// Prints one listing line per input named by args, with the text that
// sum(input, text) makes of it; an input that cannot be opened or read is
// reported, the others are still listed, and the status is then 1.
template <typename Sum>
int ListInputs(const char* command, const ParsedArgs& args, Sum sum) {
  int status = kExitOk;
  for (const std::string& name : InputNames(args)) {
    Input input;
    std::string text;
    if (!input.Open(command, name) || !sum(input, text)) {
      status = kExitFailure;
      continue;
    }
    if (!Write(command, ListingLine(text, name))) return kExitFailure;
  }
  return FinishOutput(command) ? status : kExitFailure;
}

int RunDigest(const char* command, TMessageDigest& digest, int argc, char** argv) {
  static const OptionSpec kSpecs[] = {{nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    printf("Usage: ovra %s [FILE...]\n"
           "Prints the %s digest of each FILE (standard input when none is given\n"
           "or for -) as \"<hex>  <name>\", the format of the usual checksum listings.\n"
           "A file that cannot be read is reported and the others are still listed;\n"
           "the exit status is then 1.\n",
           command, command);
    return kExitOk;
  }
  return ListInputs(command, args, [&](Input& input, std::string& text) {
    digest.Reset();
    if (!Stream(input, [&](const unsigned char* data, unsigned size) { digest.Update(data, size); }))
      return false;
    unsigned char out[20];
    text = ToHex(out, digest.Finish(out, sizeof out));
    return true;
  });
}

}  // namespace

int RunMd4(int argc, char** argv) {
  TMd4Digest digest;
  return RunDigest("md4", digest, argc, argv);
}

int RunMd5(int argc, char** argv) {
  TMd5Digest digest;
  return RunDigest("md5", digest, argc, argv);
}

int RunSha1(int argc, char** argv) {
  TShaDigest digest;
  return RunDigest("sha1", digest, argc, argv);
}

int RunHmac(int argc, char** argv) {
  const char* command = "hmac";
  static const OptionSpec kSpecs[] = {
      {"digest", 0, true}, {"key", 0, true}, {nullptr, 0, false}};
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    printf("Usage: ovra hmac --digest md5|sha1 --key HEX [FILE]\n"
           "Prints the HMAC (RFC 2104) of FILE (standard input when absent or -)\n"
           "under the key given in hexadecimal, as \"<hex>  <name>\".\n"
           "md4 is accepted as a digest as well.\n");
    return kExitOk;
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
    printf("Usage: ovra checksum [FILE...]\n"
           "Prints the Internet checksum (RFC 1071: the one's complement of the\n"
           "one's complement sum of the big-endian 16-bit words, an odd last byte\n"
           "padded with zero) of each FILE (standard input when none is given or\n"
           "for -) as four hexadecimal digits, \"<hex>  <name>\".\n");
    return kExitOk;
  }
  return ListInputs(command, args, [&](Input& input, std::string& text) {
    TInetChecksum checksum;
    if (!Stream(input, [&](const unsigned char* data, unsigned size) { checksum.Update(data, size); }))
      return false;
    char hex[8];
    snprintf(hex, sizeof hex, "%04x", static_cast<unsigned>(checksum.Finish()));
    text = hex;
    return true;
  });
}

}  // namespace ovratool
