// Fuzzes OvraInetAtoN on any units. A parsed address printed again by
// OvraInetNtoAEx must parse back to the same address and port, and a failed
// parse must leave both outputs untouched.
#include <stdint.h>

#include "FuzzSupport.h"
#include "OvraInet.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned short> text = ovra_fuzz::UnitsWithEscapes(data, size);
  unsigned int address = 0xDEADBEEFu;
  unsigned short port = 0xBEEF;
  const bool ok = OvraInetAtoN(text.data(), &address, &port);
  if (!ok) {
    FUZZ_CHECK(address == 0xDEADBEEFu && port == 0xBEEF);
    return 0;
  }
  // Null outputs are allowed and give the same verdict.
  FUZZ_CHECK(OvraInetAtoN(text.data(), nullptr, nullptr));

  TBstr printed;
  OvraInetNtoAEx(address, port, printed);
  unsigned int address2 = 0;
  unsigned short port2 = 0;
  FUZZ_CHECK(OvraInetAtoN(printed.GetString(), &address2, &port2));
  FUZZ_CHECK(address2 == address && port2 == port);

  OvraInetNtoA(address, printed);
  FUZZ_CHECK(OvraInetAtoN(printed.GetString(), &address2, &port2));
  FUZZ_CHECK(address2 == address && port2 == 0);
  return 0;
}
