// Fuzzes the TBigInt text and byte constructors and checks the arithmetic
// against simple invariants: text and byte round trips, (a + b) - b == a,
// (a * b) / b == a with no remainder, q * b + r == a with r < b, shifts that
// undo each other, squaring as multiplication, operands that are also the
// result, and ExpMod with a small exponent against repeated MulMod.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "FuzzSupport.h"
#include "OvraCryptRsa.h"

namespace {

TBigInt Make(FuzzedDataProvider& in) {
  const bool asText = in.ConsumeBool();
  const std::string bytes = in.ConsumeRandomLengthString(600);
  if (asText) {
    std::vector<unsigned short> text = ovra_fuzz::UnitsWithEscapes(
        reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    return TBigInt(text.data());
  }
  return TBigInt(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
}

bool Equal(const TBigInt& a, const TBigInt& b) { return TBigInt::Cmp(a, b) == 0; }

bool IsZero(const TBigInt& a) { return Equal(a, TBigInt()); }

// Bytes of the value without leading zero bytes.
std::vector<unsigned char> Bytes(const TBigInt& a) {
  std::vector<unsigned char> out(8 * 1024 + 8);
  const unsigned n = a.Dump(out.data(), static_cast<unsigned>(out.size()));
  out.resize(n);
  size_t lead = 0;
  while (lead < out.size() && out[lead] == 0) ++lead;
  out.erase(out.begin(), out.begin() + static_cast<long>(lead));
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  const TBigInt a = Make(in);
  const TBigInt b = Make(in);
  const unsigned shift = in.ConsumeIntegralInRange<unsigned>(0, 200);
  const int exponent = in.ConsumeIntegralInRange<int>(0, 40);

  // Text and byte round trips.
  const TBstr text = a.ToString();
  FUZZ_CHECK(!text.IsEmpty());
  FUZZ_CHECK(Equal(TBigInt(text.GetString()), a));
  const std::vector<unsigned char> bytes = Bytes(a);
  FUZZ_CHECK(Equal(TBigInt(bytes.data(), static_cast<unsigned>(bytes.size())), a));
  FUZZ_CHECK(IsZero(a) == bytes.empty());

  // (a + b) - b == a, and a - (a + b) is zero.
  TBigInt sum, diff;
  FUZZ_CHECK(TBigInt::Add(sum, a, b));
  FUZZ_CHECK(TBigInt::Sub(diff, sum, b));
  FUZZ_CHECK(Equal(diff, a));
  FUZZ_CHECK(TBigInt::Sub(diff, a, sum));
  FUZZ_CHECK(IsZero(diff) || IsZero(b));
  FUZZ_CHECK(TBigInt::Cmp(sum, a) >= 0 && TBigInt::Cmp(sum, b) >= 0);

  // (a * b) / b == a, remainder zero; a * b == b * a.
  TBigInt product, product2;
  FUZZ_CHECK(TBigInt::Mul(product, a, b));
  FUZZ_CHECK(TBigInt::Mul(product2, b, a));
  FUZZ_CHECK(Equal(product, product2));
  TBigInt q, r;
  if (IsZero(b)) {
    FUZZ_CHECK(IsZero(product));
    FUZZ_CHECK(!TBigInt::Div(q, r, a, b));
  } else {
    FUZZ_CHECK(TBigInt::Div(q, r, product, b));
    FUZZ_CHECK(Equal(q, a));
    FUZZ_CHECK(IsZero(r));
    // a = q * b + r with r < b.
    FUZZ_CHECK(TBigInt::Div(q, r, a, b));
    FUZZ_CHECK(TBigInt::Cmp(r, b) < 0);
    TBigInt back;
    FUZZ_CHECK(TBigInt::Mul(back, q, b));
    FUZZ_CHECK(TBigInt::Add(back, back, r));  // the result is also an operand
    FUZZ_CHECK(Equal(back, a));
    // MulMod agrees with Mul then Div.
    TBigInt mm, q2, r2;
    FUZZ_CHECK(TBigInt::MulMod(mm, a, a, b));
    FUZZ_CHECK(TBigInt::Mul(product2, a, a));
    FUZZ_CHECK(TBigInt::Div(q2, r2, product2, b));
    FUZZ_CHECK(Equal(mm, r2));
  }

  // Squaring (the same object twice) equals multiplying by a copy.
  const TBigInt copy(a);
  TBigInt square, square2;
  FUZZ_CHECK(TBigInt::Mul(square, a, a));
  FUZZ_CHECK(TBigInt::Mul(square2, a, copy));
  FUZZ_CHECK(Equal(square, square2));

  // Shifts undo each other; shifting in place gives the same.
  TBigInt shifted, unshifted;
  FUZZ_CHECK(TBigInt::Shl(shifted, a, shift));
  FUZZ_CHECK(TBigInt::Shr(unshifted, shifted, shift));
  FUZZ_CHECK(Equal(unshifted, a));
  TBigInt inPlace(a);
  FUZZ_CHECK(TBigInt::Shl(inPlace, inPlace, shift));
  FUZZ_CHECK(Equal(inPlace, shifted));

  // ExpMod with a small exponent against repeated MulMod, for small moduli.
  if (!IsZero(b) && bytes.size() <= 64 && Bytes(b).size() <= 64) {
    TBigInt expected(1);
    TBigInt base;
    TBigInt qq;
    FUZZ_CHECK(TBigInt::Div(qq, base, a, b));  // base = a mod b
    for (int i = 0; i < exponent; ++i) FUZZ_CHECK(TBigInt::MulMod(expected, expected, base, b));
    if (exponent == 0) {
      // An exponent of zero gives 1 whatever the modulus.
      expected = TBigInt(1);
    } else if (exponent >= 1) {
      TBigInt reduced;
      FUZZ_CHECK(TBigInt::Div(qq, reduced, expected, b));
      expected = reduced;
    }
    TBigInt result;
    FUZZ_CHECK(TBigInt::ExpMod(result, base, TBigInt(exponent), b));
    FUZZ_CHECK(Equal(result, expected));
  }
  return 0;
}
