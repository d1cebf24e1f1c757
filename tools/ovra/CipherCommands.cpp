// CipherCommands.cpp - encrypt and decrypt: DES and RC2 in CBC or ECB mode
// with PKCS #5 padding, and RC4, streaming from a file or standard input to
// standard output with raw keys and IVs given in hexadecimal.
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

// The ciphers the command knows, with the key lengths each accepts.
struct CipherKind {
  const char* name;
  enum { kDes, kRc2, kRc4 } family;
  TBlockCipher::ECipherMode mode;
  size_t minKey;
  size_t maxKey;
};

const CipherKind kCiphers[] = {
    {"des-cbc", CipherKind::kDes, TBlockCipher::eCbc, 8, 8},
    {"des-ecb", CipherKind::kDes, TBlockCipher::eEcb, 8, 8},
    {"rc2-cbc", CipherKind::kRc2, TBlockCipher::eCbc, 1, 128},
    {"rc2-ecb", CipherKind::kRc2, TBlockCipher::eEcb, 1, 128},
    {"rc4", CipherKind::kRc4, TBlockCipher::eCbc, 1, 256},
};

const OptionSpec kSpecs[] = {{"cipher", 0, true},
                             {"key", 0, true},
                             {"iv", 0, true},
                             {"bits", 0, true},
                             {nullptr, 0, false}};

void PrintHelp(const char* command) {
  printf("Usage: ovra %s --cipher NAME --key HEX [--iv HEX] [--bits N] [FILE]\n"
         "%ss FILE (standard input when absent or -) to standard output.\n"
         "NAME is des-cbc, des-ecb, rc2-cbc, rc2-ecb or rc4. Keys and IVs are raw\n"
         "bytes in hexadecimal (no password, no salt): DES takes an 8-byte key, RC2\n"
         "1 to 128 bytes, RC4 1 to 256 bytes. The CBC modes need an 8-byte --iv;\n"
         "ECB and RC4 take none. --bits sets RC2's effective key bits (1 to 1024,\n"
         "default 8 times the key length, at most 1024). Block modes use PKCS #5\n"
         "padding; decryption checks it and fails on a wrong key or damaged data.\n",
         command, strcmp(command, "encrypt") == 0 ? "Encrypt" : "Decrypt");
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
  ParsedArgs args;
  if (!ParseArgs(command, argc, argv, kSpecs, args)) return kExitUsage;
  if (args.help) {
    PrintHelp(command);
    return kExitOk;
  }
  if (!CheckOperandCount(command, args, 1)) return kExitUsage;
  const std::string* cipherName = args.Value("cipher");
  if (!cipherName) {
    Report(command, "missing --cipher (des-cbc, des-ecb, rc2-cbc, rc2-ecb or rc4)");
    return kExitUsage;
  }
  const CipherKind* kind = nullptr;
  for (const CipherKind& candidate : kCiphers) {
    if (*cipherName == candidate.name) kind = &candidate;
  }
  if (!kind) {
    Report(command, "unknown cipher '%s' (des-cbc, des-ecb, rc2-cbc, rc2-ecb or rc4)",
           cipherName->c_str());
    return kExitUsage;
  }
  const std::string* keyText = args.Value("key");
  std::vector<unsigned char> key;
  if (!keyText) {
    Report(command, "missing --key HEX");
    return kExitUsage;
  }
  if (!ParseHex(*keyText, key)) {
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
  std::vector<unsigned char> iv;
  if (needsIv && !ivText) {
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

  const std::string name = args.operands.empty() ? "-" : args.operands[0];
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
