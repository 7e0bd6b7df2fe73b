#pragma once

#include <memory>
#include <system_error>

#include "Network/EventsApiClientProtocol.h"
#include "Persistence/EventsRepositoryProtocol.h"

namespace quillmar {

enum class EventsRepositoryProtocolError { error = 1 };

std::error_code make_error_code(EventsRepositoryProtocolError error) noexcept;

class EventsRepository final : public EventsRepositoryProtocol {
 public:
  explicit EventsRepository(std::shared_ptr<EventsApiClientProtocol> apiClient) noexcept;

  Task<void> send(std::string payload) override;

 private:
  const std::shared_ptr<EventsApiClientProtocol> apiClient_;
};

}  // namespace quillmar

template <>
struct std::is_error_code_enum<quillmar::EventsRepositoryProtocolError> : std::true_type {};
