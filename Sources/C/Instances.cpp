#include <cstring>

#include "C/InstanceHandle.h"
#include "Platform/PlatformMembers.h"
#include "quillmar/Logger.h"
#include "quillmar/QuillmarASAAttribution.h"
#include "quillmar/QuillmarFactory.h"

struct quillmar_attribution : quillmar::Counted {
  std::shared_ptr<quillmar::QuillmarASAAttribution> object;
};

namespace quillmar {

namespace {

static_assert(static_cast<int>(LogLevel::off) == QUILLMAR_LOG_OFF &&
              static_cast<int>(LogLevel::error) == QUILLMAR_LOG_ERROR &&
              static_cast<int>(LogLevel::debug) == QUILLMAR_LOG_DEBUG &&
              static_cast<int>(LogLevel::info) == QUILLMAR_LOG_INFO);

/// A handle of what `make` gives; null when memory runs out.
template <class Handle, class Make>
Handle* makeHandle(Make make) noexcept {
  Handle* made = nullptr;
  statusOf([&] {
    auto handle = std::make_unique<Handle>();
    handle->object = make();
    made = handle->object ? handle.release() : nullptr;
    return QUILLMAR_OK;
  });
  return made;
}

template <class Handle, class Make>
quillmar_status create(const quillmar_platform* platform, Handle** result, Make make) noexcept {
  if (platform == nullptr || result == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    const platform::Platform members = membersOf(*platform);
    Handle* const handle = makeHandle<Handle>([&] { return make(members); });
    if (handle == nullptr) {
      return platform::missingMember(members) ? QUILLMAR_ERROR_INVALID_ARGUMENT : QUILLMAR_ERROR_OUT_OF_MEMORY;
    }
    *result = handle;
    return QUILLMAR_OK;
  });
}

/// Calls the object of a handle, if there is one.
template <class Handle, class Body>
quillmar_status with(Handle* handle, Body body) noexcept {
  if (handle == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    body(*handle->object);
    return QUILLMAR_OK;
  });
}

template <class Handle, class Result, class Get>
Result valueOf(Handle* handle, Result otherwise, Get get) noexcept {
  with(handle, [&](auto& object) { otherwise = get(object); });
  return otherwise;
}

std::optional<EventValue> valueOf(const quillmar_parameter& parameter) {
  switch (parameter.type) {
    case QUILLMAR_VALUE_BOOLEAN: {
      unsigned char byte = 0;  // other languages have other bytes for true, which C++ must not read as a bool
      std::memcpy(&byte, &parameter.value, sizeof byte);
      return byte != 0;
    }
    case QUILLMAR_VALUE_INTEGER:
      return parameter.value.integer;
    case QUILLMAR_VALUE_NUMBER:
      return parameter.value.number;
    case QUILLMAR_VALUE_TEXT:
      return parameter.value.text != nullptr ? std::optional<EventValue>(parameter.value.text) : std::nullopt;
    default:
      return std::nullopt;
  }
}

/// Nothing when one of them cannot be taken.
std::optional<EventParameters> parametersOf(const quillmar_parameter* given, std::size_t count) {
  EventParameters parameters;
  for (std::size_t i = 0; i < count; ++i) {
    const auto name = eventParamFromRawValue(orEmpty(given[i].name));
    auto value = valueOf(given[i]);
    if (!name || !value || !parameters.emplace(*name, *std::move(value)).second) {
      return std::nullopt;
    }
  }
  return parameters;
}

template <class Handle>
quillmar_status setOptions(Handle* handle, const quillmar_options* given) noexcept {
  const auto chosen = received(given);
  if (!chosen || chosen->history_days < 0 ||
      (chosen->drop != QUILLMAR_DROP_OLDEST && chosen->drop != QUILLMAR_DROP_NEWEST)) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  QuillmarOptions options;
  options.reliableDelivery = chosen->reliable_delivery;
  options.liveAttribution = chosen->live_attribution;
  options.updateBothNetworks = chosen->update_both_networks;
  options.strictSwitch = chosen->strict_switch;
  options.useStoredConfiguration = chosen->use_stored_configuration;
  options.onlyCompleteHalves = chosen->only_complete_halves;
  options.honourSingleBounds = chosen->honour_single_bounds;
  options.neverSendLower = chosen->never_send_lower;
  options.currentWindowOnly = chosen->current_window_only;
  options.skipRepeatedUpdates = chosen->skip_repeated_updates;
  options.skipRepeatedLocks = chosen->skip_repeated_locks;
  options.platformWindows = chosen->platform_windows;
  options.requireConsent = chosen->require_consent;
  options.eventsHeldForConsent = chosen->events_held_for_consent;
  options.limits.parkedEvents = chosen->max_parked_events;
  options.limits.queuedEvents = chosen->max_queued_events;
  options.limits.eventBytes = chosen->max_event_bytes;
  options.limits.historyDays = chosen->history_days;
  options.limits.drop = static_cast<QuillmarLimits::Drop>(chosen->drop);
  options.sendUserAgent = chosen->send_user_agent;
  return with(handle, [&](auto& object) { object.setOptions(options); });
}

