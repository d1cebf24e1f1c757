// Tests of the dotted IPv4 conversions OvraInetAtoN, OvraInetNtoA and
// OvraInetNtoAEx.
#include "OvraInet.h"

#include <gtest/gtest.h>
#include <stdio.h>
#if !defined(_WIN32)
#include <arpa/inet.h>
#include <netinet/in.h>
#endif

#include <random>
#include <string>
#include <vector>

#include "TestPlatform.h"
#include "TestAllocator.h"
#include "TestBstr.h"
#include "TestWide.h"

using namespace ovra_test;

namespace {

// The text's units in a heap block of exactly its size (terminator included),
// so that a read beyond the terminator is caught by the address sanitizer.
class Units {
 public:
  explicit Units(const std::u16string& text) : m_units(text.begin(), text.end()) {
    m_units.push_back(0);
    m_units.shrink_to_fit();
  }
  const unsigned short* get() const { return m_units.data(); }

 private:
  std::vector<unsigned short> m_units;
};

struct Parsed {
  bool ok;
  unsigned int address;
  unsigned short port;
};

const unsigned int kAddressMarker = 0xA5A5A5A5;
const unsigned short kPortMarker = 0x5A5A;

Parsed Parse(const std::u16string& text) {
  Parsed p{false, kAddressMarker, kPortMarker};
  const Units units(text);
  p.ok = OvraInetAtoN(units.get(), &p.address, &p.port);
  return p;
}

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

// --- parsing ----------------------------------------------------------------------

TEST(InetAtoNTest, FourPartsMakeTheAddressMostSignificantFirst) {
  const Parsed p = Parse(u"1.2.3.4");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020304u);
  EXPECT_EQ(p.port, 0);
  EXPECT_EQ(Parse(u"255.255.255.255").address, 0xFFFFFFFFu);
  EXPECT_EQ(Parse(u"0.0.0.0").address, 0u);
  EXPECT_EQ(Parse(u"192.168.0.1").address, 0xC0A80001u);
}

TEST(InetAtoNTest, PortFollowsAColon) {
  Parsed p = Parse(u"1.2.3.4:8080");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020304u);
  EXPECT_EQ(p.port, 8080);
  p = Parse(u"1.2.3.4:");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.port, 0);
  p = Parse(u"10.1:22");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x0A000001u);
  EXPECT_EQ(p.port, 22);
}

TEST(InetAtoNTest, PortIsReadWithoutValidationAndCutTo16Bits) {
  EXPECT_EQ(Parse(u"1.2.3.4:70000").port, 4464);
  EXPECT_EQ(Parse(u"1.2.3.4:65535").port, 65535);
  EXPECT_EQ(Parse(u"1.2.3.4:65536").port, 0);
  EXPECT_EQ(Parse(u"1.2.3.4:abc").port, 0);
  EXPECT_EQ(Parse(u"1.2.3.4:80abc").port, 80);
  EXPECT_EQ(Parse(u"1.2.3.4:  443").port, 443);
  EXPECT_EQ(Parse(u"1.2.3.4:-1").port, 65535);
  // ucstol keeps values within 32 bits first: 2147483647 & 0xFFFF.
  EXPECT_EQ(Parse(u"1.2.3.4:99999999999").port, 65535);
  EXPECT_TRUE(Parse(u"1.2.3.4:abc").ok);
  EXPECT_TRUE(Parse(u"1.2.3.4:1:2").ok);
}

TEST(InetAtoNTest, LastPartFillsTheRemainingBytesUnchecked) {
  EXPECT_EQ(Parse(u"10.1").address, 0x0A000001u);
  EXPECT_EQ(Parse(u"10.65537").address, 0x0A010001u);
  EXPECT_EQ(Parse(u"167772161").address, 0x0A000001u);
  EXPECT_EQ(Parse(u"1.2.65535").address, 0x0102FFFFu);
  EXPECT_EQ(Parse(u"1.2.3:4").address, 0x01020003u);
  // Nor is the fourth part checked.
  const Parsed p = Parse(u"1.2.3.256");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020300u | 256u);
}

TEST(InetAtoNTest, LastPartIsOredIntoTheEarlierBytes) {
  // Not added: its overlapping bits merge with the bytes already placed.
  EXPECT_EQ(Parse(u"1.1.65536").address, 0x01010000u);
  EXPECT_EQ(Parse(u"1.2.3.772").address, 0x01020304u);
  EXPECT_EQ(Parse(u"255.16777215").address, 0xFFFFFFFFu);
}

TEST(InetAtoNTest, SinglePartIsKeptWithinUcstolsRange) {
  // Read by ucstol, so a value beyond 2147483647 is clamped to it.
  EXPECT_EQ(Parse(u"2147483647").address, 0x7FFFFFFFu);
  EXPECT_EQ(Parse(u"4294967295").address, 0x7FFFFFFFu);
  EXPECT_EQ(Parse(u"99999999999999").address, 0x7FFFFFFFu);
}

