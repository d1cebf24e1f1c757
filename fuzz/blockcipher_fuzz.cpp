// Fuzzes block-cipher decryption of random ciphertext (DES and RC2, CBC, ECB
// and out-of-range modes, any key the input gives) in a buffer of exactly the
// ciphertext's size. Checked: a partial block gives 0 and leaves the buffer
// alone, the final call strips exactly the capped pad count (nothing in an
// unknown mode, which only counts the blocks), and the input as
// plaintext survives encryption and decryption.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <memory>
#include <vector>

#include "FuzzSupport.h"
#include "OvraCrypt.h"
#include "OvraCryptDes.h"
#include "OvraCryptRcX.h"

namespace {

struct Setup {
  bool rc2;
  std::vector<unsigned char> key;
  unsigned effectiveBits;
  int mode;
  unsigned char iv[8];
};

std::unique_ptr<TBlockCipher> Make(const Setup& s, TCipher::ECipherOp op) {
  std::unique_ptr<TBlockCipher> c;
  if (s.rc2)
    c.reset(new TRc2Cipher(op, s.key.data(), static_cast<unsigned>(s.key.size()), s.effectiveBits));
  else
    c.reset(new TDesCipher(op, s.key.data(), 8));
  c->SetMode(static_cast<TBlockCipher::ECipherMode>(s.mode));
  c->SetIv(s.iv);
  return c;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  Setup s;
  s.rc2 = in.ConsumeBool();
  s.key = in.ConsumeBytes<unsigned char>(s.rc2 ? in.ConsumeIntegralInRange<size_t>(0, 130) : 8);
  s.key.resize(s.rc2 ? s.key.size() : 8);  // DES reads 8 bytes whatever
  s.effectiveBits = in.ConsumeIntegralInRange<unsigned>(0, 1100);
  const unsigned modeChoice = in.ConsumeIntegralInRange<unsigned>(0, 4);
  s.mode = modeChoice < 2 ? static_cast<int>(modeChoice) : in.ConsumeIntegral<int>();
  for (auto& b : s.iv) b = in.ConsumeIntegral<unsigned char>();
  const bool final = in.ConsumeBool();
  const std::vector<unsigned char> body = in.ConsumeRemainingBytes<unsigned char>();
  const unsigned len = static_cast<unsigned>(body.size());

  auto plainDecrypter = Make(s, TCipher::eDecrypt);
  const unsigned bs = plainDecrypter->GetBlockSize();
  FUZZ_CHECK(bs <= 8);

  // Decrypting the ciphertext without final: whole blocks or nothing.
  unsigned char* buf = static_cast<unsigned char*>(malloc(len ? len : 1));
  FUZZ_CHECK(buf != nullptr);
  if (len) memcpy(buf, body.data(), len);
  const unsigned plain = plainDecrypter->DecryptData(buf, len, false);
  if (bs == 0 || len % bs != 0) {
    FUZZ_CHECK(plain == 0);
    FUZZ_CHECK(len == 0 || memcmp(buf, body.data(), len) == 0);
  } else {
    FUZZ_CHECK(plain == len);
  }

  // With final, the same plaintext less the capped pad count.
  if (final && bs && len % bs == 0) {
    auto finalDecrypter = Make(s, TCipher::eDecrypt);
    unsigned char* buf2 = static_cast<unsigned char*>(malloc(len ? len : 1));
    FUZZ_CHECK(buf2 != nullptr);
    if (len) memcpy(buf2, body.data(), len);
    const unsigned stripped = finalDecrypter->DecryptData(buf2, len, true);
    const bool knownMode = s.mode == TBlockCipher::eCbc || s.mode == TBlockCipher::eEcb;
    if (len == 0 || !knownMode) {
      // An unknown mode processes nothing and reads no pad: the block count.
      FUZZ_CHECK(stripped == len);
    } else {
      const unsigned pad = buf[len - 1] < bs ? buf[len - 1] : bs;
      FUZZ_CHECK(stripped == len - pad);
      FUZZ_CHECK(memcmp(buf, buf2, len) == 0);
    }
    free(buf2);
  }
  free(buf);

  // The body as plaintext: encrypt with padding into exactly the room the
  // header asks for, decrypt, compare.
  if (bs && (s.mode == TBlockCipher::eCbc || s.mode == TBlockCipher::eEcb)) {
    auto encrypter = Make(s, TCipher::eEncrypt);
    auto decrypter = Make(s, TCipher::eDecrypt);
    const unsigned room = (len / bs + 1) * bs;
    unsigned char* work = static_cast<unsigned char*>(malloc(room));
    FUZZ_CHECK(work != nullptr);
    if (len) memcpy(work, body.data(), len);
    FUZZ_CHECK(encrypter->EncryptData(work, len, true) == room);
    FUZZ_CHECK(decrypter->DecryptData(work, room, true) == len);
    FUZZ_CHECK(len == 0 || memcmp(work, body.data(), len) == 0);
    free(work);
  }
  return 0;
}
