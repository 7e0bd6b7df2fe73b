#include <stdexcept>
#include <variant>

#include "C/Bytes.h"
#include "C/InstanceHandle.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Logging/Log.h"
#include "Model/ConversionValuesCoding.h"

struct quillmar_fetch_completion : quillmar::Pending<quillmar::ConversionValuesRepositoryProtocol::Completion> {};
struct quillmar_log_completion : quillmar::Pending<quillmar::EventServerLogRepositoryProtocol::Completion> {};

/// Never null inside.
struct quillmar_collaborator {
  std::variant<std::shared_ptr<quillmar::ConversionValuesRepositoryProtocol>,
               std::shared_ptr<quillmar::VerificationKeyRepositoryProtocol>,
               std::shared_ptr<quillmar::EventServerLogRepositoryProtocol>,
               std::shared_ptr<quillmar::ConversionTrackingManagerProtocol>>
      object;
};

namespace quillmar {

namespace {

using Rule = ConversionValues::ConversionValue;

template <class Value>
Value decoded(std::string_view json) {
  const boost::json::value document = parseJson(json);
  return Codable<Value>::decode(JsonReader(document));
}

template <class Value>
std::string encoded(const Value& value) {
  JsonWriter writer;
  Codable<Value>::encode(writer, value);
  return writer.take();
}

std::exception_ptr failureOf(const char* error) {
  return error != nullptr ? std::make_exception_ptr(std::runtime_error(error)) : nullptr;
}

/// What stands behind the tables, whichever it is.
struct OverAnyTable {
  virtual ~OverAnyTable() = default;
  virtual void* contextOf(void (*release)(void*)) const noexcept = 0;
};

template <class Protocol, class Functions>
class OverTable : public Protocol, public OverAnyTable {
 public:
  void* contextOf(void (*release)(void*)) const noexcept final { return table->contextOf(release); }

  std::shared_ptr<const Table<Functions>> table;
};

class TableConversionValues final
    : public OverTable<ConversionValuesRepositoryProtocol, quillmar_conversion_values_repository> {
 public:
  void fetchAndSaveConversionValues(Completion completion) override {
    table->call<&quillmar_conversion_values_repository::fetch_and_save>(
        handed<quillmar_fetch_completion>(std::move(completion)));
  }
  std::shared_ptr<const ConversionValues> fetchAllConversionValues() const override {
    quillmar_bytes document;
    table->call<&quillmar_conversion_values_repository::fetch_all>(&document);
    if (!document.content) {
      throw std::runtime_error("fetch_all gave no document");
    }
    try {
      return std::make_shared<const ConversionValues>(decoded<ConversionValues>(*document.content));
    } catch (const DecodingError& error) {
      Log::error("quillmar_conversion_values_repository - fetch_all gave no document: {}", textualDescription(error));
      throw;
    }
  }
};

class TableVerificationKey final
    : public OverTable<VerificationKeyRepositoryProtocol, quillmar_verification_key_repository> {
 public:
  std::optional<std::string> fetchVerificationKey() const override {
    quillmar_bytes key;
    table->call<&quillmar_verification_key_repository::fetch>(&key);
    return key.content;
  }
  void save(std::string_view verificationKey) override {
    table->call<&quillmar_verification_key_repository::save>(std::string(verificationKey).c_str());
  }
};

class TableEventServerLog final
    : public OverTable<EventServerLogRepositoryProtocol, quillmar_event_server_log_repository> {
 public:
  void logEvent(std::string event, Completion completion) override {
    log(event.c_str(), nullptr, std::move(completion));
  }
  void logEventAs(std::string event, std::string identifier, Completion completion) override {
    log(event.c_str(), identifier.c_str(), std::move(completion));
  }

 private:
  void log(const char* event, const char* identifier, Completion completion) {
    table->call<&quillmar_event_server_log_repository::log_event>(
        event, identifier, handed<quillmar_log_completion>(std::move(completion)));
  }
};

class TableTrackingManager final
    : public OverTable<ConversionTrackingManagerProtocol, quillmar_conversion_tracking_manager> {
 public:
  void send(const Rule& conversionValue, Window window, bool forceLockWindow) override {
    table->call<&quillmar_conversion_tracking_manager::send>(encoded(conversionValue).c_str(),
                                                             static_cast<std::int32_t>(window), forceLockWindow);
  }
};

void put(Quillmar& instance, std::shared_ptr<ConversionValuesRepositoryProtocol> repository) noexcept {
  instance.setConversionValuesRepository(std::move(repository));
}
void put(Quillmar& instance, std::shared_ptr<VerificationKeyRepositoryProtocol> repository) noexcept {
  instance.setVerificationKeyRepository(std::move(repository));
}
void put(Quillmar& instance, std::shared_ptr<EventServerLogRepositoryProtocol> repository) noexcept {
  instance.setEventServerLogRepository(std::move(repository));
}
void put(Quillmar& instance, std::shared_ptr<ConversionTrackingManagerProtocol> manager) noexcept {
  instance.setConversionTrackingManager(std::move(manager));
}

/// Puts an adapter over the table in the place of a collaborator; for a null table, nothing.
template <class Adapter, class Protocol, class Functions, class... Required>
quillmar_status putTable(quillmar_instance* instance, const Functions* given, Required... required) noexcept {
  if (instance == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    std::shared_ptr<Protocol> adapter = adapterOver<Adapter>(given, required...);
    if (given != nullptr && !adapter) {
      return QUILLMAR_ERROR_INVALID_ARGUMENT;
    }
    put(*instance->object, std::move(adapter));
    return QUILLMAR_OK;
  });
}

template <class Protocol>
quillmar_collaborator* handleOf(std::shared_ptr<Protocol> object) {
  return object ? new quillmar_collaborator{std::move(object)} : nullptr;
}

/// Null for a collaborator of another kind.
template <class Protocol>
Protocol* as(const quillmar_collaborator* collaborator) noexcept {
  const auto* const object =
      collaborator != nullptr ? std::get_if<std::shared_ptr<Protocol>>(&collaborator->object) : nullptr;
  return object != nullptr ? object->get() : nullptr;
}

/// Tells the program once: what came, or, when it goes, that nothing did.
template <class... Results>
class Answer {
 public:
  using Function = void (*)(void* context, Results... results, const char* error);

