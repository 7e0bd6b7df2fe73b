#ifndef QUILLMAR_C_QUILLMAR_H
#define QUILLMAR_C_QUILLMAR_H

/// @file
/// The library for programs in C, and in whatever can call C: Swift, C#, Kotlin, Python.
///
/// Everything that `Quillmar.h` and its neighbours say holds here as well; this says what is different.
///
/// - Texts are UTF-8 and end with a zero. What goes in is copied during the call. What a function of a table is given
///   is valid during that call only.
/// - A function that can fail gives a status. A null or unknown argument is `QUILLMAR_ERROR_INVALID_ARGUMENT`, and then
///   nothing has happened. A function without a status does nothing then, and gives 0 or null.
/// - Handles are counted. Who gets one from a function whose name ends in "create" or "shared" releases it once, and
///   once more for each "retain". A handle that was released for the last time must not be used.
/// - Structures begin with their size as the program was compiled: `state.size = sizeof state`. So they can grow, and
///   programs that were built before go on to work. What the library does not know yet is ignored; what the program
///   does not know yet counts as zero.
/// - Tables of functions are what a program brings of its own. They are copied; `context` is passed to each of their
///   functions, and `release`, if there is one, is called with it once, on any thread, when nothing uses the table any
///   more. When a table is refused, `release` is not called. Functions are called on any thread, also on several at
///   once, unless they say so. They must neither throw nor unwind (longjmp).
/// - All functions may be called from any thread. No exception leaves the library.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "quillmar/Export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Plain numbers, so that their size does not depend on the compiler.

/// How a call ended.
typedef int32_t quillmar_status;
enum {
  QUILLMAR_OK = 0,
  QUILLMAR_ERROR_INVALID_ARGUMENT = 1,
  QUILLMAR_ERROR_OUT_OF_MEMORY = 2,
};

/// How much is logged; see `LogLevel.h` for the unusual order.
typedef int32_t quillmar_log_level;
enum {
  QUILLMAR_LOG_OFF = 0,
  QUILLMAR_LOG_ERROR = 1,
  QUILLMAR_LOG_DEBUG = 2,
  QUILLMAR_LOG_INFO = 3,
};

typedef int32_t quillmar_log_severity;
enum {
  QUILLMAR_SEVERITY_INFO = 0,
  QUILLMAR_SEVERITY_DEBUG = 1,
  QUILLMAR_SEVERITY_ERROR = 2,
};

typedef int32_t quillmar_value_type;
enum {
  QUILLMAR_VALUE_BOOLEAN = 0,
  QUILLMAR_VALUE_INTEGER = 1,
  QUILLMAR_VALUE_NUMBER = 2,
  QUILLMAR_VALUE_TEXT = 3,
};

typedef int32_t quillmar_coarse_value;
enum {
  QUILLMAR_COARSE_NONE = -1,
  QUILLMAR_COARSE_HIGH = 0,
  QUILLMAR_COARSE_MEDIUM = 1,
  QUILLMAR_COARSE_LOW = 2,
};

typedef int32_t quillmar_cache_policy;
enum {
  QUILLMAR_CACHE_PROTOCOL = 0,
  QUILLMAR_CACHE_RELOAD = 1,
};

typedef int32_t quillmar_write_mode;
enum {
  QUILLMAR_WRITE_DIRECT = 0,  ///< replace the content in place
  QUILLMAR_WRITE_ATOMIC = 1,  ///< a reader sees the old content or the new
};

/// Why an exchange over HTTP gave no response.
typedef int32_t quillmar_http_error;
enum {
  QUILLMAR_HTTP_OK = 0,
  QUILLMAR_HTTP_UNKNOWN = 1,
  QUILLMAR_HTTP_CANCELLED = 2,
  QUILLMAR_HTTP_BAD_URL = 3,
  QUILLMAR_HTTP_UNSUPPORTED_URL = 4,
  QUILLMAR_HTTP_TIMED_OUT = 5,
  QUILLMAR_HTTP_CANNOT_FIND_HOST = 6,
  QUILLMAR_HTTP_CANNOT_CONNECT_TO_HOST = 7,
  QUILLMAR_HTTP_NETWORK_CONNECTION_LOST = 8,
  QUILLMAR_HTTP_NOT_CONNECTED_TO_INTERNET = 9,
  QUILLMAR_HTTP_SECURE_CONNECTION_FAILED = 10,
  QUILLMAR_HTTP_TOO_MANY_REDIRECTS = 11,
  QUILLMAR_HTTP_REDIRECT_TO_INSECURE_LOCATION = 12,
  QUILLMAR_HTTP_BAD_SERVER_RESPONSE = 13,
  QUILLMAR_HTTP_DATA_LENGTH_EXCEEDS_MAXIMUM = 14,
  QUILLMAR_HTTP_CANNOT_CONNECT_TO_PROXY = 15,
  QUILLMAR_HTTP_PROXY_AUTHENTICATION_REQUIRED = 16,
  QUILLMAR_HTTP_PROXY_REFUSED_CONNECTION = 17,
};

/// Which event goes when one more than a bound comes.
typedef int32_t quillmar_drop;
enum {
  QUILLMAR_DROP_OLDEST = 0,
  QUILLMAR_DROP_NEWEST = 1,
};

