// OvraSysCallAccess.h - what the test build of the library (libovra_faults.so)
// adds to the library's interface: the system-call table the POSIX half calls
// through, and a scope that swaps one entry for a stand-in.
#ifndef OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H
#define OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H

#include "Unix/OvraSysCalls.h"

// The table in use; entries changed here take effect at once.
extern "C" __attribute__((visibility("default"))) SSysCalls* OvraTestSysCalls();
// The real functions, to put entries back.
extern "C" __attribute__((visibility("default"))) const SSysCalls* OvraTestRealSysCalls();

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
