// ovra_crypto - digests, HMAC, DES and RC4, Base64, the Internet checksum,
// random bytes and the modular exponentiation behind RSA, each checked
// against a published value. Exit status 1 if any result differs.
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "Ovra.h"
#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptDigest.h"
#include "OvraCryptHmac.h"
#include "OvraCryptRcX.h"
#include "OvraCryptRsa.h"
#include "OvraRand.h"

namespace {

int g_failures = 0;

const char* Hex(const unsigned char* data, unsigned size) {
  static char text[2 * 64 + 1];
  for (unsigned i = 0; i < size && i < 64; ++i) snprintf(text + 2 * i, 3, "%02x", data[i]);
  text[2 * (size < 64 ? size : 64)] = 0;
  return text;
}

void Show(const char* what, const unsigned char* data, unsigned size, const char* want) {
  const char* got = Hex(data, size);
  const bool ok = strcmp(got, want) == 0;
  printf("%-22s %s%s\n", what, got, ok ? "" : "  <-- unexpected");
  if (!ok) ++g_failures;
}

const unsigned char* Bytes(const char* text) { return reinterpret_cast<const unsigned char*>(text); }

}  // namespace

int main() {
  if (!OvraInitialize(nullptr)) return 1;
  {
    unsigned char out[64];

    // Digests: Update any number of times, then Finish (which resets).
    TMd5Digest md5;
    md5.Update(Bytes("a"), 1);
    md5.Update(Bytes("bc"), 2);
    Show("MD5(\"abc\")", out, md5.Finish(out, sizeof out), "900150983cd24fb0d6963f7d28e17f72");
    TShaDigest sha1;
    sha1.Update(Bytes("abc"), 3);
    Show("SHA-1(\"abc\")", out, sha1.Finish(out, sizeof out),
         "a9993e364706816aba3e25717850c26c9cd0d89d");

    // HMAC over a fresh digest object (RFC 2104's second example).
    TMd5Digest hmacDigest;
    THmac hmac(hmacDigest, Bytes("Jefe"), 4);
    hmac.Update(Bytes("what do ya want for nothing?"), 28);
    Show("HMAC-MD5", out, hmac.Finish(out, sizeof out), "750c783e6ab0b503eaa86e310a5db738");

    // DES in CBC mode through TCrypter: the output buffer needs room for the padding.
    const unsigned char key[8] = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
    const unsigned char iv[8] = {0x12, 0x34, 0x56, 0x78, 0x90, 0xab, 0xcd, 0xef};
    const char* message = "Now is the time for all ";  // 24 bytes: one block of padding
    TDesCipher encryptor(TCipher::eEncrypt, key, 8);
    TCrypter encrypter(encryptor, TBlockCipher::eCbc, iv);
    unsigned char sealed[40];
    const unsigned sealedSize = encrypter.CryptData(Bytes(message), 24, sealed, true);
    Show("DES-CBC, first 24", sealed, 24, "e5c7cdde872bf27c43e934008c389c0f683788499a7c05f6");
    TDesCipher decryptor(TCipher::eDecrypt, key, 8);
    TCrypter decrypter(decryptor, TBlockCipher::eCbc, iv);
    const unsigned opened = decrypter.CryptData(sealed, sealedSize, true);
    printf("%-22s %u bytes back: \"%.*s\"\n", "DES-CBC decrypted", opened,
           static_cast<int>(opened), reinterpret_cast<char*>(sealed));
    if (sealedSize != 32 || opened != 24 || memcmp(sealed, message, 24) != 0) ++g_failures;

    // RC4 (a known keystream test vector).
    TRc4Cipher rc4(TCipher::eEncrypt, Bytes("Key"), 3);
    unsigned char stream[9];
    memcpy(stream, "Plaintext", 9);
    rc4.ProcessData(stream, 9, true);
    Show("RC4(\"Key\", ...)", stream, 9, "bbf316e8d940af0ad3");

    // Base64 and the Internet checksum.
    char text[16];
    OvraBinToBase64(Bytes("ovra!"), 5, text);
    printf("%-22s %s\n", "Base64(\"ovra!\")", text);
    if (strcmp(text, "b3ZyYSE=") != 0) ++g_failures;
    const unsigned char packet[8] = {0x00, 0x01, 0xf2, 0x03, 0xf4, 0xf5, 0xf6, 0xf7};
    const unsigned short sum = OvraComputeChecksum(packet, 8);
    printf("%-22s %04x\n", "Internet checksum", sum);
    if (sum != 0x220d) ++g_failures;

    // Random bytes: seeding is the application's duty.
    const time_t now = time(nullptr);
    OvraSeedRandom(&now, sizeof now);
    unsigned char random[8];
    OvraGenerateRandom(random, sizeof random);
    printf("%-22s %s\n", "8 random bytes", Hex(random, sizeof random));

    // RSA's core: textbook key n = 3233, e = 17, d = 2753.
    TBigInt n(3233), e(17), d(2753), m(65), c, back;
    TBigInt::ExpMod(c, m, e, n);
    TBigInt::ExpMod(back, c, d, n);
    printf("%-22s 65^17 mod 3233 = %d, back: %d\n", "modular power", c.ToInt(), back.ToInt());
    if (c.ToInt() != 2790 || back.ToInt() != 65) ++g_failures;
  }
  OvraUninitialize();
  printf("%s\n", g_failures ? "FAILED" : "all crypto steps as expected");
  return g_failures ? 1 : 0;
}
