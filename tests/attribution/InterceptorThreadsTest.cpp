#include <gmock/gmock.h>

#include <atomic>
#include <thread>

#include "Attribution/PurchaseInterceptor.h"
#include "Platform/Posix/ThreadPoolExecutor.h"
#include "support/AttributionHarness.h"

// On real threads: what these tests are for shows under ThreadSanitizer.

namespace quillmar::test {
namespace {

using platform::ThreadPoolExecutor;

constexpr std::chrono::seconds longEnough(30);  // nothing that is expected to happen takes so long

/// Takes a detour over the pool for each purchase and sees whether it is alone.
class DetouringProcessor : public PurchaseProcessorProtocol {
 public:
  explicit DetouringProcessor(std::shared_ptr<platform::Executor> executor) : executor_(std::move(executor)) {}

  Task<void> processPurchase(platform::SubscriptionTransaction transaction, platform::SubscriptionRenewalInfo,
                             std::int64_t) override {
    mostAtATime = std::max(mostAtATime.load(), ++atATime_);
    std::function<void(std::function<void(bool)>)> detour = [executor = executor_](std::function<void(bool)> done) {
      executor->post([done = std::move(done)] { done(true); });
    };
    co_await awaitCallback<bool>(std::move(detour));
    seen.push_back(transaction.identifier);
    --atATime_;
  }

  std::vector<std::uint64_t> seen;  // read it when nothing is in flight
  std::atomic<int> mostAtATime{0};

 private:
  const std::shared_ptr<platform::Executor> executor_;
  std::atomic<int> atATime_{0};
};

class PurchaseInterceptorThreads : public ::testing::Test {
 protected:
  std::shared_ptr<PurchaseInterceptor> makeInterceptor() {
    return std::make_shared<PurchaseInterceptor>(processor, updates, pool, activity);
  }
  static Task<void> call(std::shared_ptr<PurchaseInterceptor> interceptor, bool start, Activity) {
    Task<void> task = start ? interceptor->startListeningForPurchases() : interceptor->stopListeningForPurchases();
    interceptor.reset();
    co_await std::move(task);
  }
  void start(const std::shared_ptr<PurchaseInterceptor>& interceptor, bool start = true) {
    spawn(pool, call(interceptor, start, Activity(activity)));
  }
  bool waitUntilIdle() const { return activity->waitUntilIdle(deadlineAfter(longEnough)); }

  std::shared_ptr<ThreadPoolExecutor> pool = std::make_shared<ThreadPoolExecutor>(2);
  std::shared_ptr<DetouringProcessor> processor = std::make_shared<DetouringProcessor>(pool);
  std::shared_ptr<platform::InProcessSubscriptionUpdates> updates =
      std::make_shared<platform::InProcessSubscriptionUpdates>();
  std::shared_ptr<ActivityCounter> activity = std::make_shared<ActivityCounter>();
};

TEST_F(PurchaseInterceptorThreads, updatesOfSeveralThreadsAreHandledOneAtATimeInTheirOrder) {
  const auto interceptor = makeInterceptor();
  start(interceptor);
  ASSERT_TRUE(waitUntilIdle());
  constexpr std::uint64_t count = 300;
  const auto postFrom = [this](std::uint64_t first) {
    for (std::uint64_t i = 0; i < count; ++i) {
      updates->post(subscriptionUpdate(first + i));
    }
  };
  std::thread other(postFrom, 1000);
  postFrom(0);
  other.join();
  ASSERT_TRUE(waitUntilIdle());
  EXPECT_EQ(processor->mostAtATime, 1);
  ASSERT_EQ(processor->seen.size(), 2 * count);
  std::uint64_t next[] = {0, 1000};
  for (const std::uint64_t identifier : processor->seen) {
    EXPECT_EQ(identifier, next[identifier >= 1000 ? 1 : 0]++);
  }
}

TEST_F(PurchaseInterceptorThreads, restartingLeavesOneListenerAndDestroyingNone) {
  for (int round = 0; round < 100; ++round) {
    auto interceptor = makeInterceptor();
    start(interceptor);
    updates->post(subscriptionUpdate(1));
    start(interceptor);
    updates->post(subscriptionUpdate(2));
    if (round % 3 == 0) {  // stopped by itself, and then destroyed at rest
      start(interceptor, false);
    } else if (round % 3 == 1) {
      ASSERT_TRUE(waitUntilIdle());
      EXPECT_EQ(updates->listeners(), 1u);
      updates->post(subscriptionUpdate(3));
    }
    interceptor.reset();  // also while an update is being sent, or the listener is being started
    ASSERT_TRUE(waitUntilIdle());
    EXPECT_EQ(updates->listeners(), 0u);
  }
}

TEST(AttributionThreads, facadeIsSwitchedWhileUpdatesArrive) {
  AttributionHarness host;
  Quillmar::setUseMock(true);  // the mock answers on any thread
  auto platform = host.simulated.platform();
  platform.executor = std::make_shared<ThreadPoolExecutor>(2);
  host.make(platform);
  const auto toggle = [&] {
    for (int i = 0; i < 50; ++i) {
      host.attribution->enableASAAttributionTracking();
      host.simulated.subscriptionUpdates->post(subscriptionUpdate(1));
      host.attribution->disableASAAttributionTracking();
    }
  };
  std::thread other(toggle);
  toggle();
  other.join();
  host.attribution->disableASAAttributionTracking();
  EXPECT_TRUE(host.attribution->drain(longEnough));
  EXPECT_EQ(host.listeners(), 0u);
}

}  // namespace
}  // namespace quillmar::test