/// What the platform said.
typedef int32_t quillmar_answer;
enum {
  QUILLMAR_ANSWER_NONE = 0,
  QUILLMAR_ANSWER_SUCCESS = 1,
  QUILLMAR_ANSWER_FAILURE = 2,
};

/// How the search-ads attribution is; see `quillmar::QuillmarASAAttributionHealth`.
typedef int32_t quillmar_attribution_status;
enum {
  QUILLMAR_ATTRIBUTION_NOT_ENABLED = 0,
  QUILLMAR_ATTRIBUTION_NO_KEY = 1,
  QUILLMAR_ATTRIBUTION_SWITCHED_OFF = 2,
  QUILLMAR_ATTRIBUTION_FETCHING = 3,
  QUILLMAR_ATTRIBUTION_WAITING = 4,
  QUILLMAR_ATTRIBUTION_FAILED = 5,
  QUILLMAR_ATTRIBUTION_STORED = 6,
};

/// The texts of a health.
typedef int32_t quillmar_health_text;
enum {
  QUILLMAR_HEALTH_FETCH_ERROR = 0,     ///< why the last fetch of the configuration failed
  QUILLMAR_HEALTH_LOGGED_EVENT = 1,    ///< the name of the last event that the service accepted
  QUILLMAR_HEALTH_PLATFORM_CALL = 2,   ///< the interface of the last call of the platform
  QUILLMAR_HEALTH_PLATFORM_ERROR = 3,  ///< the platform's words for a failure of that
};

typedef struct quillmar_platform quillmar_platform;        ///< what is outside of the library
typedef struct quillmar_instance quillmar_instance;        ///< `quillmar::Quillmar`
typedef struct quillmar_attribution quillmar_attribution;  ///< `quillmar::QuillmarASAAttribution`

/// The version of the library, such as "2.0.0". Never released.
QUILLMAR_API const char* quillmar_version(void);

// Reporting events.

/// The instance of the process, made at the first call over the shared platform. Null when memory runs out.
QUILLMAR_API quillmar_instance* quillmar_shared(void);

/// Makes this one the instance of the process; null: the next `quillmar_shared` makes a new one.
QUILLMAR_API void quillmar_set_shared(const quillmar_instance* instance);

/// An instance of its own over the library's settings suite of that platform.
QUILLMAR_API quillmar_status quillmar_create(const quillmar_platform* platform, quillmar_instance** instance);

/// One more reference to the instance.
QUILLMAR_API void quillmar_retain(quillmar_instance* instance);

/// One reference less. With the last one the handle is gone; work that was begun still finishes.
QUILLMAR_API void quillmar_release(quillmar_instance* instance);

/// Copied into the log's threshold by the next `quillmar_configure`; off at first.
QUILLMAR_API quillmar_log_level quillmar_get_log_level(const quillmar_instance* instance);

/// `level`: one of `quillmar_log_level`.
QUILLMAR_API quillmar_status quillmar_set_log_level(quillmar_instance* instance, quillmar_log_level level);

/// What goes beyond the library's usual behaviour; see `quillmar::QuillmarOptions`.
typedef struct quillmar_options {
  size_t size;
  bool reliable_delivery;
  bool live_attribution;
  bool update_both_networks;
  bool strict_switch;
  bool use_stored_configuration;
  bool only_complete_halves;
  bool honour_single_bounds;
  bool never_send_lower;
  bool current_window_only;
  bool skip_repeated_updates;
  bool skip_repeated_locks;
  bool platform_windows;
  bool require_consent;
  size_t events_held_for_consent;
  uint64_t max_parked_events;  ///< this and what follows: see `quillmar::QuillmarLimits`; 0: no bound
  uint64_t max_queued_events;
  uint64_t max_event_bytes;
  int32_t history_days;
  quillmar_drop drop;
  bool send_user_agent;
} quillmar_options;

/// Before `quillmar_configure`. Refused: an unknown `drop`, and negative `history_days`.
QUILLMAR_API quillmar_status quillmar_set_options(quillmar_instance* instance, const quillmar_options* options);

/// The user agrees; see `quillmar::Quillmar::grantConsent`.
QUILLMAR_API quillmar_status quillmar_grant_consent(quillmar_instance* instance);

/// The user does not agree, or no longer: stops everything and erases what is stored, on the calling thread; see
/// `quillmar::Quillmar::revokeConsent`.
QUILLMAR_API quillmar_status quillmar_revoke_consent(quillmar_instance* instance);

/// Starts the library with the key that the event service knows the app by. Returns at once.
QUILLMAR_API quillmar_status quillmar_configure(quillmar_instance* instance, const char* verification_key);

/// A parameter of an event. The only name so far is "revenue". Any byte but zero is a true `boolean`.
typedef struct quillmar_parameter {
  const char* name;
  quillmar_value_type type;
  union {
    bool boolean;
    int64_t integer;
    double number;
    const char* text;
  } value;
} quillmar_parameter;

/// Reports an event. Returns at once. `parameters` may be null when there are none. Refused: an unknown parameter or
/// type, and a parameter that is there twice.
QUILLMAR_API quillmar_status quillmar_send_event(quillmar_instance* instance, const char* event,
                                                 const quillmar_parameter* parameters, size_t parameter_count);

