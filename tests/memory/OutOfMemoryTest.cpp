#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "support/FacadeHarness.h"

// Replaces the allocation functions of this program, so that any one of them can be made to fail.

namespace {

/// How many allocations from now on the first is that fails; 0 for none. One thread only.
long countdown = 0;
/// How many more fail behind it.
long further = 0;
bool failed = false;

void* allocate(std::size_t size, std::size_t alignment) {
  if (countdown > 0 ? --countdown == 0 : further > 0 && further-- > 0) {
    failed = true;
    throw std::bad_alloc();
  }
  const std::size_t whole = (std::max<std::size_t>(size, 1) + alignment - 1) / alignment * alignment;
  void* const memory = std::aligned_alloc(alignment, whole);
  return memory != nullptr ? memory : throw std::bad_alloc();
}

}  // namespace

// The others, those for arrays and with a size, call these.
void* operator new(std::size_t size) {
  return allocate(size, alignof(std::max_align_t));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}

namespace quillmar::test {
namespace {

/// Lets the n-th allocation of `act` fail, and some behind it, for each n, with a host of its own; afterwards the host
/// must be well.
void failEachAllocation(const char* what, const std::function<void(FacadeHarness&)>& act) {
  for (const long inARow : {1L, 2L, 1'000'000L}) {
    int failures = 0;
    for (long n = 1;; ++n) {
      SCOPED_TRACE(testing::Message() << what << ", " << inARow << " from allocation " << n);
      FacadeHarness host;
      host.configure();
      host.send("session");
      host.advance(std::chrono::hours(2));  // an activation fetches again
      const auto before = host.quillmar->statistics();
      failed = false;
      countdown = n;
      further = inARow - 1;
      bool escaped = false;
      try {
        act(host);
      } catch (const std::bad_alloc&) {
        escaped = true;
      }
      countdown = further = 0;
      EXPECT_FALSE(escaped) << "nothing gets out of the library";
      EXPECT_TRUE(host.quillmar->drain(std::chrono::seconds(0))) << "nothing is left hanging";
      host.advance(std::chrono::hours(2));
      const auto fetches = host.configRequests();
      host.quillmar->sceneDidActivate();
      host.settle();
      EXPECT_GT(host.configRequests(), fetches) << "a fetch that was dropped is not under way for ever";
      host.send("after");
      EXPECT_TRUE(host.core().eventTracker()->areEventsCompleted({"session", "after"}));
      EXPECT_GT(host.quillmar->statistics().logged, before.logged);
      const QuillmarHealth health = host.quillmar->health();
      EXPECT_EQ(sumOf(health), health.sent) << "what was dropped is counted as well";
      EXPECT_EQ(health.queued + health.underWay, 0u);
      if (!failed || testing::Test::HasFailure()) {
        break;
      }
      ++failures;
    }
    EXPECT_GT(failures, 10);
  }
}

TEST(OutOfMemory, aCallComesToNothingAtWorstAndTheNextOnesWork) {
  failEachAllocation("sendEvent", [](FacadeHarness& host) { host.send("purchase"); });
  failEachAllocation("sendEvent, reliably", [](FacadeHarness& host) {
    host.quillmar->setOptions({.reliableDelivery = true});
    host.send("purchase");
    host.advance(std::chrono::seconds(1));
  });
  failEachAllocation("configure", [](FacadeHarness& host) { host.configure(); });
  failEachAllocation("activation", [](FacadeHarness& host) { host.activate(); });
}

}  // namespace
}  // namespace quillmar::test
