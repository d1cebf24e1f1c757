// OvraSystemPS.cpp - the Windows half of OvraGetSystemInfo: the system's
// version record, nothing else.
#include "OvraSystemPS.h"

#include <stdio.h>
#include <string.h>

#include "Win32/OvraSysCalls.h"

bool InternalGetSystemNames(TBstr& name, char* release, size_t size) {
  release[0] = 0;
  OSVERSIONINFOW version;
  memset(&version, 0, sizeof version);
  version.dwOSVersionInfoSize = sizeof version;
  if (g_ovraSysCalls.GetVersion(&version) != 0) {
    name.Empty();
    return false;
  }
  // The name the system gives itself, and "major.minor.build" as the release
  // text, read the way a POSIX release such as "6.1.0" is read.
  name = TBstr("Windows");
  char text[48];
  snprintf(text, sizeof text, "%lu.%lu.%lu", static_cast<unsigned long>(version.dwMajorVersion),
           static_cast<unsigned long>(version.dwMinorVersion),
           static_cast<unsigned long>(version.dwBuildNumber));
  strncat(release, text, size - 1);
  return true;
}
