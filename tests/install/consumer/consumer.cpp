// A program outside the source tree, built against an installed Ovra.
#include <stdio.h>

#include "Ovra.h"
#include "OvraMem.h"
#include "OvraSync.h"

int main() {
  if (!OvraInitialize(nullptr)) return 1;
  long counter = 41;
  const long value = OvraAtomicIncrement(&counter);
  void* block = OvraMemAlloc(16);
  OvraMemFree(block);
  OvraUninitialize();
  printf("consumer: %ld\n", value);
  return value == 42 && block ? 0 : 1;
}