  Answer(void* context, Function function) noexcept : context_(context), function_(function) {}
  ~Answer() { tell(Results()..., "It ended without an answer."); }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  void tell(Results... results, const std::exception_ptr& failure) {
    const std::string text = failure ? textualDescription(failure) : "";
    tell(results..., failure ? text.c_str() : nullptr);
  }

 private:
  void tell(Results... results, const char* error) noexcept {
    if (const Function function = function_.exchange(nullptr)) {
      function(context_, results..., error);
    }
  }

  void* const context_;
  std::atomic<Function> function_;
};

/// Begins what is answered later.
template <class Answer, class Begin>
quillmar_status ask(void* context, typename Answer::Function done, Begin begin) noexcept {
  return statusOf([&] {
    const auto answer = std::make_shared<Answer>(context, done);
    try {
      begin(answer);
    } catch (...) {  // told by the answer, which goes
    }
    return QUILLMAR_OK;
  });
}

/// What `get` gives, or nothing when it fails.
template <class Get>
std::size_t copyWhat(Get get, char* buffer, std::size_t capacity) noexcept {
  std::string text;
  statusOf([&] {
    text = get();
    return QUILLMAR_OK;
  });
  return copyText(text, buffer, capacity);
}

}  // namespace

}  // namespace quillmar

using namespace quillmar;

void quillmar_fetch_completion_call(quillmar_fetch_completion* completion, const char* error) {
  const auto callback = quillmar_fetch_completion::taken(completion);
  statusOf([&] {
    if (callback) {
      callback(failureOf(error));
    }
    return QUILLMAR_OK;
  });
}
void quillmar_fetch_completion_drop(quillmar_fetch_completion* completion) {
  quillmar_fetch_completion::taken(completion);
}
void quillmar_log_completion_call(quillmar_log_completion* completion, bool accepted, const char* error) {
  const auto callback = quillmar_log_completion::taken(completion);
  statusOf([&] {
    if (callback) {
      callback({failureOf(error), error == nullptr && accepted});
    }
    return QUILLMAR_OK;
  });
}
void quillmar_log_completion_drop(quillmar_log_completion* completion) {
  quillmar_log_completion::taken(completion);
}

quillmar_status quillmar_set_conversion_values_repository(quillmar_instance* instance,
                                                          const quillmar_conversion_values_repository* repository) {
  return putTable<TableConversionValues, ConversionValuesRepositoryProtocol>(
      instance, repository, &quillmar_conversion_values_repository::fetch_and_save,
      &quillmar_conversion_values_repository::fetch_all);
}
quillmar_status quillmar_set_verification_key_repository(quillmar_instance* instance,
                                                         const quillmar_verification_key_repository* repository) {
  return putTable<TableVerificationKey, VerificationKeyRepositoryProtocol>(
      instance, repository, &quillmar_verification_key_repository::fetch, &quillmar_verification_key_repository::save);
}
quillmar_status quillmar_set_event_server_log_repository(quillmar_instance* instance,
                                                         const quillmar_event_server_log_repository* repository) {
  return putTable<TableEventServerLog, EventServerLogRepositoryProtocol>(
      instance, repository, &quillmar_event_server_log_repository::log_event);
}
quillmar_status quillmar_set_conversion_tracking_manager(quillmar_instance* instance,
                                                         const quillmar_conversion_tracking_manager* manager) {
  return putTable<TableTrackingManager, ConversionTrackingManagerProtocol>(instance, manager,
                                                                           &quillmar_conversion_tracking_manager::send);
}