TEST(InetAtoNTest, EarlierPartAbove255Fails) {
  EXPECT_FALSE(Parse(u"256.1.1.1").ok);
  EXPECT_FALSE(Parse(u"1.256.1.1").ok);
  EXPECT_FALSE(Parse(u"1.1.256.1").ok);
  EXPECT_FALSE(Parse(u"99999999999.1").ok);
  EXPECT_TRUE(Parse(u"255.1.1.1").ok);
}

TEST(InetAtoNTest, NegativePartFails) {
  EXPECT_FALSE(Parse(u"-1.2.3.4").ok);
  EXPECT_FALSE(Parse(u"1.-2.3.4").ok);
  EXPECT_FALSE(Parse(u"1.2.3.-4").ok);
  EXPECT_FALSE(Parse(u"-167772161").ok);
  // Minus zero is not negative.
  const Parsed p = Parse(u"-0.1.2.3");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x00010203u);
}

TEST(InetAtoNTest, LastPartFollowedByAnythingButColonOrEndFails) {
  EXPECT_FALSE(Parse(u"1.2.3.4x").ok);
  EXPECT_FALSE(Parse(u"1.2.3.4 ").ok);
  EXPECT_FALSE(Parse(u"1.2.3.4/24").ok);
  EXPECT_FALSE(Parse(u"1.2x").ok);
  EXPECT_FALSE(Parse(u"abc").ok);
  EXPECT_FALSE(Parse(u"0x7f.0.0.1").ok);  // decimal only
}

TEST(InetAtoNTest, FifthPartFails) {
  // The fourth part is final and is followed by ".".
  EXPECT_FALSE(Parse(u"1.2.3.4.5").ok);
  EXPECT_FALSE(Parse(u"1.2.3.4.").ok);
}

TEST(InetAtoNTest, EmptyPartsAreZero) {
  Parsed p = Parse(u"");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0u);
  EXPECT_EQ(p.port, 0);
  p = Parse(u"1..3.4");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01000304u);
  p = Parse(u"1.2.3.");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020300u);
  p = Parse(u":80");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0u);
  EXPECT_EQ(p.port, 80);
  EXPECT_EQ(Parse(u"...").address, 0u);
}

TEST(InetAtoNTest, PartsMayStartWithBlanksAndASign) {
  Parsed p = Parse(u" 1. 2.  3. 4");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020304u);
  p = Parse(u"+1.+2.+3.+4:+5");
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.address, 0x01020304u);
  EXPECT_EQ(p.port, 5);
  // ucstol skips blanks only: a tab ends the part before any digit.
  EXPECT_FALSE(Parse(u"\t1.2.3.4").ok);
  EXPECT_FALSE(Parse(u"1 .2.3.4").ok);
}

TEST(InetAtoNTest, DigitsOutsideAsciiAreNotDigits) {
  EXPECT_FALSE(Parse(u"1.2.3.\u0664").ok);   // ARABIC-INDIC DIGIT FOUR
  EXPECT_FALSE(Parse(u"1.2.3.\uFF14").ok);   // FULLWIDTH DIGIT FOUR
  EXPECT_FALSE(Parse(u"1\uFF0E2.3.4").ok);   // FULLWIDTH FULL STOP
  EXPECT_FALSE(Parse(u"1.2.3.4\uFF1A80").ok);  // FULLWIDTH COLON
}

TEST(InetAtoNTest, NullOutputsStoreNothing) {
  const Units good(u"1.2.3.4:80");
  EXPECT_TRUE(OvraInetAtoN(good.get(), nullptr, nullptr));
  unsigned int address = kAddressMarker;
  EXPECT_TRUE(OvraInetAtoN(good.get(), &address, nullptr));
  EXPECT_EQ(address, 0x01020304u);
  unsigned short port = kPortMarker;
  EXPECT_TRUE(OvraInetAtoN(good.get(), nullptr, &port));
  EXPECT_EQ(port, 80);
  const Units bad(u"1.2.3.4.5");
  EXPECT_FALSE(OvraInetAtoN(bad.get(), nullptr, nullptr));
}

TEST(InetAtoNTest, FailureStoresNothing) {
  for (const char16_t* text : {u"256.1.1.1", u"-1.2.3.4", u"1.2.3.4x", u"1.2.3.4.5"}) {
    const Parsed p = Parse(text);
    EXPECT_FALSE(p.ok);
    EXPECT_EQ(p.address, kAddressMarker);
    EXPECT_EQ(p.port, kPortMarker);
  }
}

