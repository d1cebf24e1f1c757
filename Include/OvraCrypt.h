// OvraCrypt.h - the data encodings (Base64, BER elements, the Internet
// checksum) and the cipher framework every cipher of the library is built on.
#ifndef OVRA_OVRACRYPT_H
#define OVRA_OVRACRYPT_H

#include <stddef.h>

#include <new>

#include "OvraPlatform.h"

// ---------------------------------------------------------------------------
// Base64 (standard alphabet "A-Z a-z 0-9 + /", padding "=", no line breaks)
// ---------------------------------------------------------------------------

// Writes the Base64 text of length bytes of data into text (which must hold
// 4 * ceil(length / 3) + 1 bytes) plus a zero; returns the characters before
// the zero. A length of 0 or below writes only the zero and returns 0. Sizes
// are computed in size_t: INT_MAX bytes give 2863311532 characters, which the
// unsigned result carries exactly.
OVRA_EXTERN_C OVRA_API unsigned OvraBinToBase64(const unsigned char* data, int length,
                                                char* text);

// Decodes zero-terminated Base64 text into data (which must hold
// 3 * (strlen(text) / 4) bytes); returns the bytes written, 0 for empty text
// or any character outside the alphabet (whitespace included) or a length not
// a multiple of 4. Lenient padding: "=" is accepted at the third or fourth
// place of any group, even before a letter ("QQ=Q" gives two bytes). On
// failure the groups before the bad one are already written. A text that
// decodes to more than INT_MAX bytes also gives 0 (after writing them all
// into data, whose size the caller computed from the text), never a wrapped count.
OVRA_EXTERN_C OVRA_API int OvraBase64ToBin(const char* text, unsigned char* data);

// ---------------------------------------------------------------------------
// BER tag-length-value elements, one level at a time
// ---------------------------------------------------------------------------

// The length of an element in the indefinite form (length byte 0x80).
constexpr unsigned kBerIndefiniteLength = 0xFFFFFFFFu;

// One element: tag byte, content length and contents.
struct SBerElement {
  unsigned tag;               // the tag byte; only the low 8 bits are encoded
  unsigned length;            // content bytes, or kBerIndefiniteLength
  const unsigned char* data;  // decoding: points into the caller's buffer
                              // behind the header; encoding: bytes to copy, or null
};

// Reads the element at the start of buffer (size bytes, never read beyond)
// into *element; returns header plus content bytes, 0 (element cleared) if
// they exceed size. Long-form lengths keep their last four bytes only; the
// indefinite form returns 2 without looking at the contents.
OVRA_EXTERN_C OVRA_API unsigned OvraBerDecode(const unsigned char* buffer, unsigned size,
                                              SBerElement* element);

// Writes the element into buffer (size bytes); returns the bytes written, 0
// (nothing written) if header plus contents exceed size or the length is
// 0x1000000 or more. A null data writes the header only and returns its length.
// Kept for identical output: lengths of 0x80 and more get a long form that does
// not decode back (0x81 0x00 below 0x10000, else 0x82 0x00 <low byte>).
OVRA_EXTERN_C OVRA_API unsigned OvraBerEncode(unsigned char* buffer, unsigned size,
                                              const SBerElement* element);

// ---------------------------------------------------------------------------
// The Internet checksum (16-bit one's complement sum, network byte order)
// ---------------------------------------------------------------------------

// Computes the checksum incrementally over any number of byte runs; an odd
// byte at the end of one run pairs with the first byte of the next, so runs
// may be split anywhere. No virtual operations.
class OVRA_API TInetChecksum {
 public:
  // Starts empty (Reset).
  TInetChecksum() { Reset(); }
  // Forgets everything added so far.
  void Reset() {
    m_sum = 0;
    m_odd = 0;
  }
  // Adds length bytes of data, taken as big-endian 16-bit words. A length of
  // 0 returns at once (data is then not read).
  void Update(const unsigned char* data, unsigned length);
  // The checksum of the bytes so far, as a number in host order (write it
  // most significant byte first). The state is unchanged.
  unsigned short GetCurrent() const { return static_cast<unsigned short>(~m_sum & 0xFFFFu); }
  // Resumes from an earlier GetCurrent result; length is the number of bytes
  // that produced it (only its parity matters).
  void SetCurrent(unsigned short checksum, unsigned length) {
    m_sum = ~static_cast<unsigned>(checksum) & 0xFFFFu;
    m_odd = length & 1u;
  }
  // GetCurrent, then Reset.
  unsigned short Finish() {
    const unsigned short result = GetCurrent();
    Reset();
    return result;
  }