quillmar_collaborator* quillmar_get_collaborator(const quillmar_instance* instance, quillmar_collaborator_kind kind) {
  quillmar_collaborator* result = nullptr;
  statusOf([&] {
    if (instance != nullptr && kind == QUILLMAR_CONVERSION_VALUES_REPOSITORY) {
      result = handleOf(instance->object->conversionValuesRepository());
    } else if (instance != nullptr && kind == QUILLMAR_VERIFICATION_KEY_REPOSITORY) {
      result = handleOf(instance->object->verificationKeyRepository());
    } else if (instance != nullptr && kind == QUILLMAR_EVENT_SERVER_LOG_REPOSITORY) {
      result = handleOf(instance->object->eventServerLogRepository());
    } else if (instance != nullptr && kind == QUILLMAR_CONVERSION_TRACKING_MANAGER) {
      result = handleOf(instance->object->conversionTrackingManager());
    }
    return QUILLMAR_OK;
  });
  return result;
}
quillmar_status quillmar_set_collaborator(quillmar_instance* instance, const quillmar_collaborator* collaborator) {
  if (instance == nullptr || collaborator == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  std::visit([&](const auto& object) { put(*instance->object, object); }, collaborator->object);
  return QUILLMAR_OK;
}
void quillmar_collaborator_release(quillmar_collaborator* collaborator) {
  delete collaborator;
}
void* quillmar_collaborator_context(const quillmar_collaborator* collaborator, void (*release)(void* context)) {
  const OverAnyTable* table = nullptr;
  if (collaborator != nullptr) {
    table = std::visit([](const auto& object) { return dynamic_cast<const OverAnyTable*>(object.get()); },
                       collaborator->object);
  }
  return table != nullptr ? table->contextOf(release) : nullptr;
}

quillmar_status quillmar_collaborator_fetch_and_save(const quillmar_collaborator* collaborator, void* context,
                                                     void (*done)(void* context, const char* error)) {
  auto* const repository = as<ConversionValuesRepositoryProtocol>(collaborator);
  if (repository == nullptr || done == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return ask<Answer<>>(context, done, [&](const auto& answer) {
    repository->fetchAndSaveConversionValues([answer](const std::exception_ptr& failure) { answer->tell(failure); });
  });
}
size_t quillmar_collaborator_copy_document(const quillmar_collaborator* collaborator, char* buffer, size_t capacity) {
  const auto* const repository = as<ConversionValuesRepositoryProtocol>(collaborator);
  const auto document = [&] { return repository != nullptr ? encoded(*repository->fetchAllConversionValues()) : ""; };
  return copyWhat(document, buffer, capacity);
}

size_t quillmar_collaborator_copy_key(const quillmar_collaborator* collaborator, char* buffer, size_t capacity) {
  const auto* const repository = as<VerificationKeyRepositoryProtocol>(collaborator);
  const auto key = [&] { return repository != nullptr ? repository->fetchVerificationKey().value_or("") : ""; };
  return copyWhat(key, buffer, capacity);
}
quillmar_status quillmar_collaborator_save_key(const quillmar_collaborator* collaborator, const char* key) {
  auto* const repository = as<VerificationKeyRepositoryProtocol>(collaborator);
  if (repository == nullptr || key == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    repository->save(key);
    return QUILLMAR_OK;
  });
}

quillmar_status quillmar_collaborator_log_event(const quillmar_collaborator* collaborator, const char* event,
                                                const char* identifier, void* context,
                                                void (*done)(void* context, bool accepted, const char* error)) {
  auto* const repository = as<EventServerLogRepositoryProtocol>(collaborator);
  if (repository == nullptr || event == nullptr || done == nullptr) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return ask<Answer<bool>>(context, done, [&](const auto& answer) {
    auto completion = [answer](const EventLogResult& result) { answer->tell(result.accepted, result.failure); };
    if (identifier != nullptr) {
      repository->logEventAs(event, identifier, std::move(completion));
    } else {
      repository->logEvent(event, std::move(completion));
    }
  });
}

quillmar_status quillmar_collaborator_send(const quillmar_collaborator* collaborator, const char* conversion_value,
                                           int32_t window, bool force_lock_window) {
  auto* const manager = as<ConversionTrackingManagerProtocol>(collaborator);
  if (manager == nullptr || conversion_value == nullptr || window < 0 ||
      static_cast<std::size_t>(window) >= allWindows.size()) {
    return QUILLMAR_ERROR_INVALID_ARGUMENT;
  }
  return statusOf([&] {
    try {
      manager->send(decoded<Rule>(conversion_value), static_cast<Window>(window), force_lock_window);
      return QUILLMAR_OK;
    } catch (const DecodingError&) {
      return QUILLMAR_ERROR_INVALID_ARGUMENT;
    }
  });
}