TEST(InetAtoNTest, NullTextFails) {
  unsigned int address = kAddressMarker;
  unsigned short port = kPortMarker;
  EXPECT_FALSE(OvraInetAtoN(nullptr, &address, &port));
  EXPECT_EQ(address, kAddressMarker);
  EXPECT_EQ(port, kPortMarker);
  EXPECT_FALSE(OvraInetAtoN(nullptr, nullptr, nullptr));
}

// The rules, written out again on narrow text for the random comparison below:
// ucstol's reading (blanks, sign, decimal digits, clamped to 31 bits before
// the sign), four parts at most, the last one ORed unshifted.
struct Model {
  static long Read(const std::u16string& s, size_t& i) {
    const size_t start = i;
    size_t j = i;
    while (j < s.size() && s[j] == u' ') ++j;
    bool negative = false;
    if (j < s.size() && (s[j] == u'-' || s[j] == u'+')) negative = s[j++] == u'-';
    const size_t digits = j;
    long long value = 0;
    while (j < s.size() && s[j] >= u'0' && s[j] <= u'9') {
      value = value * 10 + (s[j++] - u'0');
      if (value > 0x7FFFFFFF) value = 0x7FFFFFFF;
    }
    if (j == digits) {
      i = start;
      return 0;
    }
    i = j;
    return static_cast<long>(negative ? -value : value);
  }
  static Parsed Run(const std::u16string& s) {
    Parsed p{false, kAddressMarker, kPortMarker};
    unsigned int address = 0;
    size_t i = 0;
    for (int index = 0;; ++index) {
      const long part = Read(s, i);
      const char16_t next = i < s.size() ? s[i] : 0;
      if (part < 0) return p;
      if (index == 3 || next != u'.') {
        if (next != u':' && next != 0) return p;
        address |= static_cast<unsigned int>(part);
        unsigned short port = 0;
        if (next == u':') {
          size_t k = i + 1;
          port = static_cast<unsigned short>(Read(s, k) & 0xFFFF);
        }
        return Parsed{true, address, port};
      }
      if (part > 255) return p;
      address |= static_cast<unsigned int>(part) << (8 * (3 - index));
      ++i;
    }
  }
};

TEST(InetAtoNTest, RandomTextsFollowTheRulesAndStayInBounds) {
  // Short texts over an alphabet dense in the characters that matter, plus
  // arbitrary units; every text sits in a block of exactly its size.
  std::mt19937 rng(20240611);
  const std::u16string alphabet = u"0123456789..........::: -+x\t";
  for (int round = 0; round < 20000; ++round) {
    std::u16string text;
    const int length = static_cast<int>(rng() % 24);
    for (int i = 0; i < length; ++i) {
      const unsigned r = rng() % 100;
      if (r < 3) {
        text.push_back(static_cast<char16_t>(1 + rng() % 0xFFFF));
      } else {
        text.push_back(alphabet[rng() % alphabet.size()]);
      }
    }
    // A zero unit ends the text: cut there, as the function sees it.
    const size_t zero = text.find(u'\0');
    if (zero != std::u16string::npos) text.resize(zero);
    const Parsed got = Parse(text);
    const Parsed want = Model::Run(text);
    ASSERT_EQ(got.ok, want.ok) << "round " << round;
    EXPECT_EQ(got.address, want.address) << "round " << round;
    EXPECT_EQ(got.port, want.port) << "round " << round;
  }
}

TEST(InetAtoNTest, AgreesWithTheSystemOnPlainDecimalAddresses) {
  // Decimal parts without leading zeros, each in the range the system accepts:
  // there, both readings must agree.
  std::mt19937 rng(7);
  for (int round = 0; round < 20000; ++round) {
    const int parts = 1 + static_cast<int>(rng() % 4);
    std::string text;
    for (int i = 0; i < parts; ++i) {
      unsigned int limit = 255;
      if (i == parts - 1) {
        static const unsigned int kLast[] = {0x7FFFFFFF, 0xFFFFFF, 0xFFFF, 0xFF};
        limit = kLast[parts - 1];
      }
      const unsigned int value = rng() % 3 == 0 ? limit : static_cast<unsigned int>(rng() % (limit + 1ull));
      if (i) text += '.';
      text += std::to_string(value);
    }
#if defined(_WIN32)
    uint32_t system = 0;
    ASSERT_TRUE(ovra_test::win::SystemInetAddress(text.c_str(), system)) << text;
#else
    in_addr address;
    ASSERT_EQ(inet_aton(text.c_str(), &address), 1) << text;
    const uint32_t system = ntohl(address.s_addr);
#endif
    const Parsed p = Parse(Wide(text));
    ASSERT_TRUE(p.ok) << text;
    EXPECT_EQ(p.address, system) << text;
    EXPECT_EQ(p.port, 0) << text;
  }
}

// --- formatting -------------------------------------------------------------------