/// For hosts that deliver activations themselves.
QUILLMAR_API quillmar_status quillmar_application_did_become_active(quillmar_instance* instance);

/// The same for a scene.
QUILLMAR_API quillmar_status quillmar_scene_did_activate(quillmar_instance* instance);

/// Back to the unconfigured state. Writes the settings store on the calling thread.
QUILLMAR_API quillmar_status quillmar_reset(quillmar_instance* instance);

/// Forgets the tracked events. Writes the settings store on the calling thread.
QUILLMAR_API quillmar_status quillmar_clear_tracked_events(quillmar_instance* instance);

/// While `paused`, no request is begun; see `quillmar::Quillmar::setNetworkPaused`.
QUILLMAR_API quillmar_status quillmar_set_network_paused(quillmar_instance* instance, bool paused);

/// Waits until the service has accepted every event sent so far; see `quillmar::Quillmar::waitUntilDelivered`.
QUILLMAR_API bool quillmar_wait_until_delivered(quillmar_instance* instance, int64_t timeout_milliseconds);

/// Waits until nothing is in flight; see `quillmar::Quillmar::drain`.
QUILLMAR_API bool quillmar_drain(quillmar_instance* instance, int64_t timeout_milliseconds);

/// How many events went which way; see `quillmar::QuillmarStatistics`.
typedef struct quillmar_statistics {
  size_t size;
  uint64_t sent;
  uint64_t dropped;
  uint64_t parked;
  uint64_t logged;
  uint64_t failed;
  uint64_t kept;  ///< this and what follows: with `quillmar_options.reliable_delivery`
  uint64_t unsent;
  uint64_t refused;
  uint64_t expired;
  uint64_t displaced;
} quillmar_statistics;

/// Fills `statistics` as far as its size goes.
QUILLMAR_API quillmar_status quillmar_get_statistics(const quillmar_instance* instance,
                                                     quillmar_statistics* statistics);

/// Where the instance stands; see `quillmar::QuillmarState`.
typedef struct quillmar_state {
  size_t size;
  int32_t window;  ///< the current postback window, 0...2; -1 when the event window has expired
  bool initialized;
  bool has_fetched_conversion_values;
  bool enabled;
  bool verification_key_valid;
  uint64_t kept;  ///< events in the outbox
} quillmar_state;

/// May open the settings store on the calling thread.
QUILLMAR_API quillmar_status quillmar_get_state(const quillmar_instance* instance, quillmar_state* state);

/// What `quillmar_state` says of it; false lets the next activation fetch the configuration at once.
QUILLMAR_API quillmar_status quillmar_set_has_fetched_conversion_values(quillmar_instance* instance, bool fetched);

/// Where each event is, and what is wrong; see `quillmar::QuillmarHealth`. Times are in seconds since 1970. Each event
/// is in exactly one of the counts from `queued` to `too_large`; their sum is `sent` + `inherited`.
typedef struct quillmar_health {
  size_t size;
  int64_t configuration_age_seconds;  ///< since the last good fetch; -1 before the first
  bool verification_key_valid;
  int64_t failures_in_a_row;
  uint64_t unsent;
  double last_logged_at;         ///< when the service last accepted an event; 0: none so far
  double last_platform_call_at;  ///< 0: none so far
  quillmar_answer last_platform_answer;
  uint64_t sent;
  uint64_t inherited;
  uint64_t queued;
  uint64_t under_way;
  uint64_t parked;
  uint64_t kept;
  uint64_t logged;  ///< this and what follows: the event has ended; see `quillmar::EventEnd`
  uint64_t failed;
  uint64_t not_asked;
  uint64_t switched_off;
  uint64_t no_consent;
  uint64_t key_invalid;
  uint64_t reset;
  uint64_t lost;
  uint64_t refused;
  uint64_t expired;
  uint64_t displaced;
  uint64_t parked_limit;
  uint64_t queued_limit;
  uint64_t too_large;
} quillmar_health;

/// Fills `health` as far as its size goes. May open the settings store on the calling thread.
QUILLMAR_API quillmar_status quillmar_get_health(const quillmar_instance* instance, quillmar_health* health);

/// One of `quillmar_health_text`, empty when there is nothing to say; copied as by `quillmar_copy_app_id`.
QUILLMAR_API size_t quillmar_copy_health_text(const quillmar_instance* instance, quillmar_health_text text,
                                              char* buffer, size_t capacity);

/// Is told of the health when something has changed that an alarm wants to know; see
/// `quillmar::Quillmar::setHealthObserver`.
typedef struct quillmar_health_observer {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Called on the event queue, one call at a time. Required.
  void (*changed)(void* context, const quillmar_health* health);
} quillmar_health_observer;

/// `observer` may be null: nobody is told from now on.
QUILLMAR_API quillmar_status quillmar_set_health_observer(quillmar_instance* instance,
                                                          const quillmar_health_observer* observer);

/// The app's identifier as the service confirmed it. As much as there is
/// room for is copied, and a zero behind it. Gives the length of the whole text, without the zero; 0 when there is
/// none. `buffer` may be null when `capacity` is 0.
QUILLMAR_API size_t quillmar_copy_app_id(const quillmar_instance* instance, char* buffer, size_t capacity);

/// Likewise the key of the last `quillmar_configure`.
QUILLMAR_API size_t quillmar_copy_verification_key(const quillmar_instance* instance, char* buffer, size_t capacity);

