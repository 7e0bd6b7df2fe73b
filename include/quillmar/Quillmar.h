#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "quillmar/ASEventParam.h"
#include "quillmar/ConversionTrackingManagerProtocol.h"
#include "quillmar/ConversionValuesRepositoryProtocol.h"
#include "quillmar/Decision.h"
#include "quillmar/EventServerLogRepositoryProtocol.h"
#include "quillmar/Export.h"
#include "quillmar/Health.h"
#include "quillmar/LogLevel.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/VerificationKeyRepositoryProtocol.h"
#include "quillmar/platform/Platform.h"

namespace quillmar {

class QuillmarCore;

/// How many events went which way, since the instance was made.
struct QuillmarStatistics {
  std::uint64_t sent = 0;     ///< calls of `sendEvent`
  std::uint64_t dropped = 0;  ///< refused: the service switched the library off, there is no consent, or no memory
  std::uint64_t parked = 0;   ///< waiting for the configuration, or for consent, right now
  std::uint64_t logged = 0;   ///< accepted by the event service
  std::uint64_t failed = 0;   ///< could not be logged to the event service; with `reliableDelivery`: attempts
  // The following are counted with `QuillmarOptions::reliableDelivery`.
  std::uint64_t kept = 0;       ///< written to the outbox
  std::uint64_t unsent = 0;     ///< in the outbox right now; until a part of it is read, a full part is assumed
  std::uint64_t refused = 0;    ///< dropped because the service refused them for good
  std::uint64_t expired = 0;    ///< dropped because they were 36 days old
  std::uint64_t displaced = 0;  ///< dropped because too many waited
};

/// Where the instance stands.
struct QuillmarState {
  /// The current postback window, 0...2; nothing when the event window has expired.
  std::optional<int> window;
  /// The app's identifier as the service confirmed it; nothing before the first configuration.
  std::optional<std::string> appId;
  bool enabled = true;               ///< the service's switch
  bool verificationKeyValid = true;  ///< false after too many failures in a row
  std::uint64_t kept = 0;            ///< events in the outbox; see `QuillmarStatistics::unsent`
};

/// Reports app events to the event service and keeps the platform's conversion value up to date.
///
/// Call `configure` once at start-up and `sendEvent` for each event. No function throws, and none but `reset`,
/// `clearTrackedEvents`, `revokeConsent`, `drain`, `state` and `health` waits for a disk or a network: the work is done
/// on the platform's executor. What happens is told in the log only. All functions may be called from any thread.
///
/// The library works in the process that called it first. In a child that this process forks off, all functions of
/// all instances do nothing and give what an unused instance gives, until the child calls exec.
class QUILLMAR_API Quillmar {
 public:
  /// The instance of the process, made at the first call over `platform::sharedPlatform()`.
  static std::shared_ptr<Quillmar> shared() noexcept;

  /// Replaces the instance of the process; null makes the next `shared()` build a new one.
  static void setShared(std::shared_ptr<Quillmar> instance) noexcept;

  /// An instance of its own over the given settings store. It shares only the counters of failures with the others.
  /// From now on the log goes to the platform's sink. Does no I/O. Use `QuillmarFactory` or `shared()`: the constructor
  /// throws `std::invalid_argument`, with a text that names what is missing, for a null store or a platform without one
  /// of its members, and `std::bad_alloc`.
  Quillmar(std::shared_ptr<platform::UserDefaults> userDefaults, platform::Bundle bundle,
           const platform::Platform& platform);
  ~Quillmar();
  Quillmar(const Quillmar&) = delete;
  Quillmar& operator=(const Quillmar&) = delete;

  /// Copied into the log's threshold by the next `configure`; off at first.
  /// @{
  LogLevel logLevel() const noexcept;
  void setLogLevel(LogLevel level) noexcept;
  /// @}

  /// Chooses what goes beyond the usual behaviour. Before the first event and `configure`; what was begun by then goes
  /// on as it was.
  void setOptions(const QuillmarOptions& options) noexcept;

  /// The user agrees, as `QuillmarOptions::requireConsent` wants it. What was called before begins now, in its order.
  /// Nothing about it is stored. Call it at each start, or `revokeConsent`. An erasure that was cut off is finished
  /// first.
  void grantConsent() noexcept;

  /// The user does not agree, or no longer: everything stops, here and in `QuillmarASAAttribution`, and everything that
  /// is stored is erased, the install identifier, the files and what is in an outbox included. Then nothing works until
  /// `grantConsent`, after which `configure` begins a new install. What was handed to the network or to the platform is
  /// not called back. It does so with `QuillmarOptions::requireConsent` or without. Call it at each start without
  /// consent, too: it finishes an erasure that the end of the process cut off. Erases on the calling thread, and waits
  /// for what is being written.
  void revokeConsent() noexcept;

  /// Starts the library with the key that the event service knows the app by. Returns at once.
  ///
  /// On the first run the install identifier and the date are recorded. When the first run lies more than 37 days
  /// back, the library stays off. May be called again, with another key too.
  void configure(std::string_view verificationKey) noexcept;

  /// Reports an event. Returns at once; the event is copied and handled on the platform's executor, in the order of
  /// the calls. Bytes that are not UTF-8 become U+FFFD. An event that comes before the configuration has been
  /// fetched waits for it, in memory.
  /// @{
  void sendEvent(std::string_view event) noexcept;
  void sendEvent(std::string_view event, EventParameters params) noexcept;
  /// @}

  /// For hosts that deliver activations themselves: fetches the configuration again if it is an hour old.
  /// On Apple systems: the selectors of the two UIKit notifications.
  /// @{
  void applicationDidBecomeActive() noexcept;
  void sceneDidActivate() noexcept;
  /// @}

