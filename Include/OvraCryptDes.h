// OvraCryptDes.h - single DES (FIPS 46) as a block cipher of the framework.
#ifndef OVRA_OVRACRYPTDES_H
#define OVRA_OVRACRYPTDES_H

#include "OvraCrypt.h"
#include "OvraPlatform.h"

// The contents of the desCBC object identifier (1.3.14.3.2.7).
constexpr unsigned char kDesCbcObjectId[5] = {0x2B, 0x0E, 0x03, 0x02, 0x07};

// DES on 8-byte blocks in CBC (the default) or ECB mode with PKCS #5 padding.
// The key schedule is computed once, for the object's direction; the key
// itself is not kept.
class OVRA_API TDesCipher : public TBlockCipher {
 public:
  // Builds the schedule from the first 8 bytes of key, which must be
  // readable; keylen is ignored (there is no triple DES) and so are the
  // parity bits. The IV is zero: call SetIv (or use TCrypter) before CBC use.
  TDesCipher(ECipherOp op, const unsigned char* key, unsigned keylen);
  ~TDesCipher() override;

  // Always 0: DES parameters cannot be loaded from BER.
  unsigned BerInit(const unsigned char* data, unsigned size) override;
  // Writes 30 13 | 06 05 <kDesCbcObjectId> | 30 0A | 04 08 <IV> and returns 21;
  // 0, writing nothing, if size is below 21. The IV (not the current chain)
  // sits in a SEQUENCE of its own, unlike the usual desCBC parameters.
  unsigned BerDump(unsigned char* out, unsigned size) override;
  // Encrypts or decrypts 8 bytes in place; the direction is fixed by the schedule.
  void ProcessBlock(unsigned char* block) const override;
  // 8.
  unsigned GetBlockSize() const override;

 private:
  unsigned m_schedule[32];  // 16 rounds, two words of four 6-bit subkey groups each
};

#endif