// Of the whole process.

/// What is logged from now on. Each `quillmar_configure` puts the level of its instance here.
QUILLMAR_API quillmar_log_level quillmar_logger_get_level(void);

/// A change takes effect with the next line.
QUILLMAR_API quillmar_status quillmar_logger_set_level(quillmar_log_level level);

/// Answers every request with a built-in document; see `quillmar::Quillmar::useMock`.
QUILLMAR_API bool quillmar_get_use_mock(void);

/// Before `quillmar_configure`.
QUILLMAR_API void quillmar_set_use_mock(bool use_mock);

/// Failures in a row to log an event.
QUILLMAR_API int64_t quillmar_get_consecutive_api_failures(void);

/// For tests.
QUILLMAR_API void quillmar_set_consecutive_api_failures(int64_t failures);

/// Whether the key counts as invalid because of such failures. Then no event is processed.
QUILLMAR_API bool quillmar_get_verification_key_invalid(void);

/// For tests.
QUILLMAR_API void quillmar_set_verification_key_invalid(bool invalid);

/// Sets the counters of failures back; the mock switch stays as it is.
QUILLMAR_API void quillmar_reset_static_state(void);

// Search-ads attribution and purchases.

/// The instance of the process, made at the first call over the shared platform. Null when memory runs out.
QUILLMAR_API quillmar_attribution* quillmar_attribution_shared(void);

/// Makes this one the instance of the process; null: the next `quillmar_attribution_shared` makes a new one.
QUILLMAR_API void quillmar_attribution_set_shared(const quillmar_attribution* attribution);

/// An instance of its own over the library's settings suite of that platform.
QUILLMAR_API quillmar_status quillmar_attribution_create(const quillmar_platform* platform,
                                                         quillmar_attribution** attribution);

/// One more reference to the instance.
QUILLMAR_API void quillmar_attribution_retain(quillmar_attribution* attribution);

/// One reference less. With the last one the listening ends.
QUILLMAR_API void quillmar_attribution_release(quillmar_attribution* attribution);

/// Before `quillmar_attribution_enable`.
QUILLMAR_API quillmar_status quillmar_attribution_set_options(quillmar_attribution* attribution,
                                                              const quillmar_options* options);

/// Starts to listen for subscription updates, and fetches the attribution if it is not stored yet.
QUILLMAR_API quillmar_status quillmar_attribution_enable(quillmar_attribution* attribution);

/// Ends the listening. What is stored is kept.
QUILLMAR_API quillmar_status quillmar_attribution_disable(quillmar_attribution* attribution);

/// While `paused`, no request is begun; see `quillmar::QuillmarASAAttribution::setNetworkPaused`.
QUILLMAR_API quillmar_status quillmar_attribution_set_network_paused(quillmar_attribution* attribution, bool paused);

/// Waits until nothing is in flight; see `quillmar::QuillmarASAAttribution::drain`.
QUILLMAR_API bool quillmar_attribution_drain(quillmar_attribution* attribution, int64_t timeout_milliseconds);

/// How many subscription updates went which way; see `quillmar::QuillmarASAAttributionStatistics`.
typedef struct quillmar_attribution_statistics {
  size_t size;
  uint64_t sent;
  uint64_t failed;
  uint64_t unverified;
  uint64_t skipped;
  uint64_t dropped;
  uint64_t unsent;  ///< with `quillmar_options.reliable_delivery`
} quillmar_attribution_statistics;

/// Fills `statistics` as far as its size goes.
QUILLMAR_API quillmar_status quillmar_attribution_get_statistics(const quillmar_attribution* attribution,
                                                                 quillmar_attribution_statistics* statistics);

/// How the attribution is; see `quillmar::QuillmarASAAttributionHealth`.
typedef struct quillmar_attribution_health {
  size_t size;
  quillmar_attribution_status status;
  bool listening;  ///< for subscription updates
} quillmar_attribution_health;

/// Fills `health` as far as its size goes.
QUILLMAR_API quillmar_status quillmar_attribution_get_health(const quillmar_attribution* attribution,
                                                             quillmar_attribution_health* health);

/// Why the last attempt to fetch the attribution failed; copied as by `quillmar_copy_app_id`.
QUILLMAR_API size_t quillmar_attribution_copy_error(const quillmar_attribution* attribution, char* buffer,
                                                    size_t capacity);

// The platform.

/// What can be chosen about the system's own adapters. Null and 0: the default; see
/// `quillmar::platform::DefaultPlatformOptions`.
typedef struct quillmar_platform_options {
  size_t size;
  const char* data_directory;
  const char* service_url;
  const char* attribution_url;
  const char* ca_file;
  const char* proxy;
  uint64_t max_answer_bytes;
  const char* system_version;  ///< in place of the device's, such as "17.4.1": which interfaces the ad networks have
  uint32_t max_connections;
  bool proxy_from_environment;
} quillmar_platform_options;

/// The adapters of this system. `options` may be null. A function of `quillmar_platform_set_...` puts a table in the
/// place of one of them, for the instances that are made from then on.
QUILLMAR_API quillmar_status quillmar_platform_create(const quillmar_platform_options* options,
                                                      quillmar_platform** platform);

/// One more reference to the platform.
QUILLMAR_API void quillmar_platform_retain(quillmar_platform* platform);

