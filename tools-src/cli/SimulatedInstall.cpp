#include "SimulatedInstall.h"

#include <algorithm>
#include <new>
#include <utility>

#include "quillmar/QuillmarFactory.h"

namespace quillmar::cli {
namespace {

using platform::PropertyListValue;

constexpr std::string_view lastWindowValue = "LastWindowValue";

/// Gives the same store under every name, so that it can be looked into.
class OneStoreProvider : public platform::UserDefaultsProvider {
 public:
  explicit OneStoreProvider(std::shared_ptr<platform::UserDefaults> store) : store_(std::move(store)) {}
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string&) override { return store_; }
  std::shared_ptr<platform::UserDefaults> standard() override { return store_; }

 private:
  std::shared_ptr<platform::UserDefaults> store_;
};

simulated::InMemoryHttpTransport::Service inProcess(service::ServiceLogic logic) {
  return [logic = std::make_shared<service::ServiceLogic>(std::move(logic))](const platform::HttpRequest& request) {
    service::ServiceRequest question{request.method, request.url, {}, request.body};
    const std::size_t host = request.url.find("://");
    question.target.erase(0, request.url.find('/', host + 3));
    question.headers.insert(request.headers.begin(), request.headers.end());
    service::ServiceAnswer answer = logic->handle(question);
    simulated::InMemoryAnswer result;
    result.delay = answer.delay;
    result.result.statusCode = answer.status;
    result.result.body = std::move(answer.body);
    return result;
  };
}

template <class Type>
Type member(const PropertyListValue::Dictionary& dictionary, std::string_view name) {
  const auto found = dictionary.find(name);
  const Type* value = found == dictionary.end() ? nullptr : found->second.as<Type>();
  return value == nullptr ? Type{} : *value;
}

SentValue sentValue(const PropertyListValue::Dictionary& dictionary) {
  SentValue value;
  value.key = member<std::string>(dictionary, "key");
  value.fineValue = static_cast<int>(member<std::int64_t>(dictionary, "fineValue"));
  if (std::string coarse = member<std::string>(dictionary, "coarseValue"); !coarse.empty()) {
    value.coarseValue = std::move(coarse);
  }
  for (const PropertyListValue& event : member<PropertyListValue::Array>(dictionary, "completedEvents")) {
    if (const auto* name = event.as<std::string>()) {
      value.completedEvents.push_back(*name);
    }
  }
  std::sort(value.completedEvents.begin(), value.completedEvents.end());
  return value;
}

}  // namespace

platform::Clock::TimePoint SimulatedInstall::firstLaunch() {
  return platform::Clock::TimePoint(std::chrono::seconds(1767258000));  // 2026-01-01T09:00:00Z
}

SimulatedInstall::SimulatedInstall(service::ServiceLogic logic, const SimulateOptions& options)
    : simulated_(firstLaunch(), options.osVersion),
      transport_(std::make_shared<CountingTransport>(simulated_.http)),
      settings_(std::make_shared<simulated::InMemoryUserDefaults>()) {
  simulated_.http->setService([clock = simulated_.clock, upAt = firstLaunch() + options.serviceDown,
                               service = inProcess(std::move(logic))](const platform::HttpRequest& request) {
    simulated::InMemoryAnswer down;
    down.result.statusCode = 503;
    return clock->now() < upAt ? down : service(request);
  });
  const simulated::SignedAd ad = options.ad.value_or(simulated::adReachedOn(options.osVersion));
  simulated_.adNetwork->setRules({ad, firstLaunch(), options.windowHours});
  platform::Platform platform = simulated_.platform();
  platform.http = transport_;
  platform.userDefaults = std::make_shared<OneStoreProvider>(settings_);
  platform.serviceUrl = "https://service.invalid";
  platform.standardOutput = [](std::string_view) {};  // the timeline tells what failed
  platform::setSharedPlatform(platform);
  Quillmar::resetStaticState();
  Quillmar::setUseMock(false);
  quillmar_ = QuillmarFactory::createQuillmar(platform);
  if (!quillmar_) {
    throw std::bad_alloc();
  }
  quillmar_->setOptions(options.library);
  quillmar_->setDecisionObserver([this](const Decision& decision) { decisions_.push_back(decision); });
}

StepResult SimulatedInstall::advanceTo(std::chrono::seconds at) {
  simulated_.clock->advanceTo(firstLaunch() + at);
  return settle();
}

StepResult SimulatedInstall::perform(const Step& step) {
  if (const auto* event = std::get_if<EventStep>(&step)) {
    if (event->params) {
      quillmar_->sendEvent(event->name, *event->params);
    } else {
      quillmar_->sendEvent(event->name);
    }
  } else if (const auto* activate = std::get_if<ActivateStep>(&step)) {
    simulated_.notifications->post(activate->notification);
  } else if (const auto* configure = std::get_if<ConfigureStep>(&step)) {
    quillmar_->configure(configure->key);
  } else if (const auto* consent = std::get_if<ConsentStep>(&step)) {
    consent->grant ? quillmar_->grantConsent() : quillmar_->revokeConsent();
  } else if (const auto* network = std::get_if<NetworkStep>(&step)) {
    quillmar_->setNetworkPaused(network->pause);
  } else if (std::holds_alternative<ResetStep>(step)) {
    quillmar_->reset();
  }
  return settle();
}

StepResult SimulatedInstall::settle() {
  simulated_.clock->advance(std::chrono::nanoseconds(0));
  StepResult result;
  result.at = std::chrono::duration_cast<std::chrono::seconds>(simulated_.clock->now() - firstLaunch());
  result.window = quillmar_->state().window;
  result.platformWindow = simulated_.adNetwork->rules().windowAt(simulated_.clock->now());

  const QuillmarStatistics before = std::exchange(statistics_, quillmar_->statistics());
  result.change = {statistics_.sent - before.sent,
                   statistics_.dropped - before.dropped,
                   std::max(statistics_.parked, before.parked) - before.parked,
                   statistics_.logged - before.logged,
                   statistics_.failed - before.failed,
                   statistics_.kept - before.kept};

  const std::vector<simulated::PlatformCall> calls = simulated_.adNetwork->calls();
  result.calls.assign(calls.begin() + static_cast<std::ptrdiff_t>(callsSeen_), calls.end());
  callsSeen_ = calls.size();
  result.decisions = std::exchange(decisions_, {});

  const std::optional<std::uint64_t> revision = settings_->revision(lastWindowValue);
  if (revision != std::exchange(valueSeen_, revision)) {
    if (const auto value = settings_->object(lastWindowValue)) {
      if (const auto* dictionary = value->as<PropertyListValue::Dictionary>()) {
        result.sent = sentValue(*dictionary);
      }
    }
  }
  return result;
}

}  // namespace quillmar::cli
