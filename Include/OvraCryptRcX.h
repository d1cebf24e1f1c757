// OvraCryptRcX.h - RC2 (RFC 2268) as a block cipher and RC4 as a stream
// cipher of the framework.
#ifndef OVRA_OVRACRYPTRCX_H
#define OVRA_OVRACRYPTRCX_H

#include "OvraCrypt.h"
#include "OvraPlatform.h"

// The contents of the rc2CBC object identifier (1.2.840.113549.3.2).
constexpr unsigned char kRc2CbcObjectId[8] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x03, 0x02};

// RC2 on 8-byte blocks in CBC (the default) or ECB mode with PKCS #5 padding.
class OVRA_API TRc2Cipher : public TBlockCipher {
 public:
  // Expands the key (RFC 2268); effective bits 0 or above 1024 expand like
  // 1024. A keylen of 0 or above 128 (or a null key) is refused: GetBlockSize
  // is then 0, so every processing call and BerDump do nothing and return 0.
  // The IV is zero: call SetIv (or use TCrypter) before CBC use.
  TRc2Cipher(ECipherOp op, const unsigned char* key, unsigned keylen, unsigned effectiveBits);
  ~TRc2Cipher() override;

  // Always 0: RC2 parameters cannot be loaded from BER.
  unsigned BerInit(const unsigned char* data, unsigned size) override;
  // Writes 30 L | 06 08 <kRc2CbcObjectId> | 30 L' | 02 v <version> | 04 08 <IV>
  // and returns 27 for 128 effective bits (version 3A: kept, though RFC 2268
  // gives 58 to 64 bits) or 28 for 56 (00 78) and 40 bits (00 A0); 0, writing
  // nothing, for other bits (0 included), too small a buffer or a refused key.
  unsigned BerDump(unsigned char* out, unsigned size) override;
  // Encrypts (operation eEncrypt) or decrypts (any other) 8 bytes in place.
  void ProcessBlock(unsigned char* block) const override;
  // 8, or 0 when the key was refused.
  unsigned GetBlockSize() const override;

 private:
  unsigned short m_key[64];  // the expanded key
  unsigned m_effectiveBits;  // as passed to the constructor
  bool m_keyed;              // false when the key length was refused
};

// RC4. Encryption and decryption are the same operation. The keystream
// restarts from its first byte at every final call (ProcessData with final,
// or Reset), so that both ends of a message stay in step.
class OVRA_API TRc4Cipher : public TStreamCipher {
 public:
  // Runs the key schedule over keylen bytes of key; op changes nothing. A
  // keylen of 0 (or a null key) is refused: ProcessData then processes nothing
  // and returns 0, and ProcessStream leaves the buffer untouched.
  TRc4Cipher(ECipherOp op, const unsigned char* key, unsigned keylen);
  ~TRc4Cipher() override;

  // Always 0: not supported.
  unsigned BerInit(const unsigned char* data, unsigned size) override;
  // Always 0: not supported.
  unsigned BerDump(unsigned char* out, unsigned size) override;
  // As TStreamCipher::ProcessData (returns len), except that a cipher whose
  // key was refused returns 0.
  unsigned ProcessData(unsigned char* buf, unsigned len, bool final) override;
  // XORs each byte of buf with the next keystream byte.
  void ProcessStream(unsigned char* buf, unsigned len) override;
  // Restarts the keystream from its first byte under the same key.
  void Reset() override;

 private:
  unsigned char m_keyed[256];  // the permutation right after the key schedule
  unsigned char m_state[256];  // the working permutation
  unsigned m_i;
  unsigned m_j;
  bool m_hasKey;  // false when the key length was refused
};

#endif