 private:
  unsigned m_sum;  // one's complement sum, folded to 16 bits between calls
  unsigned m_odd;  // 1 when an odd number of bytes has been added
};

// The checksum of length bytes of data in one call; 0xFFFF for no bytes.
OVRA_EXTERN_C OVRA_API unsigned short OvraComputeChecksum(const unsigned char* data,
                                                          unsigned length);

// ---------------------------------------------------------------------------
// Cipher framework. All processing is in place: the caller's buffer is both
// input and output. One object serves one thread at a time.
// ---------------------------------------------------------------------------

// The interface of every cipher: it knows its direction, set once at
// construction, and processes a buffer in place.
class OVRA_API TCipher {
 public:
  // The family a cipher belongs to.
  enum ECipherType : int { eRsaCipher = 0, eBlockCipher = 1, eStreamCipher = 2 };
  // The direction; any value other than eEncrypt is treated as decrypt.
  enum ECipherOp : int { eEncrypt = 0, eDecrypt = 1 };

  virtual ~TCipher();
  // Loads the cipher's parameters from a BER blob of size bytes; returns the
  // bytes accepted, 0 if not supported or malformed.
  virtual unsigned BerInit(const unsigned char* data, unsigned size) = 0;
  // Writes the cipher's parameters as BER into out (size bytes); returns the
  // bytes written, 0 if not supported or out is too small.
  virtual unsigned BerDump(unsigned char* out, unsigned size) = 0;
  // The cipher's family.
  virtual ECipherType GetType() = 0;
  // Processes len bytes of buf in place; final marks the last call of a
  // message. Returns the number of result bytes now at the front of buf
  // (0 on failure).
  virtual unsigned ProcessData(unsigned char* buf, unsigned len, bool final) = 0;

  // The direction given at construction.
  ECipherOp GetOperation() const { return m_op; }

  // Ciphers live in the library's allocator whoever news them: the virtual
  // destructor runs inside the library, so its delete must free through the
  // same allocator that the new used. Null on failure (new then constructs
  // nothing).
  static void* operator new(size_t size) noexcept;
  static void* operator new(size_t size, const std::nothrow_t&) noexcept;
  static void operator delete(void* pointer) noexcept;
  static void operator delete(void* pointer, const std::nothrow_t&) noexcept;
  // Placement forms, which the class operators above would otherwise hide.
  static void* operator new(size_t, void* where) noexcept { return where; }
  static void operator delete(void*, void*) noexcept {}

 protected:
  // Fixes the direction; only derived ciphers are constructed.
  explicit TCipher(ECipherOp op) : m_op(op) {}

  // The direction given at construction.
  ECipherOp m_op;
};

// A cipher on blocks of GetBlockSize() bytes (at most 8) in CBC or ECB mode
// with PKCS #5 padding. The CBC chain runs across the calls of one message;
// the final call puts it back to the initial vector.
class OVRA_API TBlockCipher : public TCipher {
 public:
  // The chaining mode. Any other value makes EncryptData and DecryptData
  // process nothing while still returning the block counts (see there).
  enum ECipherMode : int { eCbc = 0, eEcb = 1 };

  ~TBlockCipher() override;
  // eBlockCipher.
  ECipherType GetType() override;
  // DecryptData when the operation is not eEncrypt, else EncryptData.
  unsigned ProcessData(unsigned char* buf, unsigned len, bool final) override;
  // Encrypts or decrypts one block in place; the direction is the object's.
  virtual void ProcessBlock(unsigned char* block) const = 0;
  // The block size in bytes: 1 to 8. A cipher that refused its key reports 0,
  // and then EncryptData and DecryptData process nothing and return 0.
  virtual unsigned GetBlockSize() const = 0;

