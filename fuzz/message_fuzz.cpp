// Drives the process message facility with operation sequences chosen by the
// input and checks every observable effect against a model of the documented
// behaviour:
//   - messages come out first in, first out, each exactly once, with their
//     identifier and both parameters, through OvraGetMessage,
//     OvraDispatchMessages, OvraMessageLoop and OvraGiveMessage;
//   - dispatching stops at the quit message, which is consumed and never
//     delivered (even when a callback is registered for its identifier), and
//     leaves later messages queued; a message without a callback is dropped;
//   - the loop returns the quit message's first parameter as an int;
//   - callbacks that post while being dispatched append behind what is
//     queued, and their messages are delivered in the same drain;
//   - the message-available callback runs exactly once for each post that
//     finds the queue empty, inside that post, with its registered data, and
//     never otherwise (not for posts to a non-empty queue, not after it was
//     cleared, not when a post fails, not at shutdown);
//   - a post fails only when an allocation failed, and then changes nothing;
//     registration fails only for a taken identifier or a failed allocation;
//   - shutting down with messages queued frees them undelivered, after which
//     posting and getting fail and the loop returns 0 until start-up;
//   - allocation balance: a shutdown gives back every block except the
//     callback registry's; an empty queue may keep records for reuse, but
//     never more blocks than the longest backlog it has held had messages,
//     and no more than at its last empty moment unless a longer backlog came
//     in between (so nothing leaks from one burst to the next).
// The loop is entered only when the model shows it will reach a quit message
// before the queue runs dry, since a wait on an empty queue would block.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdint.h>

#include <deque>
#include <map>
#include <vector>

#include "FuzzAllocator.h"
#include "FuzzSupport.h"
#include "Ovra.h"
#include "OvraMessage.h"

using namespace ovra_fuzz;

namespace {

struct Msg {
  unsigned id;
  void* param1;
  void* param2;
  bool operator==(const Msg& o) const {
    return id == o.id && param1 == o.param1 && param2 == o.param2;
  }
};

// Identifiers used: 0, four ordinary ones and the quit identifier.
const unsigned kIds[] = {0u, 1u, 2u, 3u, 77u, kQuitMessageId};
constexpr int kIdCount = 6;

void* P(uintptr_t v) { return reinterpret_cast<void*>(v); }
uintptr_t U(void* p) { return reinterpret_cast<uintptr_t>(p); }

// What a chaining callback posts for message m, if anything: the second
// parameter is a depth; above 0 the callback posts one follow-up of depth one
// less, to an identifier picked from the first parameter (sometimes quit).
bool FollowUp(const Msg& m, Msg& out) {
  const uintptr_t depth = U(m.param2) & 3;
  if (depth == 0) return false;
  const uintptr_t seed = U(m.param1);
  out.id = kIds[(seed * 7 + depth) % kIdCount];
  out.param1 = P((seed * 3 + 1) % 1000);
  out.param2 = P(depth - 1);
  return true;
}

// --- the observations -----------------------------------------------------------

enum CallbackKind { kRecord = 0, kChain = 1 };

struct Event {
  int kind;  // 0 delivered to a record callback, 1 to a chain callback, 2 available callback
  Msg msg;   // the message (delivery), or {0, data, serial of the post} (available)
  bool operator==(const Event& o) const { return kind == o.kind && msg == o.msg; }
};

std::vector<Event> g_events;         // what the library did
unsigned long g_postSerial = 0;      // numbers every post the harness makes
unsigned long g_postInProgress = 0;  // the post now running, 0 outside posts
bool g_postFromCallbackFailed = false;

bool Post(const Msg& m) {
  const unsigned long outer = g_postInProgress;
  g_postInProgress = ++g_postSerial;
  const bool ok = OvraPostMessage(m.id, m.param1, m.param2);
  g_postInProgress = outer;
  return ok;
}

void RecordCallback(unsigned id, void* p1, void* p2) {
  g_events.push_back({kRecord, {id, p1, p2}});
}

void ChainCallback(unsigned id, void* p1, void* p2) {
  const Msg m{id, p1, p2};
  g_events.push_back({kChain, m});
  Msg next;
  if (FollowUp(m, next) && !Post(next)) g_postFromCallbackFailed = true;
}

int g_availableData[2];

void AvailableCallback(void* data) {
  FUZZ_CHECK(g_postInProgress != 0);  // only ever inside a post
  g_events.push_back({2, {0, data, P(g_postInProgress)}});
}

// --- the model ---------------------------------------------------------------------

struct Model {
  bool up = false;
  std::deque<Msg> queue;
  std::map<unsigned, int> callbacks;  // identifier -> CallbackKind
  bool available = false;
  void* availableData = nullptr;
  unsigned long postSerial = 0;
  std::vector<Event> events;
  size_t peak = 0;  // the longest backlog of the current queue