static_assert(static_cast<int>(QuillmarLimits::Drop::newest) == QUILLMAR_DROP_NEWEST &&
              static_cast<int>(Decision::Answer::success) == QUILLMAR_ANSWER_SUCCESS &&
              static_cast<int>(Decision::Answer::failure) == QUILLMAR_ANSWER_FAILURE &&
              static_cast<int>(QuillmarASAAttributionHealth::State::stored) == QUILLMAR_ATTRIBUTION_STORED);

quillmar_health forC(const QuillmarHealth& health) noexcept {
  const auto seconds = [](const auto& event) {
    return event ? std::chrono::duration<double>(event->at.time_since_epoch()).count() : 0.0;
  };
  quillmar_health result{};
  result.size = sizeof result;
  result.configuration_age_seconds = health.configurationAge ? health.configurationAge->count() : -1;
  result.verification_key_valid = health.verificationKeyValid;
  result.failures_in_a_row = health.failuresInARow;
  result.unsent = health.unsent;
  result.last_logged_at = seconds(health.lastLogged);
  result.last_platform_call_at = seconds(health.lastPlatformCall);
  result.last_platform_answer =
      health.lastPlatformCall ? static_cast<quillmar_answer>(health.lastPlatformCall->answer) : QUILLMAR_ANSWER_NONE;
  result.sent = health.sent;
  result.inherited = health.inherited;
  result.queued = health.queued;
  result.under_way = health.underWay;
  result.parked = health.parked;
  result.kept = health.kept;
  using Result = quillmar_health;
  static constexpr std::uint64_t Result::* ended[] = {
      &Result::logged,      &Result::failed,       &Result::not_asked,    &Result::switched_off, &Result::no_consent,
      &Result::key_invalid, &Result::reset,        &Result::lost,         &Result::refused,      &Result::expired,
      &Result::displaced,   &Result::parked_limit, &Result::queued_limit, &Result::too_large};
  static_assert(std::size(ended) == eventEndCount);
  for (std::size_t i = 0; i < eventEndCount; ++i) {
    result.*ended[i] = health.ended[i];
  }
  return result;
}

std::string textOf(const QuillmarHealth& health, quillmar_health_text text) {
  const auto& call = health.lastPlatformCall;
  switch (text) {
    case QUILLMAR_HEALTH_FETCH_ERROR:
      return health.fetchError;
    case QUILLMAR_HEALTH_LOGGED_EVENT:
      return health.lastLogged ? health.lastLogged->name : "";
    case QUILLMAR_HEALTH_PLATFORM_CALL:
      return call ? call->interface : "";
    case QUILLMAR_HEALTH_PLATFORM_ERROR:
      return call ? call->error : "";
    default:
      return "";
  }
}

/// The whole range of the interface's numbers; the library bounds what a clock cannot count.
std::chrono::milliseconds timeout(std::int64_t milliseconds) noexcept {
  return std::chrono::milliseconds(std::max<std::int64_t>(milliseconds, 0));
}

}  // namespace

}  // namespace quillmar

using namespace quillmar;

quillmar_instance* quillmar_shared(void) {
  return makeHandle<quillmar_instance>([] { return Quillmar::shared(); });
}
void quillmar_set_shared(const quillmar_instance* instance) {
  Quillmar::setShared(instance != nullptr ? instance->object : nullptr);
}
quillmar_status quillmar_create(const quillmar_platform* platform, quillmar_instance** instance) {
  return create(platform, instance, [](const auto& members) { return QuillmarFactory::createQuillmar(members); });
}
void quillmar_retain(quillmar_instance* instance) {
  retain(instance);
}
void quillmar_release(quillmar_instance* instance) {
  release(instance);
}

quillmar_log_level quillmar_get_log_level(const quillmar_instance* instance) {
  return valueOf(instance, quillmar_log_level{QUILLMAR_LOG_OFF},
                 [](const Quillmar& object) { return static_cast<quillmar_log_level>(object.logLevel()); });
}
quillmar_status quillmar_set_log_level(quillmar_instance* instance, quillmar_log_level level) {
  const auto chosen = logLevelFromRawValue(level);
  return chosen ? with(instance, [&](Quillmar& object) { object.setLogLevel(*chosen); })
                : QUILLMAR_ERROR_INVALID_ARGUMENT;
}

