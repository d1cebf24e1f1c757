// ovra_demo - starts the library with a counting allocator, hands a value from
// one thread to another under a TCondVar, and prints what happened.
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <thread>

#include "Ovra.h"
#include "OvraMem.h"
#include "OvraSync.h"

namespace {
std::atomic<long> g_allocs{0};
std::atomic<long> g_frees{0};

void* CountingAlloc(size_t size) { ++g_allocs; return malloc(size); }
void* CountingRealloc(void* p, size_t size) { ++g_allocs; return realloc(p, size); }
void CountingFree(void* p) { if (p) ++g_frees; free(p); }
}  // namespace

int main() {
  SAllocator allocator = {CountingAlloc, CountingRealloc, CountingFree, nullptr, nullptr};
  if (!OvraInitialize(&allocator)) {
    fprintf(stderr, "ovra_demo: the library did not start\n");
    return 1;
  }
  printf("library started with a counting allocator\n");

  TCondVar ready;
  ready.Init();
  long counter = 0;
  bool produced = false;
  int value = 0;

  std::thread producer([&] {
    ready.Lock();
    value = 42;
    produced = true;
    OvraAtomicIncrement(&counter);
    ready.Signal();
    ready.Unlock();
  });

  ready.Lock();
  while (!produced) ready.Wait(-1);  // the predicate guards against lost signals
  ready.Unlock();
  producer.join();
  ready.Term();
  printf("received %d from another thread; counter is %ld\n", value, counter);

  void* block = OvraMemAlloc(128);
  OvraMemFree(block);
  OvraUninitialize();
  printf("library stopped: %ld allocations and %ld frees went through the application's hooks\n",
         g_allocs.load(), g_frees.load());
  return 0;
}