TEST(InetNtoATest, FormatsTheFourBytesMostSignificantFirst) {
  TBstr text;
  OvraInetNtoA(0x7F000001, text);
  EXPECT_EQ(ToU16(text.GetString()), u"127.0.0.1");
  OvraInetNtoA(0xFFFFFFFF, text);
  EXPECT_EQ(ToU16(text.GetString()), u"255.255.255.255");
  OvraInetNtoA(0, text);
  EXPECT_EQ(ToU16(text.GetString()), u"0.0.0.0");
  OvraInetNtoA(0x80FF0A01, text);
  EXPECT_EQ(ToU16(text.GetString()), u"128.255.10.1");
}

TEST(InetNtoATest, ExtendedFormAddsTheUnsignedPort) {
  TBstr text("replaced");
  OvraInetNtoAEx(0x7F000001, 80, text);
  EXPECT_EQ(ToU16(text.GetString()), u"127.0.0.1:80");
  OvraInetNtoAEx(0xC0A80001, 65535, text);
  EXPECT_EQ(ToU16(text.GetString()), u"192.168.0.1:65535");
  OvraInetNtoAEx(0x01020304, 0, text);
  EXPECT_EQ(ToU16(text.GetString()), u"1.2.3.4:0");
}

TEST(InetNtoATest, MatchesThePrintfFormOfRandomAddresses) {
  std::mt19937 rng(99);
  TBstr text;
  for (int round = 0; round < 5000; ++round) {
    const unsigned int address = static_cast<unsigned int>(rng());
    const unsigned short port = static_cast<unsigned short>(rng());
    char expected[32];
    snprintf(expected, sizeof expected, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF,
             (address >> 8) & 0xFF, address & 0xFF);
    OvraInetNtoA(address, text);
    ASSERT_EQ(ToU16(text.GetString()), Wide(expected));
    snprintf(expected + strlen(expected), 8, ":%u", port);
    OvraInetNtoAEx(address, port, text);
    ASSERT_EQ(ToU16(text.GetString()), Wide(expected));
  }
}

TEST(InetNtoATest, RandomAddressesAndPortsSurviveTheRoundTrip) {
  std::mt19937 rng(12345);
  TBstr text;
  for (int round = 0; round < 20000; ++round) {
    const unsigned int address = static_cast<unsigned int>(rng());
    const unsigned short port = static_cast<unsigned short>(rng());
    OvraInetNtoAEx(address, port, text);
    unsigned int readAddress = 0;
    unsigned short readPort = 0;
    ASSERT_TRUE(OvraInetAtoN(text.GetString(), &readAddress, &readPort));
    ASSERT_EQ(readAddress, address);
    ASSERT_EQ(readPort, port);
    OvraInetNtoA(address, text);
    readPort = kPortMarker;
    ASSERT_TRUE(OvraInetAtoN(text.GetString(), &readAddress, &readPort));
    ASSERT_EQ(readAddress, address);
    ASSERT_EQ(readPort, 0);
  }
}

TEST(InetNtoATest, RunningOutOfMemoryLeavesTheTextEmptyWithoutLeaks) {
  ScopedCountingLibrary scope;
  ASSERT_TRUE(scope.started());
  const long live = Stats().live;
  {
    TBstr text("previous");
    FailNthAllocation(1, true);
    OvraInetNtoA(0x7F000001, text);
    EXPECT_TRUE(text.IsEmpty());
    text = "previous";  // fails too: the text stays empty
    OvraInetNtoAEx(0x7F000001, 80, text);
    EXPECT_TRUE(text.IsEmpty());
    StopFailing();
    OvraInetNtoAEx(0x7F000001, 80, text);
    EXPECT_EQ(ToU16(text.GetString()), u"127.0.0.1:80");
  }
  EXPECT_EQ(Stats().live, live);
}

// --- Allocation failures ---------------------------------------------------
// Each operation runs with its 1st, 2nd, ... allocation failing, alone and
// with every later one (AllocSweep.h), until it goes through; every run must
// give the documented out-of-memory result and leak nothing. The N each sweep
// reaches is printed ("[ SWEEP    ]").

class AllocSweepInet : public SweepTest {};

TEST_F(AllocSweepInet, AddressTextIsEmptyWhenItCannotBeFormatted) {
  SweepBothModes("OvraInetNtoA", [](SweepRun& run) {
    TBstr text(W(u"previous"));
    run.Arm();
    OvraInetNtoA(0xC0A80001u, text);
    EXPECT_EQ(Text(text), run.Disarm() ? u"" : u"192.168.0.1");
  });
  SweepBothModes("OvraInetNtoAEx", [](SweepRun& run) {
    TBstr text(W(u"previous"));
    run.Arm();
    OvraInetNtoAEx(0x7F000001u, 8080, text);
    EXPECT_EQ(Text(text), run.Disarm() ? u"" : u"127.0.0.1:8080");
  });
}

}  // namespace
