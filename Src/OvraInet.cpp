// OvraInet.cpp - IPv4 addresses and ports to and from 16-bit dotted text.
#include "OvraInet.h"

#include "OvraCrt.h"

namespace {

const unsigned short kDottedFormat[] = {'%', 'd', '.', '%', 'd', '.', '%', 'd', '.', '%', 'd', 0};
const unsigned short kDottedPortFormat[] = {'%', 'd', '.', '%', 'd', '.', '%', 'd',
                                            '.', '%', 'd', ':', '%', 'd', 0};

int Byte(unsigned int address, int index) {
  return static_cast<int>((address >> (8 * (3 - index))) & 0xFF);
}

}  // namespace

bool OvraInetAtoN(const unsigned short* text, unsigned int* address, unsigned short* port) {
  if (!text) return false;
  unsigned int result = 0;
  const unsigned short* position = text;
  const unsigned short* portText = nullptr;
  for (int index = 0;; ++index) {
    unsigned short* end = nullptr;
    const long part = ucstol(position, &end, 10);
    if (part < 0) return false;
    const bool final = index == 3 || *end != '.';
    if (final) {
      if (*end != ':' && *end != 0) return false;
      // The last part fills the bytes that remain, unchecked: "10.65537" is
      // 10.1.0.1 and a single part is the whole address.
      result |= static_cast<unsigned int>(part);
      if (*end == ':') portText = end + 1;
      break;
    }
    if (part > 255) return false;
    result |= static_cast<unsigned int>(part) << (8 * (3 - index));
    position = end + 1;
  }
  // The port is taken as ucstol reads it, cut to 16 bits, without any check.
  const unsigned short portValue =
      portText ? static_cast<unsigned short>(ucstol(portText, nullptr, 10) & 0xFFFF) : 0;
  if (address) *address = result;
  if (port) *port = portValue;
  return true;
}

void OvraInetNtoA(unsigned int address, TBstr& text) {
  text.Format(kDottedFormat, Byte(address, 0), Byte(address, 1), Byte(address, 2),
              Byte(address, 3));
}

void OvraInetNtoAEx(unsigned int address, unsigned short port, TBstr& text) {
  text.Format(kDottedPortFormat, Byte(address, 0), Byte(address, 1), Byte(address, 2),
              Byte(address, 3), static_cast<int>(port));
}
