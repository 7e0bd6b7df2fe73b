#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>

#include "support/FacadeHarness.h"

// Replaces the allocation functions of the whole executable; sanitizers bring their own, so this is for the plain row.

namespace {

/// Which allocations of this thread fail: `count` in a row, from the `first` on. 0: none.
struct Shortage {
  std::size_t first = 0;
  std::size_t count = 0;
  std::size_t allocations = 0;
};
thread_local Shortage shortage;

bool isShort() {
  if (shortage.first == 0) {
    return false;
  }
  ++shortage.allocations;
  return shortage.allocations >= shortage.first && shortage.allocations - shortage.first < shortage.count;
}

void* allocate(std::size_t size) {
  void* const memory = isShort() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}

/// Asio takes the frames of coroutines from here.
extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  void* memory = nullptr;
  return isShort() || ::posix_memalign(&memory, alignment, size) != 0 ? nullptr : memory;
}

namespace quillmar::test {
namespace {

using Step = void (*)(FacadeHarness&, EventParameters&);

void start(FacadeHarness& host, EventParameters&) {
  host.quillmar->configure("the-key");
  host.settle();
}

void sendPurchase(FacadeHarness& host, EventParameters& params) {
  host.quillmar->sendEvent("purchase", std::move(params));
  host.settle();
}

/// Does one step of a host while memory is short, and further ones when it is not. Returns how many allocations the
/// step took.
std::size_t live(Step step, std::size_t first, std::size_t count) {
  FacadeHarness host;
  if (step != start) {
    host.configure();
    host.send("session");
  }
  EventParameters params{{ASEventParam::revenue, 20}};
  shortage = {first, count, 0};
  step(host, params);
  const std::size_t allocations = shortage.allocations;
  shortage = {};

  // Whatever became of the step, nothing hangs and what comes next is done.
  EXPECT_TRUE(host.quillmar->drain(std::chrono::milliseconds(0)));
  if (step == start) {
    host.configure();
  }
  host.send("next");
  host.advance(std::chrono::seconds(120));
  EXPECT_TRUE(host.quillmar->drain(std::chrono::milliseconds(0)));
  host.send("last");
  std::vector<std::string> history;
  for (const TrackedEvent& event : host.core().eventTracker()->getAllTrackedEvents()) {
    history.push_back(event.name);
  }
  const auto tracked = [&history](const char* name) { return std::count(history.begin(), history.end(), name); };
  EXPECT_EQ(tracked("session"), step == start ? 0 : 1);
  EXPECT_LE(tracked("purchase"), 1);
  EXPECT_EQ(tracked("next"), 1);
  EXPECT_EQ(tracked("last"), 1);
  EXPECT_EQ(host.eventNames().back(), "last");
  return allocations;
}

TEST(AllocationFailure, aStepIsDoneOrDroppedAndTheNextOneIsDone) {
  for (const auto& [name, step] : {std::pair<const char*, Step>{"event", sendPurchase}, {"start", start}}) {
    const std::size_t allocations = live(step, ~std::size_t{0}, 0);
    ASSERT_GT(allocations, 100U);
    for (const std::size_t count : {std::size_t{1}, std::size_t{2}, ~std::size_t{0}}) {
      for (std::size_t first = 1; first <= allocations; ++first) {
        SCOPED_TRACE(testing::Message() << name << ": allocation " << first << " of " << allocations << ", " << count
                                        << " in a row");
        live(step, first, count);
        if (HasFailure()) {
          return;
        }
      }
    }
  }
}

}  // namespace
}  // namespace quillmar::test
