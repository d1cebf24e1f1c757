// CipherCommands.cpp - encrypt and decrypt: DES and RC2 in CBC or ECB mode
// with PKCS #5 padding, and RC4, streaming from a file or standard input to
// standard output with raw keys and IVs given in hexadecimal.
#include <errno.h>
#include <stdio.h>
#include <string.h>

#include <string>
#include <vector>

#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptRcX.h"
#include "ToolCommon.h"

namespace ovratool {
namespace {

// The ciphers the command knows, with the key lengths each accepts and the
// one a key given with -K is fitted to (the cipher's fixed key length in the
// usual "enc" command).
struct CipherKind {
  const char* name;
  enum { kDes, kRc2, kRc4 } family;
  TBlockCipher::ECipherMode mode;
  size_t minKey;
  size_t maxKey;
  size_t fittedKey;
};

const CipherKind kCiphers[] = {
    {"des-cbc", CipherKind::kDes, TBlockCipher::eCbc, 8, 8, 8},
    {"des-ecb", CipherKind::kDes, TBlockCipher::eEcb, 8, 8, 8},
    {"rc2-cbc", CipherKind::kRc2, TBlockCipher::eCbc, 1, 128, 16},
    {"rc2-ecb", CipherKind::kRc2, TBlockCipher::eEcb, 1, 128, 16},
    {"rc2-40-cbc", CipherKind::kRc2, TBlockCipher::eCbc, 5, 5, 5},
    {"rc2-64-cbc", CipherKind::kRc2, TBlockCipher::eCbc, 8, 8, 8},
    {"rc4", CipherKind::kRc4, TBlockCipher::eCbc, 1, 256, 16},
};

// Other spellings of cipher names that the usual "enc" command accepts.
const struct {
  const char* alias;
  const char* name;
} kCipherAliases[] = {{"des", "des-cbc"}, {"rc2", "rc2-cbc"}};

const char kCipherList[] = "des-cbc, des-ecb, rc2-cbc, rc2-ecb, rc2-40-cbc, rc2-64-cbc or rc4";

const OptionSpec kSpecs[] = {{"cipher", 0, true},
                             {"key", 0, true},
                             {"iv", 0, true},
                             {"bits", 0, true},
                             {"K", 'K', true},
                             {"fitted-iv", 0, true, "iv"},
                             {"in", 0, true, "in"},
                             {"out", 0, true, "out"},
                             {"nosalt", 0, false, "nosalt"},
                             {nullptr, 0, false}};

int PrintHelp(const char* command) {
  return Help(command, Format(
      "Usage: ovra %s --cipher NAME --key HEX [--iv HEX] [--bits N] [FILE]\n"
      "       ovra %s -NAME -K HEX [-iv HEX] [-nosalt] [-in FILE] [-out FILE]\n"
      "%ss FILE (standard input when absent or -) to standard output.\n"
      "NAME is des-cbc (or des), des-ecb, rc2-cbc (or rc2), rc2-ecb, rc2-40-cbc,\n"
      "rc2-64-cbc or rc4. Keys and IVs are raw bytes in hexadecimal (no password,\n"
      "no salt): DES takes an 8-byte key, RC2 1 to 128 bytes (rc2-40-cbc 5,\n"
      "rc2-64-cbc 8), RC4 1 to 256 bytes. The CBC modes need an 8-byte --iv;\n"
      "ECB and RC4 take none. --bits sets RC2's effective key bits (1 to 1024,\n"
      "default 8 times the key length, at most 1024). Block modes use PKCS #5\n"
      "padding; decryption checks it and fails on a wrong key or damaged data.\n"
      "The second form takes the options of the usual \"enc\" command with raw\n"
      "keys and gives the same bytes: -K and -iv are fitted to the cipher's\n"
      "length there (16 bytes for rc2-cbc, rc2-ecb and rc4), short ones padded\n"
      "with zero bytes and long ones cut, with a warning; an -iv the cipher does\n"
      "not use is ignored with a warning; -nosalt changes nothing; -in names the\n"
      "input and -out the output file.\n",
      command, command, strcmp(command, "encrypt") == 0 ? "Encrypt" : "Decrypt"));
}

// Reads hexadecimal text into exactly size bytes as the usual "enc" command
// reads -K and -iv: excess digits are ignored and missing ones are zero (with
// a warning each), an odd digit count fills the high half of the last byte.
bool ParseFittedHex(const char* command, const std::string& text, size_t size,
                    std::vector<unsigned char>& out) {
  size_t digits = text.size();
  if (digits > 2 * size) {
    Report(command, "warning: hex string is too long, ignoring excess");
    digits = 2 * size;
  } else if (digits < 2 * size) {
    Report(command, "warning: hex string is too short, padding with zero bytes to length");
  }
  out.assign(size, 0);
  for (size_t i = 0; i < digits; ++i) {
    const char c = text[i];
    int value;
    if (c >= '0' && c <= '9') value = c - '0';
    else if (c >= 'a' && c <= 'f') value = c - 'a' + 10;
    else if (c >= 'A' && c <= 'F') value = c - 'A' + 10;
    else return false;
    out[i / 2] = static_cast<unsigned char>(i % 2 ? out[i / 2] | value : value << 4);
  }
  return true;
}

// Reads input to its end and passes whole blocks through the cipher (in its
// own direction) to the output as they come. What is left in buffer[0, have)
// is the tail short of a whole block, or with holdLast the last 1 to bs bytes,
// so that a decryption can check the padding of the last block. False on a
// read or write error.
bool PassWholeBlocks(const char* command, TBlockCipher& cipher, Input& input, bool holdLast,
                     std::vector<unsigned char>& buffer, size_t& have) {
  const size_t bs = cipher.GetBlockSize();
  buffer.assign(kChunkSize + 2 * bs, 0);
  have = 0;
  for (;;) {
    const size_t got = input.Read(buffer.data() + have, kChunkSize - have);
    if (got == 0) break;
    have += got;
    size_t whole = have / bs * bs;
    if (holdLast && whole == have) whole -= bs;  // keeps 1 to bs bytes back
    if (whole == 0) continue;
    const unsigned done = cipher.ProcessData(buffer.data(), static_cast<unsigned>(whole), false);
    if (!Write(command, buffer.data(), done)) return false;
    memmove(buffer.data(), buffer.data() + whole, have - whole);
    have -= whole;
  }
  return !input.Failed();
}

// Encrypts input with a block cipher, padding the tail.
bool EncryptBlocks(const char* command, TBlockCipher& cipher, Input& input) {
  std::vector<unsigned char> buffer;
  size_t have = 0;
  if (!PassWholeBlocks(command, cipher, input, false, buffer, have)) return false;
  const unsigned done = cipher.EncryptData(buffer.data(), static_cast<unsigned>(have), true);
  return Write(command, buffer.data(), done);
}

// Decrypts input with a block cipher. The last block is held back until the
// input ends, so that its padding can be checked and removed.
bool DecryptBlocks(const char* command, TBlockCipher& cipher, Input& input) {
  const size_t bs = cipher.GetBlockSize();
  std::vector<unsigned char> buffer;
  size_t have = 0;
  if (!PassWholeBlocks(command, cipher, input, true, buffer, have)) return false;
  if (have != bs) {
    Report(command, "bad decrypt: the input is not a whole number of %u-byte blocks",
           static_cast<unsigned>(bs));
    return false;
  }
  cipher.DecryptData(buffer.data(), static_cast<unsigned>(bs), false);
  const size_t pad = buffer[bs - 1];
  bool padOk = pad >= 1 && pad <= bs;
  for (size_t i = bs - (padOk ? pad : 0); padOk && i < bs; ++i) padOk = buffer[i] == pad;
  if (!padOk) {
    Report(command, "bad decrypt: wrong key, IV or damaged data (bad padding)");
    return false;
  }
  return Write(command, buffer.data(), bs - pad);
}

bool StreamRc4(const char* command, TRc4Cipher& cipher, Input& input) {
  std::vector<unsigned char> buffer(kChunkSize);
  for (;;) {
    const size_t got = input.Read(buffer.data(), buffer.size());
    if (got == 0) break;
    cipher.ProcessStream(buffer.data(), static_cast<unsigned>(got));
    if (!Write(command, buffer.data(), got)) return false;
  }
  return !input.Failed();
}

bool RunBlockCipher(const char* command, TBlockCipher& cipher, TBlockCipher::ECipherMode mode,
                    const std::vector<unsigned char>& iv, Input& input) {
  cipher.SetMode(mode);
  cipher.SetIv(iv.empty() ? nullptr : iv.data());
  return cipher.GetOperation() == TCipher::eEncrypt ? EncryptBlocks(command, cipher, input)
                                                    : DecryptBlocks(command, cipher, input);
}

int RunCipher(const char* command, TCipher::ECipherOp op, int argc, char** argv) {
  // "-des-cbc" and the like name the cipher, as in the usual "enc" command.
  std::vector<std::string> rewritten;
  for (int i = 0; i < argc; ++i) {
    std::string arg = argv[i];
    if (i > 0 && arg.size() > 1 && arg[0] == '-' && arg[1] != '-') {
      std::string word = arg.substr(1);
      for (const auto& alias : kCipherAliases) {
        if (word == alias.alias) word = alias.name;
      }
      for (const CipherKind& kind : kCiphers) {
        if (word == kind.name) arg = "--cipher=" + word;
      }
    }
    if (arg == "--") {
      for (; i < argc; ++i) rewritten.push_back(argv[i]);
      break;
    }
    rewritten.push_back(arg);
  }
  std::vector<char*> rewrittenArgv;
  for (std::string& arg : rewritten) rewrittenArgv.push_back(&arg[0]);
  ParsedArgs args;
  if (!ParseArgs(command, static_cast<int>(rewrittenArgv.size()), rewrittenArgv.data(), kSpecs,
                 args))
    return kExitUsage;
  if (args.help) return PrintHelp(command);
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  if (args.Has("in") && !args.operands.empty()) {
    Report(command, "give the input either as FILE or with -in, not both");
    return kExitUsage;
  }
  const std::string* cipherName = args.Value("cipher");
  if (!cipherName) {
    Report(command, "missing --cipher (%s)", kCipherList);
    return kExitUsage;
  }
  const CipherKind* kind = nullptr;
  for (const CipherKind& candidate : kCiphers) {
    if (*cipherName == candidate.name) kind = &candidate;
  }
  for (const auto& alias : kCipherAliases) {
    if (*cipherName == alias.alias) {
      for (const CipherKind& candidate : kCiphers) {
        if (strcmp(alias.name, candidate.name) == 0) kind = &candidate;
      }
    }
  }
  if (!kind) {
    Report(command, "unknown cipher '%s' (%s)", cipherName->c_str(), kCipherList);
    return kExitUsage;
  }
  const std::string* keyText = args.Value("key");
  const std::string* fittedKeyText = args.Value("K");
  std::vector<unsigned char> key;
  if (keyText && fittedKeyText) {
    Report(command, "give the key either with --key or with -K, not both");
    return kExitUsage;
  }
  if (!keyText && !fittedKeyText) {
    Report(command, "missing --key HEX");
    return kExitUsage;
  }
  if (fittedKeyText) {
    if (!ParseFittedHex(command, *fittedKeyText, kind->fittedKey, key)) {
      Report(command, "bad hexadecimal key '%s'", fittedKeyText->c_str());
      return kExitUsage;
    }
  } else if (!ParseHex(*keyText, key)) {
    Report(command, "bad hexadecimal key '%s'", keyText->c_str());
    return kExitUsage;
  }
  if (key.size() < kind->minKey || key.size() > kind->maxKey) {
    if (kind->minKey == kind->maxKey)
      Report(command, "%s needs a key of %u bytes, not %u", kind->name,
             static_cast<unsigned>(kind->minKey), static_cast<unsigned>(key.size()));
    else
      Report(command, "%s needs a key of %u to %u bytes, not %u", kind->name,
             static_cast<unsigned>(kind->minKey), static_cast<unsigned>(kind->maxKey),
             static_cast<unsigned>(key.size()));
    return kExitUsage;
  }
  const bool needsIv = kind->family != CipherKind::kRc4 && kind->mode == TBlockCipher::eCbc;
  const std::string* ivText = args.Value("iv");
  const std::string* fittedIvText = args.Value("fitted-iv");
  std::vector<unsigned char> iv;
  if (ivText && fittedIvText) {
    Report(command, "give the IV either with --iv or with -iv, not both");
    return kExitUsage;
  }
  if (fittedIvText && !needsIv) {
    Report(command, "warning: iv not used by this cipher");
    fittedIvText = nullptr;
  }
  if (needsIv && !ivText && !fittedIvText) {
    Report(command, "%s needs --iv HEX (8 bytes)", kind->name);
    return kExitUsage;
  }
  if (!needsIv && ivText) {
    Report(command, "%s takes no IV", kind->name);
    return kExitUsage;
  }
  if (ivText && (!ParseHex(*ivText, iv) || iv.size() != 8)) {
    Report(command, "bad IV '%s': 8 bytes in hexadecimal expected", ivText->c_str());
    return kExitUsage;
  }
  if (fittedIvText && !ParseFittedHex(command, *fittedIvText, 8, iv)) {
    Report(command, "bad IV '%s': hexadecimal expected", fittedIvText->c_str());
    return kExitUsage;
  }
  long bits = static_cast<long>(key.size() * 8 > 1024 ? 1024 : key.size() * 8);
  if (const std::string* bitsText = args.Value("bits")) {
    if (kind->family != CipherKind::kRc2) {
      Report(command, "--bits applies to RC2 only");
      return kExitUsage;
    }
    if (!ParseNumber(*bitsText, 1, 1024, bits)) {
      Report(command, "bad --bits '%s': a number from 1 to 1024 expected", bitsText->c_str());
      return kExitUsage;
    }
  }
  if (const std::string* outName = args.Value("out")) {
    if (!freopen(outName->c_str(), "wb", stdout)) {
      Report(command, "%s: %s", Quote(*outName).c_str(), strerror(errno));
      return kExitFailure;
    }
  }

  const std::string* inName = args.Value("in");
  const std::string name = inName ? *inName : args.operands.empty() ? "-" : args.operands[0];
  Input input;
  if (!input.Open(command, name)) return kExitFailure;
  const unsigned keyLength = static_cast<unsigned>(key.size());
  bool ok = false;
  if (kind->family == CipherKind::kRc4) {
    TRc4Cipher cipher(op, key.data(), keyLength);
    ok = StreamRc4(command, cipher, input);
  } else if (kind->family == CipherKind::kDes) {
    // On the stack: a cipher made with this program's new would be released
    // by the library's delete through the virtual destructor.
    TDesCipher cipher(op, key.data(), keyLength);
    ok = RunBlockCipher(command, cipher, kind->mode, iv, input);
  } else {
    TRc2Cipher cipher(op, key.data(), keyLength, static_cast<unsigned>(bits));
    ok = RunBlockCipher(command, cipher, kind->mode, iv, input);
  }
  if (!FinishOutput(command)) return kExitFailure;
  return ok ? kExitOk : kExitFailure;
}

}  // namespace

int RunEncrypt(int argc, char** argv) { return RunCipher("encrypt", TCipher::eEncrypt, argc, argv); }

int RunDecrypt(int argc, char** argv) { return RunCipher("decrypt", TCipher::eDecrypt, argc, argv); }

}  // namespace ovratool
