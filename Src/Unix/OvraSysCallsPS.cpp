// OvraSysCallsPS.cpp - the system-call table, filled with the real functions.
#include "Unix/OvraSysCalls.h"

#include <dlfcn.h>
#include <stdlib.h>
#include <unistd.h>

namespace {

int TimeOfDay(timeval* now) { return gettimeofday(now, nullptr); }

// A constant expression, so that both tables are complete before any
// constructor of the program or the library can run.
constexpr SSysCalls kRealSysCalls = {
    fopen, fclose, fread, fwrite, fflush, fseeko, ftello, fstat,
    rename, remove, mkdir, rmdir, utime,
    glob, globfree, lstat,
    dlopen, dlclose, dlsym, realpath,
    pthread_create, pthread_key_create, pthread_key_delete,
    uname,
    TimeOfDay,
};

}  // namespace

const SSysCalls g_ovraRealSysCalls = kRealSysCalls;

SSysCalls g_ovraSysCalls = kRealSysCalls;