quillmar_status quillmar_set_options(quillmar_instance* instance, const quillmar_options* options) {
  return setOptions(instance, options);
}
quillmar_status quillmar_configure(quillmar_instance* instance, const char* verification_key) {
  return verification_key != nullptr ? with(instance, [&](Quillmar& object) { object.configure(verification_key); })
                                     : QUILLMAR_ERROR_INVALID_ARGUMENT;
}

quillmar_status quillmar_send_event(quillmar_instance* instance, const char* event,
                                    const quillmar_parameter* parameters, size_t parameter_count) {
  if (instance == nullptr || event == nullptr || (parameters == nullptr && parameter_count > 0)) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    if (parameters == nullptr) {
      instance->object->sendEvent(event);
      return QUILLMAR_OK;
    }
    auto taken = parametersOf(parameters, parameter_count);
    if (!taken) {
      return QUILLMAR_ERROR_INVALID_ARGUMENT;
    }
    instance->object->sendEvent(event, *std::move(taken));
    return QUILLMAR_OK;
  });
}

quillmar_status quillmar_application_did_become_active(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.applicationDidBecomeActive(); });
}
quillmar_status quillmar_scene_did_activate(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.sceneDidActivate(); });
}
quillmar_status quillmar_grant_consent(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.grantConsent(); });
}
quillmar_status quillmar_revoke_consent(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.revokeConsent(); });
}
quillmar_status quillmar_reset(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.reset(); });
}
quillmar_status quillmar_clear_tracked_events(quillmar_instance* instance) {
  return with(instance, [](Quillmar& object) { object.clearTrackedEvents(); });
}

quillmar_status quillmar_set_network_paused(quillmar_instance* instance, bool paused) {
  return with(instance, [=](Quillmar& object) { object.setNetworkPaused(paused); });
}
bool quillmar_wait_until_delivered(quillmar_instance* instance, int64_t timeout_milliseconds) {
  return valueOf(instance, false,
                 [&](Quillmar& object) { return object.waitUntilDelivered(timeout(timeout_milliseconds)); });
}
bool quillmar_drain(quillmar_instance* instance, int64_t timeout_milliseconds) {
  return valueOf(instance, false, [&](Quillmar& object) { return object.drain(timeout(timeout_milliseconds)); });
}

