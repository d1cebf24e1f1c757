// OvraSysCallAccess.h - what the test build of the library (libovra_faults.so,
// ovra_faults.dll on Windows) adds to the library's interface: the
// system-call table the platform half calls through, a scope that swaps one
// entry for a stand-in, and one stand-in for the entries that only fail.
#ifndef OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H
#define OVRA_TESTS_FAULTS_OVRASYSCALLACCESS_H

#include <errno.h>

#include <type_traits>
#include <utility>

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

template <auto Entry>
class SysFailure;

// The error a failing stand-in leaves where its caller looks for it: errno
// (every POSIX call, and the C runtime's streams on Windows too), the
// thread's last error (Windows' own calls), or nowhere, for the calls whose
// result is the whole report (an error number returned, a status, a null
// handle with the loader's own message).
class SysError {
 public:
  void Set() const {
    if (kind_ == Kind::kErrno) errno = static_cast<int>(code_);
#if defined(_WIN32)
    if (kind_ == Kind::kLastError) SetLastError(static_cast<DWORD>(code_));
#endif
  }

 private:
  enum class Kind { kNone, kErrno, kLastError };
  SysError(Kind kind, unsigned long code) : kind_(kind), code_(code) {}
  friend SysError ResultOnly();
  friend SysError Errno(int code);
#if defined(_WIN32)
  friend SysError LastError(DWORD code);
#endif
  Kind kind_;
  unsigned long code_;  // an errno value or a DWORD: both fit
};

// Leaves errno and the last error as they were.
inline SysError ResultOnly() { return SysError(SysError::Kind::kNone, 0); }
// Sets errno to code.
inline SysError Errno(int code) { return SysError(SysError::Kind::kErrno, code); }
#if defined(_WIN32)
// Sets the thread's last error to code.
inline SysError LastError(DWORD code) { return SysError(SysError::Kind::kLastError, code); }
#endif

// Replaces one entry of the table for the lifetime of the scope:
//   ScopedSysCall failing(&SSysCalls::fopen, FailingFopen);
// and puts back the entry it replaced, so that scopes nest (a fixture's
// stand-in stays in place after a test's own inner one ends). A stand-in
// that should reach the system after all calls OvraTestRealSysCalls()'s entry.
// A stand-in that only fails is described by a SysFailure instead:
//   const SysFailure<&SSysCalls::fopen> FailingFopen{s_calls, Errno(EMFILE), nullptr};
//   ScopedSysCall failing(FailingFopen);
template <typename Function>
class ScopedSysCall {
 public:
  ScopedSysCall(Function SSysCalls::*entry, Function standIn)
      : entry_(entry), previous_(OvraTestSysCalls()->*entry) {
    OvraTestSysCalls()->*entry_ = standIn;
  }
  // Makes failure's entry fail as it describes. The failure in force before
  // (an outer scope's, of the same entry) is chosen before the entry is
  // swapped, since another thread may call it at once, and comes back with
  // the entry.
  template <auto Entry>
  explicit ScopedSysCall(const SysFailure<Entry>& failure)
      : entry_(Entry),
        previous_(OvraTestSysCalls()->*Entry),
        previousFailure_(SysFailure<Entry>::Choose(&failure)),
        restoreFailure_(&SysFailure<Entry>::Restore) {
    OvraTestSysCalls()->*entry_ = SysFailure<Entry>::kStandIn;
  }
  ~ScopedSysCall() {
    OvraTestSysCalls()->*entry_ = previous_;
    if (restoreFailure_) restoreFailure_(previousFailure_);
  }
  ScopedSysCall(const ScopedSysCall&) = delete;
  ScopedSysCall& operator=(const ScopedSysCall&) = delete;

 private:
  Function SSysCalls::*entry_;
  Function previous_;
  // Set only for a SysFailure: the failure to put back, of erased type so
  // that scopes of every entry with the same signature share one class.
  const void* previousFailure_ = nullptr;
  void (*restoreFailure_)(const void*) = nullptr;
};

template <auto Entry>
ScopedSysCall(const SysFailure<Entry>&) -> ScopedSysCall<typename SysFailure<Entry>::Function>;

// The entry's signature, taken apart so that one stand-in fits every entry.
template <typename Member>
struct SysCallSignature;

template <typename R, typename... Args>
struct SysCallSignature<R (*SSysCalls::*)(Args...)> {
  using Result = R;
  // Has the shape of the entry and does what Failure's chosen one says.
  template <typename Failure>
  static R StandIn(Args...) {
    return Failure::Fail();
  }
};

// A stand-in for one entry that only fails: each call counts itself in
// counter, leaves error (see SysError) and returns result, the entry's
// failure value. Kept at namespace scope and put in place by ScopedSysCall;
// one entry can have several (several errors of the same call), the innermost
// scope's is the one in force.
template <auto Entry>
class SysFailure {
  using Signature = SysCallSignature<decltype(Entry)>;

 public:
  using Function = std::remove_reference_t<decltype(std::declval<SSysCalls&>().*Entry)>;
  using Result = typename Signature::Result;

  SysFailure(int& counter, SysError error, Result result)
      : counter_(&counter), error_(error), result_(result) {}
  SysFailure(const SysFailure&) = delete;
  SysFailure& operator=(const SysFailure&) = delete;

 private:
  friend Signature;
  template <typename>
  friend class ScopedSysCall;

  static constexpr Function kStandIn = &Signature::template StandIn<SysFailure>;

  // The failure in force, for the stand-in, which as a plain function
  // pointer carries nothing of its own.
  static const SysFailure*& Chosen() {
    static const SysFailure* chosen = nullptr;
    return chosen;
  }
  static const void* Choose(const SysFailure* failure) {
    const SysFailure* previous = Chosen();
    Chosen() = failure;
    return previous;
  }
  static void Restore(const void* previous) { Chosen() = static_cast<const SysFailure*>(previous); }

  static Result Fail() {
    const SysFailure& failure = *Chosen();
    ++*failure.counter_;
    failure.error_.Set();
    return failure.result_;
  }

  int* counter_;
  SysError error_;
  Result result_;
};

}  // namespace ovra_test

#endif
