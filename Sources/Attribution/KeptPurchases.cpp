#include "Attribution/KeptPurchases.h"

#include "Logging/ErrorDescription.h"
#include "Logging/Log.h"
#include "Settings/EnabledFlag.h"

namespace quillmar {

bool KeptPurchases::maySend(std::uint64_t /*epoch*/) {
  const auto core = core_.lock();
  return core && core->eventsRepository() && isSDKEnabled(*core->userDefaults_);
}

bool KeptPurchases::mayStore() {
  const auto core = core_.lock();
  return core && !core->consent_->isDenied();
}

void KeptPurchases::send(std::uint64_t /*epoch*/, OutboxRecord record, Done done) {
  const auto core = core_.lock();
  if (auto repository = core ? core->eventsRepository() : nullptr) {
    spawn(core->outboxExecutor_,
          deliver(core_, std::move(repository), std::move(record), std::move(done), Activity(core->activity_)));
  }
}

Task<void> KeptPurchases::deliver(std::weak_ptr<QuillmarASAAttributionCore> weak,
                                  std::shared_ptr<EventsRepositoryProtocol> repository, OutboxRecord record, Done done,
                                  [[maybe_unused]] Activity activity) {
  std::exception_ptr failure;
  try {
    co_await repository->send(std::move(record.document));
  } catch (...) {
    failure = std::current_exception();
  }
  const auto core = weak.lock();
  if (!core) {
    co_return;
  }
  SendResult outcome;
  if (failure) {
    outcome = resultOf(failure, core->platform_.clock->now());
    Log::error("PurchaseProcessor - Failed to send data to server: {}", localizedDescription(failure));
  } else {
    core->counters_->sent.fetch_add(1, std::memory_order_relaxed);
    Log::debug("PurchaseProcessor - Purchase data sent successfully to server");
  }
  done(std::move(outcome));
}

}  // namespace quillmar