  /// Back to the unconfigured state. The first-run date and the install identifier are kept; what the service sent
  /// and the tracked events are forgotten. Whatever was begun before ends without effect: `configure`, a fetch, events
  /// on their way, events in the outbox. Writes the settings store on the calling thread.
  void reset() noexcept;

  /// Forgets the tracked events. Writes the settings store on the calling thread.
  void clearTrackedEvents() noexcept;

  /// The key of the last `configure`; empty before.
  std::string quillmarVerificationKey() const noexcept;

  /// True once `configure` has found the first run recent enough.
  bool isInitialized() const noexcept;

  /// True once a fetch of the conversion values has succeeded, or is under way, in this process.
  /// @{
  bool hasFetchedConversionValues() const noexcept;
  void setHasFetchedConversionValues(bool fetched) noexcept;
  /// @}

  /// While `paused`, no request is begun: for a network that is constrained or expensive, or that the user wants left
  /// alone. What is under way goes on. What would be sent is held back, without a time-out and without counting as
  /// failed, and begins in its order when the pause ends. An event that is not kept by
  /// `QuillmarOptions::reliableDelivery` waits with all that follows its log, the conversion value too. `reset` forgets
  /// what is held back, and the pause goes on; `drain` and `waitUntilDelivered` wait for it, until their time is over,
  /// and say so in the log. May be called before `configure`. Search ads and purchases have a pause of their own:
  /// `QuillmarASAAttribution::setNetworkPaused`.
  void setNetworkPaused(bool paused) noexcept;

  /// Waits until the service has accepted every event sent so far, for at most `timeout`. True when it has. False when
  /// the time is over, or as soon as waiting cannot help: an event failed or was dropped, or is parked and no fetch of
  /// the configuration is under way. When `QuillmarOptions::reliableDelivery` is on, until the outbox is empty,
  /// attempts that are yet to come included. For command-line hosts, before they exit; not for the main thread of an
  /// app.
  bool waitUntilDelivered(std::chrono::milliseconds timeout) noexcept;

  /// Waits until no event, request or platform call of this instance is in flight, for at most `timeout`; true when
  /// none is. That says nothing about success: a fetch that waits for its next attempt is not waited for, nor are
  /// events that are parked, or in the outbox for a later attempt. Inside a callback of the library it waits for
  /// itself, until the time is over. For tests.
  bool drain(std::chrono::milliseconds timeout) noexcept;

  /// The counts so far.
  QuillmarStatistics statistics() const noexcept;

  /// May open the settings store on the calling thread. Without consent that is needed, tells of nothing stored.
  QuillmarState state() const noexcept;

  /// Where each event is, and what is wrong. May open the settings store on the calling thread.
  QuillmarHealth health() const noexcept;

  /// Replaceable collaborators. The repositories are null until `configure` has built them, and each `configure` builds
  /// them anew.
  /// @{
  std::shared_ptr<ConversionValuesRepositoryProtocol> conversionValuesRepository() const noexcept;
  void setConversionValuesRepository(std::shared_ptr<ConversionValuesRepositoryProtocol> repository) noexcept;
  std::shared_ptr<VerificationKeyRepositoryProtocol> verificationKeyRepository() const noexcept;
  void setVerificationKeyRepository(std::shared_ptr<VerificationKeyRepositoryProtocol> repository) noexcept;
  std::shared_ptr<EventServerLogRepositoryProtocol> eventServerLogRepository() const noexcept;
  void setEventServerLogRepository(std::shared_ptr<EventServerLogRepositoryProtocol> repository) noexcept;
  std::shared_ptr<ConversionTrackingManagerProtocol> conversionTrackingManager() const noexcept;
  void setConversionTrackingManager(std::shared_ptr<ConversionTrackingManagerProtocol> manager) noexcept;
  /// @}

  /// Observes what becomes of each event from now on, and why; null: nobody does. Called on the event queue, one call
  /// at a time, when the event has left the pipeline: after the platform's answer, if it was sent. An event that a
  /// reset overtakes leaves no record. The records of earlier events may still come to the observer that was there
  /// before. What the observer throws is logged. Without one, nothing is recorded, and nothing costs anything.
  void setDecisionObserver(DecisionObserver observer) noexcept;

  /// Observes the health from now on; null: nobody does. Called on the event queue, one call at a time, a tenth of a
  /// second after the first of the changes that it is told of, once for all until then: an event ended otherwise than
  /// by its log, a fetch of the configuration failed or succeeded, the platform answered, the key became invalid, a
  /// reset came. `drain` does not wait for it. What the observer throws is logged.
  void setHealthObserver(QuillmarHealthObserver observer) noexcept;

  /// Answers every request with a built-in document instead of asking the service, and configures on the calling
  /// thread. The document is no answer to the configuration request: events stay parked. It shows that a host is wired
  /// up; a host's tests are better off with the simulated platform. Set it before `configure`.
  /// @{
  static bool useMock() noexcept;
  static void setUseMock(bool useMock) noexcept;
  /// @}

  /// Failures in a row to log an event, over all instances. At `maxConsecutiveFailures` the key counts as invalid.
  /// @{
  static std::int64_t consecutiveAPIFailures() noexcept;
  static void setConsecutiveAPIFailures(std::int64_t failures) noexcept;
  static constexpr std::int64_t maxConsecutiveFailures = 10;
  /// @}

  /// While true, no event is processed.
  /// @{
  static bool isVerificationKeyInvalid() noexcept;
  static void setIsVerificationKeyInvalid(bool invalid) noexcept;
  /// @}

  /// Sets the counters of failures back; `useMock` stays as it is.
  static void resetStaticState() noexcept;

 private:
  friend class QuillmarCore;
  std::shared_ptr<QuillmarCore> core_;  // null in a forked child
};

}  // namespace quillmar
