// OvraRand.cpp - the digest-based generator and the shared instance.
#include "OvraRand.h"

#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <new>

#include "OvraHooks.h"

namespace {
// The shared generator, from RandInit to RandTerm.
TMd5Prng* s_pPrng = nullptr;
}  // namespace

TDigestPrng::TDigestPrng(TMessageDigest& digest, unsigned char* buffer, unsigned size)
    : m_pDigest(&digest),
      m_size(size),
      m_seedPending(false),
      m_seedCountdown(2),
      m_pState(buffer),
      m_pIncrement(buffer + size),
      m_pOutput(buffer + 2 * size),
      m_available(0) {
  memset(m_pState, 0, size);
}

void TDigestPrng::Seed(const unsigned char* data, unsigned len) {
  if (m_seedCountdown == 2) {
    // The increment depends only on the digest algorithm: the digest of the
    // empty message, made odd.
    m_pDigest->Update(nullptr, 0);
    m_pDigest->Finish(m_pIncrement, m_size);
    m_pIncrement[m_size - 1] |= 1;
  }
  if (m_seedCountdown > 0) --m_seedCountdown;
  if (m_seedCountdown == 0 && !m_seedPending) {
    // Later seeds extend the present state instead of replacing it.
    m_pDigest->Update(m_pState, m_size);
  }
  m_pDigest->Update(data, len);
  m_seedPending = true;
}

void TDigestPrng::Generate(unsigned char* out, unsigned n) {
  if (m_seedPending) {
    m_seedPending = false;
    m_available = 0;
    m_pDigest->Finish(m_pState, m_size);
  }
  while (n > m_available) {
    if (m_available) {
      memcpy(out, m_pOutput + (m_size - m_available), m_available);
      out += m_available;
      n -= m_available;
    }
    m_pDigest->Update(m_pState, m_size);
    m_pDigest->Finish(m_pOutput, m_size);
    m_available = m_size;
    Step();
  }
  if (n) {
    memcpy(out, m_pOutput + (m_size - m_available), n);
    m_available -= n;
  }
}

void TDigestPrng::Step() {
  if (m_seedCountdown == 0) {
    // state += increment, both big-endian numbers of size bytes; the final
    // carry is dropped.
    unsigned carry = 0;
    for (unsigned i = m_size; i-- > 0;) {
      const unsigned sum = m_pState[i] + m_pIncrement[i] + carry;
      m_pState[i] = static_cast<unsigned char>(sum);
      carry = sum >> 8;
    }
  } else {
    // The add-one used before two seeds, kept as it always was: a byte that
    // was non-zero ends the step (so 0xFF wraps to 0x00 without carrying),
    // while a zero byte becomes 0x01 and the step goes on to the next one.
    for (unsigned i = m_size; i-- > 0;) {
      const unsigned char before = m_pState[i];
      m_pState[i] = static_cast<unsigned char>(before + 1);
      if (before != 0) break;
    }
  }
}

// The base is built over members that are constructed after it: it only
// stores their addresses and zeroes the buffer, which has no initialiser of
// its own, and the digest is first used by Seed or Generate.
TMd5Prng::TMd5Prng() : TDigestPrng(m_digest, m_buffer, 16) {}

bool RandInit() {
  // For the platform library's own rand(); the shared generator is not seeded.
  srand(static_cast<unsigned>(time(nullptr)));
  s_pPrng = new (std::nothrow) TMd5Prng;
  return s_pPrng != nullptr;
}

void RandTerm() {
  delete s_pPrng;
  s_pPrng = nullptr;
}

void OvraGenerateRandom(unsigned char* out, unsigned n) {
  if (s_pPrng) s_pPrng->Generate(out, n);
}

void OvraSeedRandom(const void* data, unsigned n) {
  if (s_pPrng) s_pPrng->Seed(static_cast<const unsigned char*>(data), n);
}
