#include "Platform/Apple/FoundationNotificationCenter.h"

#import <Foundation/Foundation.h>

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "Platform/Apple/Strong.h"

namespace quillmar::platform {

namespace {

/// A registration; removed when it goes.
struct Registration {
  struct Observer {
    explicit Observer(std::function<void()> function) : callback(std::move(function)) {}
    const std::function<void()> callback;
    std::atomic<bool> removed{false};
  };

  Registration(NSString* name, std::function<void()> callback)
      : observer(std::make_shared<Observer>(std::move(callback))), token(observe(name, observer)) {}
  ~Registration() {
    observer->removed = true;  // also for one whose turn comes in a notification that is going on
    @autoreleasepool {
      [[NSNotificationCenter defaultCenter] removeObserver:token.get()];
    }
  }
  Registration(const Registration&) = delete;
  Registration& operator=(const Registration&) = delete;

  static NSObject* observe(NSString* name, const std::shared_ptr<Observer>& observer) {
    const std::shared_ptr<Observer> captured = observer;  // a block would capture the reference
    id const token = [[NSNotificationCenter defaultCenter] addObserverForName:name
                                                                       object:nil
                                                                        queue:nil
                                                                   usingBlock:^(NSNotification*) {
                                                                     // The block may go while it runs.
                                                                     const auto alive = captured;
                                                                     if (!alive->removed) {
                                                                       alive->callback();
                                                                     }
                                                                   }];
    return token;
  }

  const std::shared_ptr<Observer> observer;
  const Strong<NSObject> token;
};

}  // namespace

struct FoundationNotificationCenter::State {
  std::mutex mutex;
  ObserverId lastObserver = 0;
  std::map<ObserverId, std::unique_ptr<Registration>> observers;
};

FoundationNotificationCenter::FoundationNotificationCenter() : state_(std::make_unique<State>()) {}

FoundationNotificationCenter::~FoundationNotificationCenter() = default;

NotificationCenter::ObserverId FoundationNotificationCenter::addObserver(Notification notification,
                                                                         std::function<void()> callback) {
  @autoreleasepool {
    auto registration = std::make_unique<Registration>(notification == Notification::sceneDidActivate
                                                           ? @"UISceneDidActivateNotification"
                                                           : @"UIApplicationDidBecomeActiveNotification",
                                                       std::move(callback));
    const std::lock_guard lock(state_->mutex);
    state_->observers.emplace(++state_->lastObserver, std::move(registration));
    return state_->lastObserver;
  }
}

void FoundationNotificationCenter::removeObserver(ObserverId observer) noexcept {
  std::unique_lock lock(state_->mutex);
  const auto removed = state_->observers.extract(observer);
  lock.unlock();  // what the callback owns is destroyed outside the lock
}

}  // namespace quillmar::platform