/// One reference less. Instances that were made of it keep what they use.
QUILLMAR_API void quillmar_platform_release(quillmar_platform* platform);

/// Makes it the platform of the shared instances, and of the log. Before the first `quillmar_shared`.
QUILLMAR_API quillmar_status quillmar_set_shared_platform(const quillmar_platform* platform);

/// Something that the library waits for. Who is handed one calls exactly one of the two functions that go with it,
/// once, on any thread; the handle is gone then.
typedef struct quillmar_ad_network_completion quillmar_ad_network_completion;

/// `error`: what went wrong, in words, or null on success.
QUILLMAR_API void quillmar_ad_network_completion_call(quillmar_ad_network_completion* completion, const char* error);

/// For an ad network that will not answer: `quillmar_drain` waits for completions that are still there.
QUILLMAR_API void quillmar_ad_network_completion_drop(quillmar_ad_network_completion* completion);

/// SKAdNetwork as StoreKit offers it. Called on the main executor; must not block. A function is called only on systems
/// that have it, and may be null when the program never runs on one.
typedef struct quillmar_ad_network {
  size_t size;
  void* context;
  void (*release)(void* context);       ///< called once, when nothing uses the table any more; may be null
  void (*register_app)(void* context);  ///< all systems
  void (*update_conversion_value)(void* context, int32_t fine_value);  ///< 14.0 and later; 0...63
  /// 15.4 and later.
  void (*update_postback)(void* context, int32_t fine_value, quillmar_ad_network_completion* completion);
  /// 16.1 and later.
  void (*update_coarse_postback)(void* context, int32_t fine_value, quillmar_coarse_value coarse_value,
                                 bool lock_window, quillmar_ad_network_completion* completion);
} quillmar_ad_network;

/// Puts the table in the place of the system's SKAdNetwork.
QUILLMAR_API quillmar_status quillmar_platform_set_ad_network(quillmar_platform* platform,
                                                              const quillmar_ad_network* network);

/// AdAttributionKit, on systems from 18.0. Called on the main executor; must not block.
typedef struct quillmar_ad_attribution_kit {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// `coarse_value` may be `QUILLMAR_COARSE_NONE`. Required.
  void (*update_conversion_value)(void* context, int32_t fine_value, quillmar_coarse_value coarse_value,
                                  bool lock_postback, quillmar_ad_network_completion* completion);
} quillmar_ad_attribution_kit;

/// Puts the table in the place of the system's AdAttributionKit.
QUILLMAR_API quillmar_status quillmar_platform_set_ad_attribution_kit(quillmar_platform* platform,
                                                                      const quillmar_ad_attribution_kit* kit);

/// Waits for an attribution token.
typedef struct quillmar_token_completion quillmar_token_completion;

/// Either `token`, or null and what went wrong, in words.
QUILLMAR_API void quillmar_token_completion_call(quillmar_token_completion* completion, const char* token,
                                                 const char* error);

/// For a provider that will not answer.
QUILLMAR_API void quillmar_token_completion_drop(quillmar_token_completion* completion);

/// Gives the token that search-ads attribution is asked for with.
typedef struct quillmar_attribution_token {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Called on the executor, where it may block for a while. Required.
  void (*request)(void* context, quillmar_token_completion* completion);
} quillmar_attribution_token;

/// Puts the table in the place of AdServices.
QUILLMAR_API quillmar_status quillmar_platform_set_attribution_token(quillmar_platform* platform,
                                                                     const quillmar_attribution_token* token);

/// A change of a subscription, with what the platform signed.
typedef struct quillmar_subscription_update {
  size_t size;
  uint64_t transaction_identifier;
  const char* transaction_json;    ///< the platform's own, passed on unchanged; null counts as empty
  const char* transaction_error;   ///< why its signature does not hold, in words; null when it does
  const char* renewal_info_json;   ///< likewise
  const char* renewal_info_error;  ///< likewise
  int64_t renewal_state;           ///< the raw value of the renewal state
} quillmar_subscription_update;

/// Where a stream of updates goes. It may be used on any thread until it is released, also after the listener has gone;
/// then nothing comes of it.
typedef struct quillmar_subscription_listener quillmar_subscription_listener;

/// Hands on an update, which is copied.
QUILLMAR_API quillmar_status quillmar_subscription_listener_post(quillmar_subscription_listener* listener,
                                                                 const quillmar_subscription_update* update);

/// The stream has ended.
QUILLMAR_API void quillmar_subscription_listener_end(quillmar_subscription_listener* listener);

/// One more reference to the listener.
QUILLMAR_API void quillmar_subscription_listener_retain(quillmar_subscription_listener* listener);

/// One reference less. With the last one the stream ends.
QUILLMAR_API void quillmar_subscription_listener_release(quillmar_subscription_listener* listener);

/// The stream of subscription status updates.
typedef struct quillmar_subscription_updates {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// A new listener, which is to get each update from now on, in their order; updates are kept for it while it is busy.
  /// The table owns the listener and releases it once. Must not block. What it gives is passed to `unsubscribe`.
  /// Required.
  void* (*subscribe)(void* context, quillmar_subscription_listener* listener);
  /// The listener wants no more. Called once for each `subscribe`, also after the end of the stream.
  void (*unsubscribe)(void* context, void* subscription);
} quillmar_subscription_updates;