  // Stores the mode; nothing else.
  void SetMode(ECipherMode mode) { m_mode = mode; }
  // The mode last set (eCbc after construction).
  ECipherMode GetMode() const { return m_mode; }
  // Copies GetBlockSize() bytes of iv into the initial vector and the chaining
  // block; a null iv sets both to zeros. Call it before CBC use.
  void SetIv(const unsigned char* iv);

  // Encrypts len bytes in place; returns (len / bs + 1) * bs with final, else
  // (len / bs) * bs, and 0 (buf untouched) for a partial block without final.
  // final adds PKCS #5 padding behind the data: buf must hold len rounded up
  // to the next whole block, plus one block when len is already a multiple.
  unsigned EncryptData(unsigned char* buf, unsigned len, bool final);
  // Decrypts whole blocks in place (a partial block: 0, buf untouched); returns
  // the plaintext bytes. With final, the last byte is the pad length, capped
  // at bs and not validated (0 strips nothing); len 0 returns 0.
  unsigned DecryptData(unsigned char* buf, unsigned len, bool final);
  // dst[i] ^= src[i] for i below n.
  static void XorBlock(unsigned char* dst, const unsigned char* src, unsigned n);

 protected:
  // Mode eCbc, both vectors zero (set them with SetIv).
  explicit TBlockCipher(ECipherOp op);

  // The chaining mode: eCbc after construction, then what SetMode set.
  ECipherMode m_mode;
  unsigned char m_iv[8];     // the initial vector; the first GetBlockSize() bytes are used
  unsigned char m_chain[8];  // the running CBC feedback value
};

// A cipher that transforms a byte stream; the final call of a message resets
// it to its keyed start.
class OVRA_API TStreamCipher : public TCipher {
 public:
  ~TStreamCipher() override;
  // eStreamCipher.
  ECipherType GetType() override;
  // ProcessStream(buf, len), then Reset() if final; returns len.
  unsigned ProcessData(unsigned char* buf, unsigned len, bool final) override;
  // Transforms len bytes of buf in place, continuing the stream.
  virtual void ProcessStream(unsigned char* buf, unsigned len) = 0;
  // Restarts the stream from its keyed start.
  virtual void Reset() = 0;

 protected:
  // Fixes the direction; the derived cipher sets up the key.
  explicit TStreamCipher(ECipherOp op) : TCipher(op) {}
};

// The interface of public-key ciphers; the concrete class defines ProcessData.
class OVRA_API TRsaCipher : public TCipher {
 public:
  ~TRsaCipher() override;
  // eRsaCipher.
  ECipherType GetType() override;

 protected:
  // Fixes the direction; the derived cipher holds the key.
  explicit TRsaCipher(ECipherOp op) : TCipher(op) {}
};

// A small driver through which application code uses any cipher. Holds a
// non-owning reference: the caller keeps the cipher alive and deletes it.
class OVRA_API TCrypter {
 public:
  // Sets the block cipher's mode, then its IV (null gives a zero vector).
  TCrypter(TBlockCipher& cipher, TBlockCipher::ECipherMode mode, const unsigned char* iv);
  // Keeps the reference only.
  explicit TCrypter(TStreamCipher& cipher);
  // Keeps the reference only.
  explicit TCrypter(TRsaCipher& cipher);

  // The cipher's ProcessData(buf, len, final).
  unsigned CryptData(unsigned char* buf, unsigned len, bool final);
  // Copies len bytes from in to out (they may overlap), then processes out in
  // place. out must hold the result: for block encryption with final, len
  // rounded up to the next whole block, plus one block when len is a multiple.
  unsigned CryptData(const unsigned char* in, unsigned len, unsigned char* out, bool final);

 private:
  TCipher& m_cipher;
};

#endif
