// OVRA_NO_THREAD_SANITIZER: leaves a function uninstrumented by
// ThreadSanitizer. Instrumented functions call into the sanitizer's runtime on
// entry, on exit and for each memory access, and those calls are not safe to
// stop at an arbitrary instruction: an asynchronous cancel that lands in one
// unwinds through a frame that ends the process. The thread start routine and
// TThread::ThreadProc, the library's only code that runs while asynchronous
// cancellation is on, carry it. Private to the library.
#ifndef OVRA_NO_SANITIZE_H
#define OVRA_NO_SANITIZE_H

#if defined(__SANITIZE_THREAD__)
#define OVRA_NO_THREAD_SANITIZER __attribute__((no_sanitize_thread))
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
// clang's no_sanitize("thread") still calls the runtime on entry and exit.
#define OVRA_NO_THREAD_SANITIZER __attribute__((disable_sanitizer_instrumentation))
#endif
#endif
#ifndef OVRA_NO_THREAD_SANITIZER
#define OVRA_NO_THREAD_SANITIZER
#endif

#endif  // OVRA_NO_SANITIZE_H