  bool Post(const Msg& m) {
    const unsigned long serial = ++postSerial;
    if (!up) return false;
    const bool wasEmpty = queue.empty();
    queue.push_back(m);
    if (queue.size() > peak) peak = queue.size();
    if (wasEmpty && available) events.push_back({2, {0, availableData, P(serial)}});
    return true;
  }
  bool Give(const Msg& m) {
    auto it = callbacks.find(m.id);
    if (it == callbacks.end()) return false;
    events.push_back({it->second, m});
    Msg next;
    if (it->second == kChain && FollowUp(m, next)) Post(next);
    return true;
  }
  // Takes the head; false when empty or down.
  bool Get(Msg& m) {
    if (!up || queue.empty()) return false;
    m = queue.front();
    queue.pop_front();
    return true;
  }
  void Dispatch() {
    Msg m;
    while (Get(m) && m.id != kQuitMessageId) Give(m);
  }
  // Whether the loop would meet a quit message before the queue runs dry,
  // found on a copy of the model.
  bool LoopEnds() const {
    Model copy = *this;
    Msg m;
    for (int guard = 0; guard < 100000; ++guard) {
      if (!copy.Get(m)) return false;
      if (m.id == kQuitMessageId) return true;
      copy.Give(m);
    }
    return false;
  }
  // Runs the loop; returns its result.
  int Loop() {
    Msg m{0, nullptr, nullptr};
    while (Get(m) && m.id != kQuitMessageId) Give(m);
    return static_cast<int>(static_cast<intptr_t>(U(m.param1)));
  }
};

void CheckEvents(const Model& model) {
  FUZZ_CHECK(g_events.size() == model.events.size());
  for (size_t i = 0; i < g_events.size(); ++i) FUZZ_CHECK(g_events[i] == model.events[i]);
  FUZZ_CHECK(g_postSerial == model.postSerial);
}

Msg MakeMessage(FuzzedDataProvider& in) {
  Msg m;
  m.id = kIds[in.ConsumeIntegralInRange<int>(0, kIdCount - 1)];
  m.param1 = P(in.ConsumeIntegralInRange<int>(0, 2) == 0
                   ? static_cast<uintptr_t>(static_cast<intptr_t>(in.ConsumeIntegral<int>()))
                   : in.ConsumeIntegralInRange<uintptr_t>(0, 999));
  m.param2 = P(in.ConsumeIntegralInRange<uintptr_t>(0, 3));
  return m;
}

// The blocks an empty queue keeps beyond a new one's, checked as the header
// comment above says; `last` and `lastPeak` carry the previous empty moment.
void CheckEmptyQueueBalance(const Model& model, long emptyLive, long& last, size_t& lastPeak) {
  const long extra = AllocStats().live - emptyLive;
  FUZZ_CHECK(extra >= 0);
  FUZZ_CHECK(extra <= static_cast<long>(model.peak));
  if (model.peak == lastPeak) FUZZ_CHECK(extra <= last);
  last = extra;
  lastPeak = model.peak;
}

long StartUp(Model& model) {
  SAllocator allocator = FuzzAllocator();
  FUZZ_CHECK(OvraInitialize(&allocator));
  model.up = true;
  model.queue.clear();
  model.available = false;  // a new queue has no available callback
  model.availableData = nullptr;
  model.peak = 0;
  return AllocStats().live;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  g_events.clear();
  g_postSerial = 0;
  g_postInProgress = 0;
  g_postFromCallbackFailed = false;
  Model model;
  FUZZ_CHECK(AllocStats().live == 0);
  // Blocks held with the queue empty: the start-up's own and the registry's.
  long emptyLive = StartUp(model);
  long lastExtra = 0;   // blocks kept by the empty queue at its last empty moment
  size_t lastPeak = 0;  // the backlog peak then
  long registryLive = 0;

  for (int step = 0; step < 200 && in.remaining_bytes() > 0; ++step) {
    switch (in.ConsumeIntegralInRange<int>(0, 11)) {
      case 0:
      case 1:
      case 2: {  // post, sometimes with an allocation failing
        const Msg m = MakeMessage(in);
        const bool fail = model.up && in.ConsumeIntegralInRange<int>(0, 4) == 0;
        FailNthRequest(fail ? in.ConsumeIntegralInRange<int>(1, 2) : 0);
        OperationAllocs allocs;
        const long liveBefore = AllocStats().live;
        const bool ok = Post(m);
        FailNthRequest(0);
        if (!ok && model.up) {
          FUZZ_CHECK(allocs.Failed());  // no other reason to fail
          FUZZ_CHECK(AllocStats().live == liveBefore);
          ++model.postSerial;  // numbered, but nothing else happens
        } else {
          FUZZ_CHECK(ok == model.Post(m));
        }
        break;
      }
      case 3: {  // get without waiting
        unsigned id = 12345;
        void* p1 = P(1);
        void* p2 = P(2);
        Msg expect;
        const bool has = model.Get(expect);
        FUZZ_CHECK(OvraGetMessage(&id, &p1, &p2) == has);
        if (has) {
          FUZZ_CHECK((Msg{id, p1, p2} == expect));
        } else {
          FUZZ_CHECK(id == 12345 && p1 == P(1) && p2 == P(2));  // outputs untouched
        }
        break;
      }
      case 4: {
        OvraDispatchMessages();
        model.Dispatch();
        break;
      }
      case 5: {  // the blocking loop, when it is sure to end
        if (model.up && !model.LoopEnds()) break;
        const int result = OvraMessageLoop();
        FUZZ_CHECK(result == (model.up ? model.Loop() : 0));
        break;
      }
      case 6: {  // give at once, bypassing the queue
        const Msg m = MakeMessage(in);
        FUZZ_CHECK(OvraGiveMessage(m.id, m.param1, m.param2) == model.Give(m));
        break;
      }
      case 7: {                // register, sometimes with an allocation failing
        if (!model.up) break;  // the registry's memory must come from this allocator
        const unsigned id = kIds[in.ConsumeIntegralInRange<int>(0, kIdCount - 1)];
        const int kind = in.ConsumeIntegralInRange<int>(0, 1);
        const bool fail = in.ConsumeIntegralInRange<int>(0, 3) == 0;
        FailNthRequest(fail ? in.ConsumeIntegralInRange<int>(1, 3) : 0);
        OperationAllocs allocs;
        const long liveBefore = AllocStats().live;
        const bool ok =
            OvraRegisterMessageCallback(id, kind == kRecord ? RecordCallback : ChainCallback);
        FailNthRequest(0);
        const bool taken = model.callbacks.count(id) != 0;
        if (taken) {
          FUZZ_CHECK(!ok);
        } else if (!ok) {
          FUZZ_CHECK(allocs.Failed());
          FUZZ_CHECK(AllocStats().live == liveBefore);
        } else {
          model.callbacks[id] = kind;
        }
        registryLive += AllocStats().live - liveBefore;
        emptyLive += AllocStats().live - liveBefore;
        break;
      }
      case 8: {
        if (!model.up) break;
        const unsigned id = kIds[in.ConsumeIntegralInRange<int>(0, kIdCount - 1)];
        const long liveBefore = AllocStats().live;
        OvraUnregisterMessageCallback(id);
        model.callbacks.erase(id);
        registryLive += AllocStats().live - liveBefore;
        emptyLive += AllocStats().live - liveBefore;
        if (model.callbacks.empty()) FUZZ_CHECK(registryLive == 0);  // the registry is freed
        break;
      }
      case 9: {  // set or clear the available callback
        const int choice = in.ConsumeIntegralInRange<int>(0, 2);
        void* d = choice == 2 ? nullptr : &g_availableData[choice];
        if (in.ConsumeIntegralInRange<int>(0, 2) == 0) {
          OvraSetMessageAvailableCallback(nullptr, nullptr);
          if (model.up) model.available = false;
        } else {
          OvraSetMessageAvailableCallback(AvailableCallback, d);
          if (model.up) {
            model.available = true;
            model.availableData = d;
          }
        }
        break;
      }
      case 10: {  // lookups
        for (unsigned id : kIds) {
          const OvraMessageCallback cb = OvraLookupMessageCallback(id);
          auto it = model.callbacks.find(id);
          if (it == model.callbacks.end()) {
            FUZZ_CHECK(cb == nullptr);
          } else {
            FUZZ_CHECK(cb == (it->second == kRecord ? RecordCallback : ChainCallback));
          }
        }
        break;
      }
      default: {  // shut down, with whatever is queued, and maybe start again
        if (model.up) {
          OvraUninitialize();
          model.up = false;
          model.queue.clear();  // freed undelivered
          FUZZ_CHECK(AllocStats().live == registryLive);
        }
        if (in.ConsumeBool()) {
          emptyLive = StartUp(model);
          lastExtra = 0;
          lastPeak = 0;
        }
        break;
      }
    }
    // A callback's post fails only while the library is down.
    FUZZ_CHECK(!g_postFromCallbackFailed || !model.up);
    g_postFromCallbackFailed = false;
    CheckEvents(model);
    if (model.up && model.queue.empty())
      CheckEmptyQueueBalance(model, emptyLive, lastExtra, lastPeak);
  }

  // Drain what is left and compare it, then leave no callback and no block.
  if (model.up) {
    unsigned id;
    void* p1;
    void* p2;
    Msg expect;
    while (model.Get(expect)) {
      FUZZ_CHECK(OvraGetMessage(&id, &p1, &p2));
      FUZZ_CHECK((Msg{id, p1, p2} == expect));
    }
    FUZZ_CHECK(!OvraGetMessage(&id, &p1, &p2));
    CheckEmptyQueueBalance(model, emptyLive, lastExtra, lastPeak);
  } else {
    StartUp(model);
  }
  for (unsigned i : kIds) OvraUnregisterMessageCallback(i);
  OvraUninitialize();
  CheckEvents(model);
  FUZZ_CHECK(AllocStats().live == 0);
  return 0;
}
