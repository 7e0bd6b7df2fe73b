#pragma once

#include <memory>
#include <utility>

#include "Delivery/OutboxUserProtocol.h"
#include "Facade/QuillmarCore.h"

namespace quillmar {

/// What the outbox of an instance keeps events for: the pipeline.
class KeptEvents final : public OutboxUserProtocol {
 public:
  explicit KeptEvents(std::weak_ptr<QuillmarCore> core) noexcept : core_(std::move(core)) {}

  std::shared_ptr<void> lock() override { return core_.lock(); }
  bool mayTrack(std::uint64_t epoch) override;
  bool maySend(std::uint64_t epoch) override;
  bool mayStore() override;
  bool accept(const Intake::Event& event) override;
  std::error_code track(const std::vector<TrackedEvent>& events, Tails tails) override;
  void tracked(std::uint64_t epoch, const std::string& name) override;
  void send(std::uint64_t epoch, OutboxRecord record, Done done) override;

 private:
  QuillmarCore::Life life(std::uint64_t epoch) const { return {core_, epoch}; }

  const std::weak_ptr<QuillmarCore> core_;
  // As they were when tracking was last allowed; touched on the outbox's executor only.
  std::optional<Window> window_;
  std::shared_ptr<const ConversionValues> configuration_;
};

}  // namespace quillmar
