// Byte order and word access for the whole library: loads and stores of 16-,
// 32- and 64-bit words at any address in little-endian, big-endian or the
// machine's own order, byte swaps and rotations. Sources read multi-byte
// values from memory only through these, so that the machine's byte order is
// decided in this one place and every result defined in bytes is the same on
// every machine. Private to the library and its tests.
#ifndef OVRA_BYTE_ORDER_H
#define OVRA_BYTE_ORDER_H

#include <stdint.h>
#include <string.h>

#if !defined(__BYTE_ORDER__) || \
    (__BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__ && __BYTE_ORDER__ != __ORDER_BIG_ENDIAN__)
#error "the compiler must say whether the machine is little- or big-endian"
#endif

namespace ovra_bytes {

// True on little-endian machines, false on big-endian ones.
constexpr bool kLittleEndian = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

inline uint16_t Swap16(uint16_t v) { return __builtin_bswap16(v); }
inline uint32_t Swap32(uint32_t v) { return __builtin_bswap32(v); }
inline uint64_t Swap64(uint64_t v) { return __builtin_bswap64(v); }

// The word at p in the machine's own order (any alignment).
inline uint16_t LoadNative16(const void* p) {
  uint16_t v;
  memcpy(&v, p, sizeof v);
  return v;
}
inline uint32_t LoadNative32(const void* p) {
  uint32_t v;
  memcpy(&v, p, sizeof v);
  return v;
}
inline uint64_t LoadNative64(const void* p) {
  uint64_t v;
  memcpy(&v, p, sizeof v);
  return v;
}
inline void StoreNative16(void* p, uint16_t v) { memcpy(p, &v, sizeof v); }
inline void StoreNative32(void* p, uint32_t v) { memcpy(p, &v, sizeof v); }
inline void StoreNative64(void* p, uint64_t v) { memcpy(p, &v, sizeof v); }

// Little-endian words: the first byte is the least significant.
inline uint16_t LoadLE16(const void* p) {
  return kLittleEndian ? LoadNative16(p) : Swap16(LoadNative16(p));
}
inline uint32_t LoadLE32(const void* p) {
  return kLittleEndian ? LoadNative32(p) : Swap32(LoadNative32(p));
}
inline uint64_t LoadLE64(const void* p) {
  return kLittleEndian ? LoadNative64(p) : Swap64(LoadNative64(p));
}
inline void StoreLE16(void* p, uint16_t v) { StoreNative16(p, kLittleEndian ? v : Swap16(v)); }
inline void StoreLE32(void* p, uint32_t v) { StoreNative32(p, kLittleEndian ? v : Swap32(v)); }
inline void StoreLE64(void* p, uint64_t v) { StoreNative64(p, kLittleEndian ? v : Swap64(v)); }

// Big-endian words: the first byte is the most significant.
inline uint16_t LoadBE16(const void* p) {
  return kLittleEndian ? Swap16(LoadNative16(p)) : LoadNative16(p);
}
inline uint32_t LoadBE32(const void* p) {
  return kLittleEndian ? Swap32(LoadNative32(p)) : LoadNative32(p);
}
inline uint64_t LoadBE64(const void* p) {
  return kLittleEndian ? Swap64(LoadNative64(p)) : LoadNative64(p);
}
inline void StoreBE16(void* p, uint16_t v) { StoreNative16(p, kLittleEndian ? Swap16(v) : v); }
inline void StoreBE32(void* p, uint32_t v) { StoreNative32(p, kLittleEndian ? Swap32(v) : v); }
inline void StoreBE64(void* p, uint64_t v) { StoreNative64(p, kLittleEndian ? Swap64(v) : v); }

// Rotations; n is 1 to width - 1. Written so that each compiles to one
// rotate instruction where the machine has one.
inline uint32_t Rotl32(uint32_t x, unsigned n) { return (x << n) | (x >> (32 - n)); }
inline uint32_t Rotr32(uint32_t x, unsigned n) { return (x >> n) | (x << (32 - n)); }
inline uint16_t Rotl16(uint16_t x, unsigned n) {
  return static_cast<uint16_t>((x << n) | (x >> (16 - n)));
}

}  // namespace ovra_bytes

#endif  // OVRA_BYTE_ORDER_H
