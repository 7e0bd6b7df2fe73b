#include "C/PlatformHandle.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"

/// A stream with one listener.
struct quillmar_subscription_listener : quillmar::Counted {
  quillmar::platform::InProcessSubscriptionUpdates stream;
};

namespace quillmar {

namespace {

using UpdatesTable = std::shared_ptr<const Table<quillmar_subscription_updates>>;

class TableSubscription final : public platform::SubscriptionStatusSubscription {
 public:
  TableSubscription(UpdatesTable table, std::shared_ptr<SubscriptionStatusSubscription> inner) noexcept
      : table_(std::move(table)), inner_(std::move(inner)) {}
  ~TableSubscription() override { unsubscribe(); }
  TableSubscription(const TableSubscription&) = delete;
  TableSubscription& operator=(const TableSubscription&) = delete;

  void subscribe(quillmar_subscription_listener* listener) {
    hosts_ = table_->call<&quillmar_subscription_updates::subscribe>(listener);
    subscribed_ = true;
  }
  void next(Callback callback) override { inner_->next(std::move(callback)); }
  void cancel() noexcept override {
    inner_->cancel();
    unsubscribe();
  }

 private:
  void unsubscribe() noexcept {
    if (subscribed_.exchange(false)) {
      table_->callIfThere<&quillmar_subscription_updates::unsubscribe>(hosts_);
    }
  }

  const UpdatesTable table_;
  const std::shared_ptr<SubscriptionStatusSubscription> inner_;
  void* hosts_ = nullptr;
  std::atomic<bool> subscribed_{false};
};

class TableUpdates final : public platform::SubscriptionStatusUpdates {
 public:
  std::shared_ptr<platform::SubscriptionStatusSubscription> subscribe() override {
    auto listener = std::make_unique<quillmar_subscription_listener>();
    auto subscription = std::make_shared<TableSubscription>(table, listener->stream.subscribe());
    subscription->subscribe(listener.release());
    return subscription;
  }

  UpdatesTable table;
};

std::optional<platform::PlatformError> platformErrorOf(const char* text) {
  return text != nullptr ? std::optional(platform::PlatformError{text}) : std::nullopt;
}

}  // namespace

}  // namespace quillmar

using namespace quillmar;

quillmar_status quillmar_subscription_listener_post(quillmar_subscription_listener* listener,
                                                    const quillmar_subscription_update* update) {
  const auto known = received(update);
  if (listener == nullptr || !known) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    const quillmar_subscription_update& given = *known;
    platform::SubscriptionStatusUpdate status;
    status.transaction = {given.transaction_identifier, orEmpty(given.transaction_json),
                          platformErrorOf(given.transaction_error)};
    status.renewalInfo = {orEmpty(given.renewal_info_json), platformErrorOf(given.renewal_info_error)};
    status.renewalState = given.renewal_state;
    listener->stream.post(status);
    return QUILLMAR_OK;
  });
}
void quillmar_subscription_listener_end(quillmar_subscription_listener* listener) {
  if (listener != nullptr) {
    statusOf([&] {
      listener->stream.end();
      return QUILLMAR_OK;
    });
  }
}
void quillmar_subscription_listener_retain(quillmar_subscription_listener* listener) {
  retain(listener);
}
void quillmar_subscription_listener_release(quillmar_subscription_listener* listener) {
  release(listener);
}

quillmar_status quillmar_platform_set_subscription_updates(quillmar_platform* platform,
                                                           const quillmar_subscription_updates* updates) {
  return setMember<TableUpdates>(platform, &platform::Platform::subscriptionUpdates, updates,
                                 &quillmar_subscription_updates::subscribe);
}
