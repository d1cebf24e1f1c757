// OvraSystemPS.cpp - the POSIX half of OvraGetSystemInfo: uname, nothing else.
#include "OvraSystemPS.h"
#include "Unix/OvraSysCalls.h"
#include "Unix/OvraSystemName.h"

#include <string.h>
#include <sys/utsname.h>

bool InternalGetSystemNames(TBstr& name, char* release, size_t size) {
  release[0] = 0;
  utsname names;
  if (g_ovraSysCalls.uname(&names) != 0) {
    name.Empty();
    return false;
  }
  // The fields are terminated; the release is cut to the caller's buffer.
  if (!BstrFromSystemName(names.sysname, name)) name.Empty();
  strncat(release, names.release, size - 1);
  return true;
}
