// OvraSysCallAccess.h - what the test build of the library (libovra_faults.so,
// ovra_faults.dll on Windows) adds to the library's interface: the
// system-call table the platform half calls through, and a scope that swaps
// one entry for a stand-in.
#ifndef OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H
#define OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H

#if defined(_WIN32)
#include "Win32/OvraSysCalls.h"
// The system's header names its wide calls through these macros, which would
// rename TFile's members of the same names in every test that includes this.
#undef CreateDirectory
#undef RemoveDirectory
// The library's objects keep their own exports; only these two are added.
// OvraSysCallAccess.cpp defines them and exports them, the tests import them.
#if defined(OVRA_FAULTS_BUILDING)
#define OVRA_FAULTS_ACCESS __declspec(dllexport)
#else
#define OVRA_FAULTS_ACCESS __declspec(dllimport)
#endif
#else
#include "Unix/OvraSysCalls.h"
// The library is built with hidden visibility: these two must be seen.
#define OVRA_FAULTS_ACCESS __attribute__((visibility("default")))
#endif

// The table in use; entries changed here take effect at once.
extern "C" OVRA_FAULTS_ACCESS SSysCalls* OvraTestSysCalls();
// The real functions, to put entries back.
extern "C" OVRA_FAULTS_ACCESS const SSysCalls* OvraTestRealSysCalls();

namespace ovra_test {

// Replaces one entry of the table for the lifetime of the scope:
//   ScopedSysCall failing(&SSysCalls::fopen, FailingFopen);
// and puts back the entry it replaced, so that scopes nest (a fixture's
// stand-in stays in place after a test's own inner one ends). A stand-in
// that should reach the system after all calls OvraTestRealSysCalls()'s entry.
template <typename Function>
class ScopedSysCall {
 public:
  ScopedSysCall(Function SSysCalls::*entry, Function standIn)
      : entry_(entry), previous_(OvraTestSysCalls()->*entry) {
    OvraTestSysCalls()->*entry_ = standIn;
  }
  ~ScopedSysCall() { OvraTestSysCalls()->*entry_ = previous_; }
  ScopedSysCall(const ScopedSysCall&) = delete;
  ScopedSysCall& operator=(const ScopedSysCall&) = delete;

 private:
  Function SSysCalls::*entry_;
  Function previous_;
};

}  // namespace ovra_test

#endif
