#include "service/ServiceLogic.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/json/value.hpp>
#include <initializer_list>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Model/ConfigResponse.h"
#include "Model/ConversionValuesCoding.h"
#include "Platform/Ascii.h"
#include "service/ShopConfig.h"

namespace quillmar::service {

namespace {

struct Endpoint {
  std::string_view path;
  std::string_view method;
};
constexpr Endpoint kConfig{"/ios/config", "GET"};
constexpr Endpoint kConversionValues{"/v2/conversionValues", "GET"};
constexpr Endpoint kEvents{"/ios/events", "POST"};
constexpr Endpoint kAttribution{"/api/v1", "POST"};

std::string_view pathOf(const ServiceRequest& request) {
  return std::string_view(request.target).substr(0, request.target.find('?'));
}

constexpr std::string_view kDevelopmentAppId = "development-app";

/// Reads a configuration response, or wraps a document that has only the inner part.
ConfigResponse decodeConfiguration(const std::string& text) {
  const boost::json::value value = parseJson(text);
  const JsonReader document(value);
  if (document.optional("app_id") || document.optional("sdk_enabled")) {
    return ConfigResponse::decode(document);
  }
  ConversionValues inner = Codable<ConversionValues>::decode(document);
  return {std::string(kDevelopmentAppId), true, std::move(inner.values), std::move(inner.lockWindows)};
}

template <class Document>
std::string encoded(const Document& document) {
  JsonWriter writer;
  Codable<Document>::encode(writer, document);
  return writer.take();
}

ServiceAnswer success(std::string_view message) {
  ServiceAnswer answer;
  answer.body = JsonWriter().beginObject().member("status", "success").member("message", message).endObject().take();
  return answer;
}

ServiceAnswer failure(int status, std::string_view error) {
  ServiceAnswer answer;
  answer.status = status;
  answer.body = JsonWriter().beginObject().member("status", "error").member("error", error).endObject().take();
  return answer;
}

void refuse(ServiceAnswer& answer, int status, std::string_view error) {
  auto event = std::move(answer.event);
  answer = failure(status, error);
  answer.event = std::move(event);
}

/// What is wrong with a required text, or nothing.
std::optional<std::string> textProblem(const boost::json::object& event, std::string_view name) {
  const boost::json::value* const value = event.if_contains(name);
  if (value == nullptr) {
    return fmt::format("{} is missing", name);
  }
  return value->is_string() ? std::nullopt : std::optional(fmt::format("{} is not a string", name));
}

std::optional<std::string> textProblem(const boost::json::object& event,
                                       std::initializer_list<std::string_view> names) {
  for (const std::string_view name : names) {
    if (auto problem = textProblem(event, name)) {
      return problem;
    }
  }
  return std::nullopt;
}

std::optional<std::string> purchaseProblem(const boost::json::object& purchase) {
  if (auto problem = textProblem(purchase, {"event_id", "app_id", "event_name"})) {
    return problem;
  }
  const boost::json::value* const details = purchase.if_contains("transaction_details");
  if (details == nullptr) {
    return "transaction_details is missing";
  }
  if (!details->is_object()) {
    return "transaction_details is not an object";
  }
  const boost::json::value* const state = details->get_object().if_contains("state");
  if (state == nullptr || !(state->is_int64() || state->is_uint64())) {
    return state == nullptr ? "transaction_details.state is missing" : "transaction_details.state is not an integer";
  }
  return std::nullopt;
}

std::optional<std::string> eventProblem(const boost::json::object& event) {
  const boost::json::value* const type = event.if_contains("event_type");
  if (type != nullptr && type->is_string() && type->get_string() == "AUTOMATIC") {
    return purchaseProblem(event);
  }
  if (auto problem = textProblem(event, {"event_id", "event_name", "quillmar_id", "app_id", "event_type"})) {
    return problem;
  }
  return type->get_string() == "MANUAL" ? textProblem(event, "sdk_version") : std::nullopt;
}

ServiceAnswer acceptEvent(const std::string& body) {
  try {
    const boost::json::value value = parseJson(body);
    const boost::json::object* const event = value.if_object();
    if (event == nullptr) {
      return failure(400, "the body is not a JSON object");
    }
    const auto problem = eventProblem(*event);
    ServiceAnswer answer = problem ? failure(400, *problem) : success("event accepted");
    if (const auto* const name = event->if_contains("event_name"); name != nullptr && name->is_string()) {
      answer.event = std::string(name->get_string());
    }
    return answer;
  } catch (const DecodingError& error) {
    return failure(400, "the body is not JSON: " + error.detail());
  }
}

constexpr std::string_view kAttributionRecord =
    R"({"attribution":true,"orgId":"40669820","campaignId":"542370539","conversionType":"Download",)"
    R"("clickDate":"2026-01-01T08:00Z","adGroupId":"542317095","countryOrRegion":"US","keywordId":"87675432",)"
    R"("adId":"542317136","claimType":"Click"})";

ServiceAnswer exchangeToken(const std::string& token, std::optional<int> forcedStatus) {
  const bool valid = !token.empty() && token != "invalid-token";
  const int status = forcedStatus.value_or(valid ? 200 : 400);
  if (status != 200) {
    return failure(status, status == 400 ? "the token is empty or not valid" : "asked to fail");
  }
  ServiceAnswer answer;
  answer.body = kAttributionRecord;
  return answer;
}

}  // namespace

bool HeaderNameLess::operator()(const std::string& a, const std::string& b) const noexcept {
  return std::ranges::lexicographical_compare(a, b, {}, lowerAscii, lowerAscii);
}

ServiceLogic::ServiceLogic(const ServiceOptions& options)
    : acceptedKey_(options.acceptedKey),
      forcedStatus_(options.forcedStatus),
      attributionStatus_(options.attributionStatus),
      failuresLeft_(options.failFirst),
      delay_(options.delay) {
  try {
    const ConfigResponse response = decodeConfiguration(options.configuration.value_or(kShopConfig));
    configResponse_ = encoded(response);
    conversionValues_ = encoded(response.conversionValues());
  } catch (const DecodingError& error) {
    throw std::invalid_argument(
        fmt::format("{}: {}: {}", options.configurationName, error.code().message(), error.detail()));
  }
}

ServiceAnswer ServiceLogic::handle(const ServiceRequest& request) {
  const auto authorization = request.headers.find("Authorization");
  const bool authorized = authorization != request.headers.end() && !authorization->second.empty() &&
                          (!acceptedKey_ || authorization->second == *acceptedKey_);
  ServiceAnswer answer = route(request);
  // The service that exchanges tokens is another party's and knows no keys.
  if (!authorized && pathOf(request) != kAttribution.path && answer.status != 404 && answer.status != 405) {
    refuse(answer, 401, "the verification key is missing or not accepted");
  }
  if (failuresLeft_ > 0 || forcedStatus_) {
    const int status = failuresLeft_ > 0 ? 503 : *forcedStatus_;
    failuresLeft_ -= failuresLeft_ > 0 ? 1 : 0;
    if (status >= 300) {
      refuse(answer, status, "asked to fail");
    }
    answer.status = status;
  }
  answer.authorized = authorized;
  answer.delay = delay_;
  return answer;
}

ServiceAnswer ServiceLogic::route(const ServiceRequest& request) const {
  const std::string_view path = pathOf(request);
  for (const Endpoint& endpoint : {kConfig, kConversionValues, kEvents, kAttribution}) {
    if (path != endpoint.path) {
      continue;
    }
    if (request.method != endpoint.method) {
      ServiceAnswer answer = failure(405, fmt::format("only {} is allowed", endpoint.method));
      answer.headers.emplace("Allow", endpoint.method);
      return answer;
    }
    if (path == kEvents.path) {
      return acceptEvent(request.body);
    }
    if (path == kAttribution.path) {
      return exchangeToken(request.body, attributionStatus_);
    }
    ServiceAnswer answer;
    answer.body = path == kConfig.path ? configResponse_ : conversionValues_;
    return answer;
  }
  return failure(404, "there is nothing at this path");
}

}  // namespace quillmar::service
