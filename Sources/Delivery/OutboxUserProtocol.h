#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "Delivery/Intake.h"
#include "Delivery/OutboxRecord.h"
#include "Delivery/SendResult.h"
#include "quillmar/platform/UserDefaults.h"

namespace quillmar {

/// What an outbox keeps things for. `epoch` is the one that the work began in; what a reset has overtaken does nothing.
/// Called on the outbox's executor.
class OutboxUserProtocol {
 public:
  using Tails = std::vector<platform::UserDefaults::DataTail>;
  using Done = std::function<void(SendResult)>;

  virtual ~OutboxUserProtocol() = default;

  /// Keeps it alive; null when it has gone.
  virtual std::shared_ptr<void> lock() = 0;

  /// Whether events may go into the history now.
  virtual bool mayTrack(std::uint64_t epoch) = 0;

  /// Whether the service may be asked now.
  virtual bool maySend(std::uint64_t epoch) = 0;

  // These are called with the epoch's lock held.

  /// False: nothing may be stored, and what was given to be kept is forgotten.
  virtual bool mayStore() = 0;

  /// An event whose call could not be looked at before. False: it is not to be kept.
  virtual bool accept(const Intake::Event& event) = 0;

  /// Puts events into the history, and tails into their values, in one step.
  virtual std::error_code track(const std::vector<TrackedEvent>& events, Tails tails) = 0;

  /// Events have come into the history; the last one has that name.
  virtual void tracked(std::uint64_t epoch, const std::string& name) = 0;

  /// Sends one record. Calls `done` once, on the outbox's executor, also inside this call, or destroys it; then the
  /// record is sent again when the outbox is next woken.
  virtual void send(std::uint64_t epoch, OutboxRecord record, Done done) = 0;
};

}  // namespace quillmar
