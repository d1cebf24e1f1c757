// ovra_demo - the library at work: it starts with a counting allocator, three
// worker threads post progress messages to the main thread's message loop,
// which prints them and ends on the quit message carrying the workers' result.
#include <stdio.h>
#include <stdlib.h>

#include <atomic>

#include "Ovra.h"
#include "OvraMem.h"
#include "OvraMessage.h"
#include "OvraSync.h"
#include "OvraThread.h"

namespace {

std::atomic<long> g_allocs{0};
std::atomic<long> g_frees{0};
void* CountingAlloc(size_t size) { ++g_allocs; return malloc(size); }
void* CountingRealloc(void* p, size_t size) { if (!p) ++g_allocs; return realloc(p, size); }
void CountingFree(void* p) { if (p) ++g_frees; free(p); }

constexpr int kWorkers = 3;
constexpr int kSteps = 4;

unsigned int g_progressId = 0;  // identifiers are requested before threads start
long g_workersLeft = kWorkers;  // changed with the library's atomic counters
long g_total = 0;

struct WorkerArgs {
  int index;
  int result;
};

// Each worker sums a slice of numbers, reporting every step to the loop.
int Worker(void* arg) {
  WorkerArgs* args = static_cast<WorkerArgs*>(arg);
  OvraInitialize(nullptr);  // every thread brackets its life with a pair
  long sum = 0;
  for (int step = 1; step <= kSteps; ++step) {
    for (int n = 1; n <= 1000; ++n) sum += n * (args->index + 1);
    TThread::Sleep(5);
    OvraPostMessage(g_progressId, reinterpret_cast<void*>(static_cast<intptr_t>(args->index)),
                    reinterpret_cast<void*>(static_cast<intptr_t>(step)));
  }
  args->result = static_cast<int>(sum);
  if (OvraAtomicDecrement(&g_workersLeft) == 0) {
    // The last worker to finish ends the loop; the quit code is unused here.
    OvraPostQuitMessage(reinterpret_cast<void*>(static_cast<intptr_t>(kWorkers)));
  }
  OvraUninitialize();
  return args->index;
}

void OnProgress(unsigned int, void* worker, void* step) {
  printf("worker %d: step %d of %d\n", static_cast<int>(reinterpret_cast<intptr_t>(worker)),
         static_cast<int>(reinterpret_cast<intptr_t>(step)), kSteps);
}

}  // namespace

int main() {
  SAllocator allocator = {CountingAlloc, CountingRealloc, CountingFree, nullptr, nullptr};
  if (!OvraInitialize(&allocator)) {
    fprintf(stderr, "ovra_demo: the library did not start\n");
    return 1;
  }
  printf("library started with a counting allocator\n");

  g_progressId = OvraRequestMessageId();
  OvraRegisterMessageCallback(g_progressId, OnProgress);

  WorkerArgs args[kWorkers];
  TThread* threads[kWorkers];
  for (int i = 0; i < kWorkers; ++i) {
    args[i] = {i, 0};
    threads[i] = OvraCreateThread(Worker, &args[i], false);
    if (!threads[i]) {
      fprintf(stderr, "ovra_demo: cannot start worker %d\n", i);
      return 1;
    }
  }

  const int finished = OvraMessageLoop();  // runs until the quit message
  printf("message loop ended: %d workers finished\n", finished);

  for (int i = 0; i < kWorkers; ++i) {
    int exitCode = -1;
    threads[i]->WaitForExit(&exitCode);
    delete threads[i];
    printf("worker %d exited with %d and computed %d\n", i, exitCode, args[i].result);
    g_total += args[i].result;
  }
  printf("workers' result: %ld\n", g_total);

  OvraUnregisterMessageCallback(g_progressId);
  OvraUninitialize();
  printf("library stopped: %ld allocations and %ld frees went through the application's hooks\n",
         g_allocs.load(), g_frees.load());
  return g_allocs.load() == g_frees.load() ? 0 : 1;
}