/// Puts the table in the place of the system's stream.
QUILLMAR_API quillmar_status quillmar_platform_set_subscription_updates(quillmar_platform* platform,
                                                                        const quillmar_subscription_updates* updates);

/// The end of an exchange over HTTP.
typedef struct quillmar_http_completion quillmar_http_completion;

/// A header of a request. There is one of each name.
typedef struct quillmar_http_header {
  const char* name;
  const char* value;
} quillmar_http_header;

/// What is to be sent.
typedef struct quillmar_http_request {
  size_t size;
  const char* url;
  const char* method;
  const quillmar_http_header* headers;
  size_t header_count;
  const void* body;
  size_t body_size;
  double timeout_seconds;  ///< the longest wait for the next byte
  quillmar_cache_policy cache_policy;
} quillmar_http_request;

/// An error, or a response.
typedef struct quillmar_http_result {
  size_t size;
  quillmar_http_error error;  ///< when it is set, it counts, whatever else is set
  int32_t status_code;        ///< -1 when the response did not come over HTTP
  const char* url;            ///< where the response came from, after redirects; may be null
  const void* body;           ///< may be null when `body_size` is 0
  size_t body_size;
  const char* retry_after;  ///< the response's header "Retry-After"; may be null
} quillmar_http_result;

/// An unusable `result` counts as `QUILLMAR_HTTP_UNKNOWN`.
QUILLMAR_API void quillmar_http_completion_call(quillmar_http_completion* completion,
                                                const quillmar_http_result* result);

/// For a transport that will not answer.
QUILLMAR_API void quillmar_http_completion_drop(quillmar_http_completion* completion);

/// Performs exchanges over HTTP; see `quillmar::platform::HttpTransport` for what an adapter must see to.
typedef struct quillmar_http {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Starts an exchange and returns at once; the completion is not called inside. Required.
  void (*start)(void* context, uint64_t identifier, const quillmar_http_request* request,
                quillmar_http_completion* completion);
  /// Ends the exchange early: its completion is called with `QUILLMAR_HTTP_CANCELLED`. Without effect when it is over.
  /// Required.
  void (*cancel)(void* context, uint64_t identifier);
} quillmar_http;

/// Puts the table in the place of the system's transport.
QUILLMAR_API quillmar_status quillmar_platform_set_http(quillmar_platform* platform, const quillmar_http* http);

/// Bytes that a function of a table hands back.
typedef struct quillmar_bytes quillmar_bytes;

/// Copies them. `data` may be null when `size` is 0.
QUILLMAR_API quillmar_status quillmar_bytes_set(quillmar_bytes* bytes, const void* data, size_t size);

/// A value with all behind its first `keep` bytes replaced by `tail`.
typedef struct quillmar_data_tail {
  const char* key;
  size_t keep;
  const void* tail;
  size_t size;  ///< of `tail`
} quillmar_data_tail;

/// Keeps settings: bytes by suite and key, whatever they are. Reads are answered from memory. Writes return when they
/// will survive the end of the process. Errors are those of the system (errno), or 0.
typedef struct quillmar_user_defaults {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Opens the suite of that name, creating it when it is not there. May block on the disk. On an error the standard
  /// store, the suite "", takes its place. May be null: nothing is to be done. Called before any other use of a suite.
  int32_t (*open)(void* context, const char* suite);
  /// Sets `value` to what is stored, and does not when nothing is. An error: it is there, and cannot be read. Required.
  int32_t (*get)(void* context, const char* suite, const char* key, quillmar_bytes* value);
  /// On an error the value is to be kept in memory, where reads see it, and written together with the next one.
  /// Required.
  int32_t (*set)(void* context, const char* suite, const char* key, const void* value, size_t size);
  /// An absent key is no error. Required.
  int32_t (*remove)(void* context, const char* suite, const char* key);
  /// Replaces all behind the first `keep` bytes by `tail`, or changes nothing on an error. This is how the history
  /// grows. May be null: the whole value is read, changed and set then.
  int32_t (*replace_tail)(void* context, const char* suite, const char* key, size_t keep, const void* tail,
                          size_t size);
  /// A number that is another one after each change of the value. May be null: the value is read and decoded anew at
  /// each use then.
  uint64_t (*revision)(void* context, const char* suite, const char* key);
  /// Replaces the tails of several values, each key at most once, in one step: all of them or, on an error, none. May
  /// be null: one is replaced after the other, and with `quillmar_options.reliable_delivery` an event may be in the
  /// history twice after a kill.
  int32_t (*replace_tails)(void* context, const char* suite, const quillmar_data_tail* tails, size_t count);
} quillmar_user_defaults;

/// Puts the table in the place of the system's settings stores.
QUILLMAR_API quillmar_status quillmar_platform_set_user_defaults(quillmar_platform* platform,
                                                                 const quillmar_user_defaults* defaults);

/// What tells one state of a file from another without reading it; see `quillmar::platform::FileStamp`.
typedef struct quillmar_file_stamp {
  size_t size;  ///< of this structure
  uint64_t volume;
  uint64_t file;
  uint64_t length;
  int64_t modified;
  int64_t changed;
} quillmar_file_stamp;