quillmar_status quillmar_get_statistics(const quillmar_instance* instance, quillmar_statistics* statistics) {
  if (instance == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  const QuillmarStatistics now = instance->object->statistics();
  return hand(quillmar_statistics{0, now.sent, now.dropped, now.parked, now.logged, now.failed, now.kept, now.unsent,
                                  now.refused, now.expired, now.displaced},
              statistics);
}

quillmar_status quillmar_get_state(const quillmar_instance* instance, quillmar_state* state) {
  if (instance == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  const Quillmar& object = *instance->object;
  const QuillmarState now = object.state();
  return hand(quillmar_state{0, now.window.value_or(-1), object.isInitialized(), object.hasFetchedConversionValues(),
                             now.enabled, now.verificationKeyValid, now.kept},
              state);
}

quillmar_status quillmar_set_has_fetched_conversion_values(quillmar_instance* instance, bool fetched) {
  return with(instance, [&](Quillmar& object) { object.setHasFetchedConversionValues(fetched); });
}

quillmar_status quillmar_get_health(const quillmar_instance* instance, quillmar_health* health) {
  return instance != nullptr ? hand(forC(instance->object->health()), health) : QUILLMAR_ERROR_INVALID_ARGUMENT;
}
size_t quillmar_copy_health_text(const quillmar_instance* instance, quillmar_health_text text, char* buffer,
                                 size_t capacity) {
  const auto get = [text](const Quillmar& object) { return textOf(object.health(), text); };
  return copyText(valueOf(instance, std::string(), get), buffer, capacity);
}
quillmar_status quillmar_set_health_observer(quillmar_instance* instance, const quillmar_health_observer* observer) {
  if (observer == nullptr) {
    return with(instance, [](Quillmar& object) { object.setHealthObserver(nullptr); });
  }
  const auto functions = received(observer);
  if (instance == nullptr || !functions || functions->changed == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    const auto table = std::make_shared<const Table<quillmar_health_observer>>(*functions);
    instance->object->setHealthObserver([table](const QuillmarHealth& health) {
      const quillmar_health now = forC(health);
      table->call<&quillmar_health_observer::changed>(&now);
    });
    return QUILLMAR_OK;
  });
}

size_t quillmar_copy_app_id(const quillmar_instance* instance, char* buffer, size_t capacity) {
  const auto text = [](const Quillmar& object) { return object.state().appId.value_or(""); };
  return copyText(valueOf(instance, std::string(), text), buffer, capacity);
}
size_t quillmar_copy_verification_key(const quillmar_instance* instance, char* buffer, size_t capacity) {
  const auto text = [](const Quillmar& object) { return object.quillmarVerificationKey(); };
  return copyText(valueOf(instance, std::string(), text), buffer, capacity);
}

quillmar_log_level quillmar_logger_get_level(void) {
  return static_cast<quillmar_log_level>(Logger::logLevel());
}
quillmar_status quillmar_logger_set_level(quillmar_log_level level) {
  const auto chosen = logLevelFromRawValue(level);
  if (!chosen) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  Logger::setLogLevel(*chosen);
  return QUILLMAR_OK;
}

bool quillmar_get_use_mock(void) {
  return Quillmar::useMock();
}
void quillmar_set_use_mock(bool use_mock) {
  Quillmar::setUseMock(use_mock);
}
int64_t quillmar_get_consecutive_api_failures(void) {
  return Quillmar::consecutiveAPIFailures();
}
void quillmar_set_consecutive_api_failures(int64_t failures) {
  Quillmar::setConsecutiveAPIFailures(failures);
}
bool quillmar_get_verification_key_invalid(void) {
  return Quillmar::isVerificationKeyInvalid();
}
void quillmar_set_verification_key_invalid(bool invalid) {
  Quillmar::setIsVerificationKeyInvalid(invalid);
}
void quillmar_reset_static_state(void) {
  Quillmar::resetStaticState();
}

quillmar_attribution* quillmar_attribution_shared(void) {
  return makeHandle<quillmar_attribution>([] { return QuillmarASAAttribution::shared(); });
}
void quillmar_attribution_set_shared(const quillmar_attribution* attribution) {
  QuillmarASAAttribution::setShared(attribution != nullptr ? attribution->object : nullptr);
}
quillmar_status quillmar_attribution_create(const quillmar_platform* platform, quillmar_attribution** attribution) {
  return create(platform, attribution,
                [](const auto& members) { return QuillmarFactory::createQuillmarASAAttribution(members); });
}
void quillmar_attribution_retain(quillmar_attribution* attribution) {
  retain(attribution);
}
void quillmar_attribution_release(quillmar_attribution* attribution) {
  release(attribution);
}
quillmar_status quillmar_attribution_set_options(quillmar_attribution* attribution, const quillmar_options* options) {
  return setOptions(attribution, options);
}
quillmar_status quillmar_attribution_enable(quillmar_attribution* attribution) {
  return with(attribution, [](QuillmarASAAttribution& object) { object.enableASAAttributionTracking(); });
}
quillmar_status quillmar_attribution_disable(quillmar_attribution* attribution) {
  return with(attribution, [](QuillmarASAAttribution& object) { object.disableASAAttributionTracking(); });
}
quillmar_status quillmar_attribution_set_network_paused(quillmar_attribution* attribution, bool paused) {
  return with(attribution, [=](QuillmarASAAttribution& object) { object.setNetworkPaused(paused); });
}
bool quillmar_attribution_drain(quillmar_attribution* attribution, int64_t timeout_milliseconds) {
  return valueOf(attribution, false,
                 [&](QuillmarASAAttribution& object) { return object.drain(timeout(timeout_milliseconds)); });
}
quillmar_status quillmar_attribution_get_statistics(const quillmar_attribution* attribution,
                                                    quillmar_attribution_statistics* statistics) {
  if (attribution == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  const QuillmarASAAttributionStatistics now = attribution->object->statistics();
  return hand(
      quillmar_attribution_statistics{0, now.sent, now.failed, now.unverified, now.skipped, now.dropped, now.unsent},
      statistics);
}

quillmar_status quillmar_attribution_get_health(const quillmar_attribution* attribution,
                                                quillmar_attribution_health* health) {
  if (attribution == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  const QuillmarASAAttributionHealth now = attribution->object->health();
  return hand(quillmar_attribution_health{0, static_cast<quillmar_attribution_status>(now.state), now.listening},
              health);
}
size_t quillmar_attribution_copy_error(const quillmar_attribution* attribution, char* buffer, size_t capacity) {
  const auto text = [](const QuillmarASAAttribution& object) { return object.health().error; };
  return copyText(valueOf(attribution, std::string(), text), buffer, capacity);
}
