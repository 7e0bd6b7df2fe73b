#pragma once

#include <memory>
#include <utility>

#include "Attribution/QuillmarASAAttributionCore.h"
#include "Delivery/OutboxUserProtocol.h"

namespace quillmar {

/// What the outbox of purchases keeps them for: the service alone.
class KeptPurchases final : public OutboxUserProtocol {
 public:
  explicit KeptPurchases(std::weak_ptr<QuillmarASAAttributionCore> core) noexcept : core_(std::move(core)) {}

  std::shared_ptr<void> lock() override { return core_.lock(); }
  bool mayTrack(std::uint64_t /*epoch*/) override { return false; }
  bool maySend(std::uint64_t epoch) override;
  bool mayStore() override;
  bool accept(const Intake::Event& /*event*/) override { return false; }
  std::error_code track(const std::vector<TrackedEvent>& /*events*/, Tails /*tails*/) override { return {}; }
  void tracked(std::uint64_t /*epoch*/, const std::string& /*name*/) override {}
  void send(std::uint64_t epoch, OutboxRecord record, Done done) override;

 private:
  static Task<void> deliver(std::weak_ptr<QuillmarASAAttributionCore> weak,
                            std::shared_ptr<EventsRepositoryProtocol> repository, OutboxRecord record, Done done,
                            Activity activity);

  const std::weak_ptr<QuillmarASAAttributionCore> core_;
};

}  // namespace quillmar