/// The files of the app; see `quillmar::platform::FileManager`. All functions are required. They may block on the disk.
/// Errors are those of the system (errno), or 0.
typedef struct quillmar_files {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Sets `path` to the documents directory, without a trailing "/", and does not when there is none.
  void (*documents_directory)(void* context, quillmar_bytes* path);
  /// True also when that cannot be told for the moment.
  bool (*file_exists)(void* context, const char* path);
  /// False when there is no file or it cannot be told.
  bool (*stamp)(void* context, const char* path, quillmar_file_stamp* stamp);
  /// Creates the folder and those above it. An existing one is no error.
  int32_t (*create_directory)(void* context, const char* path);
  /// Creates an empty file, in one step with the look whether it is there. An existing one is no error.
  int32_t (*create_file)(void* context, const char* path);
  /// Removes a file or an empty folder.
  int32_t (*remove_item)(void* context, const char* path);
  /// Sets `content` to the whole file.
  int32_t (*read_file)(void* context, const char* path, quillmar_bytes* content);
  /// Replaces the content of a file, which is created when it is not there. `mode`: one of `quillmar_write_mode`.
  int32_t (*write_file)(void* context, const char* path, const void* content, size_t size, quillmar_write_mode mode);
} quillmar_files;

/// Puts the table in the place of the system's files.
QUILLMAR_API quillmar_status quillmar_platform_set_files(quillmar_platform* platform, const quillmar_files* files);

/// Takes the log's lines.
typedef struct quillmar_log_sink {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// One finished line without its end; see `quillmar::platform::LogSink`. Required.
  void (*write)(void* context, const char* subsystem, const char* category, quillmar_log_severity severity,
                const char* line);
} quillmar_log_sink;

/// Puts the table in the place of the system's log.
QUILLMAR_API quillmar_status quillmar_platform_set_log_sink(quillmar_platform* platform, const quillmar_log_sink* sink);

/// A piece of work. Who is handed one either runs it or drops it, once.
typedef struct quillmar_work quillmar_work;

/// Runs the piece of work on the calling thread.
QUILLMAR_API void quillmar_work_run(quillmar_work* work);

/// Destroys it without running it: the executor shuts down.
QUILLMAR_API void quillmar_work_drop(quillmar_work* work);

/// Runs the library's work off the caller's thread.
typedef struct quillmar_executor {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Runs `work` later, never inside this call. Must not block. Pieces may run at the same time. Required.
  void (*post)(void* context, quillmar_work* work);
} quillmar_executor;

/// Of all work.
QUILLMAR_API quillmar_status quillmar_platform_set_executor(quillmar_platform* platform,
                                                            const quillmar_executor* executor);

/// Of the calls to the ad networks, which run one at a time.
QUILLMAR_API quillmar_status quillmar_platform_set_main_executor(quillmar_platform* platform,
                                                                 const quillmar_executor* executor);

// The collaborators of an instance, which a program may replace, above all in its tests. A null table leaves the place
// empty. The repositories are not there until `quillmar_configure` has built them in the background, and each
// `quillmar_configure` builds them anew: wait for it with `quillmar_drain` before you replace them. What is under way
// goes on with the one that it began with.
//
// Conversion values cross as JSON, with the members that the service's configuration has for them: a document is
// {"values":[...],"lockWindows":{...}}, a rule is one of the elements of "values".

/// Waits for the end of a fetch.
typedef struct quillmar_fetch_completion quillmar_fetch_completion;

/// `error`: what went wrong, in words, or null on success.
QUILLMAR_API void quillmar_fetch_completion_call(quillmar_fetch_completion* completion, const char* error);

/// For a fetch that will not end: nothing comes of it, and it is not tried again by itself. `quillmar_drain` waits for
/// completions that are still there.
QUILLMAR_API void quillmar_fetch_completion_drop(quillmar_fetch_completion* completion);

/// Where the service's configuration enters the library and is kept; see
/// `quillmar::ConversionValuesRepositoryProtocol`. Called on the platform's executor.
typedef struct quillmar_conversion_values_repository {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Fetches the configuration and stores it. Returns at once. A failure is tried again, three times in all. Required.
  void (*fetch_and_save)(void* context, quillmar_fetch_completion* completion);
  /// Sets `document` to the stored document, and does not when there is none. What is no such document is told in the
  /// log, and counts as none. Called for each event; may block on the disk. Required.
  void (*fetch_all)(void* context, quillmar_bytes* document);
} quillmar_conversion_values_repository;

/// Puts the table in the place of the instance's repository.
QUILLMAR_API quillmar_status quillmar_set_conversion_values_repository(
    quillmar_instance* instance, const quillmar_conversion_values_repository* repository);

/// Keeps the key that the event service knows the app by; see `quillmar::VerificationKeyRepositoryProtocol`. Called on
/// any thread; may block on the disk. The library saves the key with the repository that `quillmar_configure` builds;
/// another one serves whoever asks the instance for it.
typedef struct quillmar_verification_key_repository {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Sets `key` to the stored key, and does not when there is none. Required.
  void (*fetch)(void* context, quillmar_bytes* key);
  /// Stores the key in place of the one before. Required.
  void (*save)(void* context, const char* key);
} quillmar_verification_key_repository;

/// Puts the table in the place of the instance's repository.
QUILLMAR_API quillmar_status quillmar_set_verification_key_repository(
    quillmar_instance* instance, const quillmar_verification_key_repository* repository);

