// Message passing: producer threads post 200,000 messages into the message
// loop of the benchmark thread, against the same program written over
// std::mutex, std::condition_variable and std::deque with the same callback
// lookup per message.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <time.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Ovra.h"
#include "OvraMessage.h"

namespace {

constexpr int kMessages = 200000;
constexpr unsigned int kQuit = 0xFFFFFFFFu;

std::atomic<long> s_received{0};

// CPU time of every thread of the process, in seconds: less disturbed than
// the elapsed time when other programs share the processors.
double ProcessCpuSeconds() {
  timespec now;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// Reports the process CPU time per message next to the elapsed time.
void ReportCpu(benchmark::State& state, double cpuSeconds) {
  if (state.iterations() == 0) return;
  state.counters["cpu_ns_per_msg"] =
      cpuSeconds * 1e9 / (static_cast<double>(state.iterations()) * kMessages);
}

void Count(unsigned int, void* param1, void*) {
  s_received.fetch_add(reinterpret_cast<intptr_t>(param1), std::memory_order_relaxed);
}

// Runs `producers` threads that share kMessages posts, then one more thread
// that waits for them and posts the quit message, while the calling thread
// runs `loop`.
template <class Post, class PostQuit, class Loop>
void Run(int producers, Post post, PostQuit postQuit, Loop loop) {
  std::vector<std::thread> threads;
  for (int p = 0; p < producers; ++p) {
    threads.emplace_back([=] {
      for (int i = p; i < kMessages; i += producers) post();
    });
  }
  std::thread closer([&] {
    for (auto& t : threads) t.join();
    postQuit();
  });
  loop();
  closer.join();
}

void MessagesOvra(benchmark::State& state, int producers) {
  if (!OvraInitialize(nullptr)) {
    state.SkipWithError("start-up failed");
    return;
  }
  const unsigned int id = OvraRequestMessageId();
  OvraRegisterMessageCallback(id, Count);
  const double cpuStart = ProcessCpuSeconds();
  for (auto _ : state) {
    s_received = 0;
    Run(
        producers, [id] { OvraPostMessage(id, reinterpret_cast<void*>(1), nullptr); },
        [] { OvraPostQuitMessage(nullptr); }, [] { OvraMessageLoop(); });
    if (s_received != kMessages) state.SkipWithError("messages lost");
  }
  OvraUnregisterMessageCallback(id);
  OvraReleaseMessageId(id);
  OvraUninitialize();
  ReportCpu(state, ProcessCpuSeconds() - cpuStart);
  state.SetItemsProcessed(state.iterations() * kMessages);
}

struct SRefMessage {
  unsigned int id;
  void* param1;
  void* param2;
};

// The queue and loop a caller would write with the standard library.
struct TRefQueue {
  std::mutex lock;
  std::condition_variable available;
  std::deque<SRefMessage> messages;
  std::unordered_map<unsigned int, void (*)(unsigned int, void*, void*)> callbacks;

  void Post(unsigned int id, void* param1, void* param2) {
    {
      std::lock_guard<std::mutex> guard(lock);
      messages.push_back(SRefMessage{id, param1, param2});
    }
    available.notify_one();
  }

  void Loop() {
    for (;;) {
      SRefMessage message;
      {
        std::unique_lock<std::mutex> guard(lock);
        available.wait(guard, [this] { return !messages.empty(); });
        message = messages.front();
        messages.pop_front();
      }
      if (message.id == kQuit) return;
      auto it = callbacks.find(message.id);
      if (it != callbacks.end()) it->second(message.id, message.param1, message.param2);
    }
  }
};

void MessagesRef(benchmark::State& state, int producers) {
  TRefQueue queue;
  const unsigned int id = 1;
  queue.callbacks[id] = Count;
  const double cpuStart = ProcessCpuSeconds();
  for (auto _ : state) {
    s_received = 0;
    Run(
        producers, [&queue] { queue.Post(id, reinterpret_cast<void*>(1), nullptr); },
        [&queue] { queue.Post(kQuit, nullptr, nullptr); }, [&queue] { queue.Loop(); });
    if (s_received != kMessages) state.SkipWithError("messages lost");
  }
  ReportCpu(state, ProcessCpuSeconds() - cpuStart);
  state.SetItemsProcessed(state.iterations() * kMessages);
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("Messages/1producer/ovra", MessagesOvra, 1)->UseRealTime();
  benchmark::RegisterBenchmark("Messages/1producer/ref", MessagesRef, 1)->UseRealTime();
  benchmark::RegisterBenchmark("Messages/2producers/ovra", MessagesOvra, 2)->UseRealTime();
  benchmark::RegisterBenchmark("Messages/2producers/ref", MessagesRef, 2)->UseRealTime();
  return 0;
}();

}  // namespace
