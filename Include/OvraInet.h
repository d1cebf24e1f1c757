// OvraInet.h - IPv4 addresses, with an optional port, as 16-bit dotted text.
//
// Addresses are 32-bit numbers in host order, the first dotted part in the
// most significant byte ("1.2.3.4" is 0x01020304); ports are 16-bit numbers.
#ifndef OVRA_OVRAINET_H
#define OVRA_OVRAINET_H

#include "OvraBstr.h"
#include "OvraPlatform.h"

// Reads up to four decimal parts separated by "." (each read by ucstol: blanks
// and a sign may lead, an empty part is 0), optionally followed by ":" and a
// port. The last part fills the remaining low-order bytes unchecked: "10.1"
// is 0x0A000001, "10.65537" 0x0A010001, "167772161" 0x0A000001. False for a
// null text, an earlier part above 255, a negative part, or a last part (the
// fourth, or one not followed by ".") followed by anything but ":" or the end.
// The port is ucstol's value behind ":", not validated, kept to its low 16 bits
// ("70000" gives 4464, "abc" 0); 0 without ":". Outputs may be null; nothing is
// stored on failure.
OVRA_EXTERN_C OVRA_API bool OvraInetAtoN(const unsigned short* text, unsigned int* address,
                                         unsigned short* port);
// text = the four bytes of address in decimal, most significant first: "127.0.0.1".
// text is empty when it cannot be allocated (both functions).
OVRA_EXTERN_C OVRA_API void OvraInetNtoA(unsigned int address, TBstr& text);
// text = as OvraInetNtoA, then ":" and the port in decimal: "127.0.0.1:80".
OVRA_EXTERN_C OVRA_API void OvraInetNtoAEx(unsigned int address, unsigned short port,
                                           TBstr& text);

#endif