/// Waits to hear what became of an event.
typedef struct quillmar_log_completion quillmar_log_completion;

/// `error`: why the event was not logged, in words, or null. It counts against the key; with
/// `quillmar_options.reliable_delivery` it does not, and the event is logged again later. `accepted`, without an error:
/// false when the service has switched the library off and was not asked.
QUILLMAR_API void quillmar_log_completion_call(quillmar_log_completion* completion, bool accepted, const char* error);

/// For an event that goes no further. `quillmar_drain` waits for completions that are still there.
QUILLMAR_API void quillmar_log_completion_drop(quillmar_log_completion* completion);

/// Logs events to the service; see `quillmar::EventServerLogRepositoryProtocol`. Called on the platform's executor.
typedef struct quillmar_event_server_log_repository {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Logs one event. Returns at once. `identifier`: by which the service knows an event that it gets twice, with
  /// `quillmar_options.reliable_delivery`; null without. Required.
  void (*log_event)(void* context, const char* event, const char* identifier, quillmar_log_completion* completion);
} quillmar_event_server_log_repository;

/// Puts the table in the place of the instance's repository.
QUILLMAR_API quillmar_status quillmar_set_event_server_log_repository(
    quillmar_instance* instance, const quillmar_event_server_log_repository* repository);

/// Reports conversion values to the platform; see `quillmar::ConversionTrackingManagerProtocol`. Called on the main
/// executor, one call at a time; must not block.
typedef struct quillmar_conversion_tracking_manager {
  size_t size;
  void* context;
  void (*release)(void* context);  ///< called once, when nothing uses the table any more; may be null
  /// Starts an update with what the rule `conversion_value`, as JSON, has for the postback window 0...2. Required.
  void (*send)(void* context, const char* conversion_value, int32_t window, bool force_lock_window);
} quillmar_conversion_tracking_manager;

/// Puts the table in the place of the instance's manager.
QUILLMAR_API quillmar_status quillmar_set_conversion_tracking_manager(
    quillmar_instance* instance, const quillmar_conversion_tracking_manager* manager);

/// Which collaborator.
typedef int32_t quillmar_collaborator_kind;
enum {
  QUILLMAR_CONVERSION_VALUES_REPOSITORY = 0,
  QUILLMAR_VERIFICATION_KEY_REPOSITORY = 1,
  QUILLMAR_EVENT_SERVER_LOG_REPOSITORY = 2,
  QUILLMAR_CONVERSION_TRACKING_MANAGER = 3,
};

/// A collaborator, the library's own or a table: to be called, for instance by the table that stands in for it, and to
/// be put back. A function below that does not go with its kind is given an argument that it refuses.
typedef struct quillmar_collaborator quillmar_collaborator;

/// The collaborator that is in that place now, to be released once. Null when there is none, or memory runs out.
QUILLMAR_API quillmar_collaborator* quillmar_get_collaborator(const quillmar_instance* instance,
                                                              quillmar_collaborator_kind kind);

/// Puts it into its place.
QUILLMAR_API quillmar_status quillmar_set_collaborator(quillmar_instance* instance,
                                                       const quillmar_collaborator* collaborator);

/// The handle is gone; the collaborator stays where it is used.
QUILLMAR_API void quillmar_collaborator_release(quillmar_collaborator* collaborator);

/// The context of the program's own table, which it knows by its release function; it is valid as long as the handle.
/// Null for any other.
QUILLMAR_API void* quillmar_collaborator_context(const quillmar_collaborator* collaborator,
                                                 void (*release)(void* context));

/// Fetches the configuration and stores it. `done` is called once, unless the status is an error, on any thread, also
/// inside this call: with what went wrong, in words, or null. What never answers has gone wrong.
QUILLMAR_API quillmar_status quillmar_collaborator_fetch_and_save(const quillmar_collaborator* collaborator,
                                                                  void* context,
                                                                  void (*done)(void* context, const char* error));

/// The stored document, copied as by `quillmar_copy_app_id`; 0 when there is none that can be read.
QUILLMAR_API size_t quillmar_collaborator_copy_document(const quillmar_collaborator* collaborator, char* buffer,
                                                        size_t capacity);

/// The stored key, copied as by `quillmar_copy_app_id`; 0 when there is none.
QUILLMAR_API size_t quillmar_collaborator_copy_key(const quillmar_collaborator* collaborator, char* buffer,
                                                   size_t capacity);

/// Stores the key.
QUILLMAR_API quillmar_status quillmar_collaborator_save_key(const quillmar_collaborator* collaborator, const char* key);

/// Logs one event; `identifier` may be null. `done` as above, with what `quillmar_log_completion_call` says.
QUILLMAR_API quillmar_status quillmar_collaborator_log_event(const quillmar_collaborator* collaborator,
                                                             const char* event, const char* identifier, void* context,
                                                             void (*done)(void* context, bool accepted,
                                                                          const char* error));

/// Starts an update. On the main executor, one call at a time. Refused: what is no rule, and an unknown window.
QUILLMAR_API quillmar_status quillmar_collaborator_send(const quillmar_collaborator* collaborator,
                                                        const char* conversion_value, int32_t window,
                                                        bool force_lock_window);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif
