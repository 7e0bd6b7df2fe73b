#include "Platform/Apple/FoundationUserDefaultsProvider.h"

#import <Foundation/Foundation.h>

#include <system_error>
#include <utility>

#include "Platform/Apple/FoundationUserDefaults.h"
#include "Platform/Apple/Strong.h"

namespace quillmar::platform {

FoundationUserDefaultsProvider::FoundationUserDefaultsProvider(const std::string& folder,
                                                               SqliteUserDefaults::Report report,
                                                               std::function<bool()> isReadable)
    : isReadable_(std::move(isReadable)), beside_(folder, std::move(report)) {}

std::shared_ptr<UserDefaults> FoundationUserDefaultsProvider::openSuite(const std::string& name) {
  @autoreleasepool {
    requireReadable();
    const std::lock_guard lock(mutex_);
    if (const auto found = open_.find(name); found != open_.end()) {
      return found->second;
    }
    NSString* const suite = foundationText(name);
    NSUserDefaults* const defaults =
        suite == nil ? nil : autoreleased([[NSUserDefaults alloc] initWithSuiteName:suite]);
    if (defaults == nil) {
      return nullptr;
    }
    std::shared_ptr<UserDefaults> beside = beside_.openSuite(name);
    if (!beside) {
      beside = beside_.standard();
    }
    return open_[name] = std::make_shared<FoundationUserDefaults>(defaults, std::move(beside));
  }
}

std::shared_ptr<UserDefaults> FoundationUserDefaultsProvider::standard() {
  @autoreleasepool {
    requireReadable();
    const std::lock_guard lock(mutex_);
    if (!standard_) {
      standard_ = std::make_shared<FoundationUserDefaults>([NSUserDefaults standardUserDefaults], beside_.standard());
    }
    return standard_;
  }
}

void FoundationUserDefaultsProvider::requireReadable() const {
  if (!isReadable_()) {
    throw std::system_error(std::make_error_code(std::errc::operation_not_permitted),
                            "the device has not been unlocked since it started");
  }
}

}  // namespace quillmar::platform
