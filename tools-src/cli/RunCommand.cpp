#include "RunCommand.h"

#include <algorithm>
#include <cstdio>
#include <optional>
#include <ostream>
#include <utility>

#include "CountingTransport.h"
#include "JsonOutput.h"
#include "OffsetClock.h"
#include "quillmar/QuillmarFactory.h"
#include "quillmar/platform/InProcessNotificationCenter.h"
#include "quillmar/platform/InProcessSubscriptionUpdates.h"
#include "quillmar/simulated/SimulatedAdNetwork.h"
#include "quillmar/simulated/SimulatedAttributionToken.h"
#include "service/DevelopmentService.h"
#include "service/ServiceLogic.h"

namespace quillmar::cli {
namespace {

/// The built-in configuration on a free port.
class EmbeddedService {
 public:
  EmbeddedService() : service_({}, [this](const service::ServiceRequest& request) { return logic_.handle(request); }) {
    service_.start();
  }

  std::string url() const { return service_.url(); }

 private:
  service::ServiceLogic logic_;
  service::DevelopmentService service_;
};

using SteadyClock = std::chrono::steady_clock;

std::chrono::milliseconds timeUntil(SteadyClock::time_point instant) {
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(instant - SteadyClock::now());
  return std::max(rest, std::chrono::milliseconds(0));
}

}  // namespace

/// What the steps are done with.
struct RunCommand::Host {
  Quillmar& quillmar;
  QuillmarASAAttribution& attribution;
  platform::InProcessNotificationCenter& notifications;
  platform::InProcessSubscriptionUpdates& subscriptionUpdates;
};

RunCommand::RunCommand(RunOptions options, const StopSignal& stop) : options_(std::move(options)), stop_(stop) {}

int RunCommand::run(std::istream& input, std::ostream& output, std::ostream& errors) {
  std::optional<EmbeddedService> embedded;
  if (options_.service.empty() && !options_.mock) {
    embedded.emplace();
  }
  const std::string service = embedded ? embedded->url() : options_.service;
  platform::DefaultPlatformOptions platformOptions;
  platformOptions.dataDirectory = options_.dataDirectory;
  platformOptions.serviceUrl = service;
  platformOptions.attributionUrl = options_.attributionService.empty() ? service : options_.attributionService;
  platformOptions.caFile = options_.caFile;
  platformOptions.proxy = options_.proxy;
  platformOptions.proxyFromEnvironment = options_.proxyFromEnvironment;
  platform::Platform platform = platform::makeDefaultPlatform(platformOptions);
  platform.clock = std::make_shared<OffsetClock>(platform.clock, options_.clockOffset);
  const auto transport = std::make_shared<CountingTransport>(platform.http);
  platform.http = transport;
  const auto device = std::make_shared<simulated::SimulatedDevice>(options_.osVersion);
  platform.device = device;
  const auto adNetwork = std::make_shared<simulated::SimulatedAdNetwork>(platform.clock, device);
  platform.storeKitAdNetwork = adNetwork;
  platform.adAttributionKit = adNetwork;
  const auto notifications = std::make_shared<platform::InProcessNotificationCenter>();
  platform.notifications = notifications;
  const bool embeddedIsAsked = embedded && options_.attributionService.empty();
  if (embeddedIsAsked || !options_.attributionToken.empty()) {
    const auto token = std::make_shared<simulated::SimulatedAttributionToken>();
    token->setToken(options_.attributionToken.empty() ? "development-token" : options_.attributionToken);
    platform.attributionToken = token;
  }
  const auto subscriptionUpdates = std::make_shared<platform::InProcessSubscriptionUpdates>();
  platform.subscriptionUpdates = subscriptionUpdates;
  // What the library prints stands beside the log: standard output is for JSON Lines.
  platform.standardOutput = [](std::string_view line) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
  };

  // Owned by the observer, too: a call may still be on its way when waiting for it has been given up.
  const auto writer = std::make_shared<JsonLineWriter>(output);
  adNetwork->setObserver([writer](const simulated::PlatformCall& call) { writer->write(toJson(call)); });

  platform::setSharedPlatform(platform);
  Quillmar::setUseMock(options_.mock);
  const std::shared_ptr<Quillmar> quillmar = QuillmarFactory::createQuillmar(platform);
  const std::shared_ptr<QuillmarASAAttribution> attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
  if (!quillmar || !attribution) {
    throw std::bad_alloc();
  }
  quillmar->setOptions(options_.library);
  attribution->setOptions(options_.library);
  if (options_.explain) {
    quillmar->setDecisionObserver([writer](const Decision& decision) { writer->write(toJson(decision)); });
  }
  const Host host{*quillmar, *attribution, *notifications, *subscriptionUpdates};
  configure(*quillmar, options_.key);
  InputLines lines(input, errors, options_.events, InputTime::real);
  while (!stop_.raised()) {
    const std::optional<InputLine> line = lines.next();
    if (!line) {
      break;
    }
    perform(line->step, host);
  }

  const auto deadline = SteadyClock::now() + options_.drainTimeout;
  const bool eventsDrained = quillmar->drain(options_.drainTimeout);
  const bool drained = attribution->drain(timeUntil(deadline)) && eventsDrained;
  adNetwork->setObserver(nullptr);
  boost::json::object summary;
  summary["drained"] = drained;
  summary["events"] = toJson(quillmar->statistics());
  summary["purchases"] = toJson(attribution->statistics());
  summary["platformCalls"] = adNetwork->calls().size();
  summary["requests"] = toJson(transport->counts());
  summary["state"] = toJson(quillmar->state());
  summary["badLines"] = lines.badLines();
  if (options_.library.reliableDelivery) {
    summary["outbox"] = outboxToJson(quillmar->statistics());
    summary["purchasesUnsent"] = attribution->statistics().unsent;
  }
  boost::json::object line;
  line["summary"] = std::move(summary);
  writer->write(line);
  if (options_.health) {
    writer->write(toJson(quillmar->health()));
  }
  writer->close();
  return lines.badLines() == 0 ? 0 : 1;
}

void RunCommand::configure(Quillmar& quillmar, const std::string& key) const {
  quillmar.setLogLevel(options_.logLevel);  // each time: a reset turns the log off
  quillmar.configure(key);
}

void RunCommand::perform(const Step& step, const Host& host) const {
  if (const auto* event = std::get_if<EventStep>(&step)) {
    if (event->params) {
      host.quillmar.sendEvent(event->name, *event->params);
    } else {
      host.quillmar.sendEvent(event->name);
    }
  } else if (const auto* activate = std::get_if<ActivateStep>(&step)) {
    host.notifications.post(activate->notification);
  } else if (const auto* sleep = std::get_if<SleepStep>(&step)) {
    stop_.waitFor(sleep->duration);
  } else if (const auto* again = std::get_if<ConfigureStep>(&step)) {
    configure(host.quillmar, again->key);
  } else if (const auto* consent = std::get_if<ConsentStep>(&step)) {
    consent->grant ? host.quillmar.grantConsent() : host.quillmar.revokeConsent();
  } else if (const auto* attribution = std::get_if<AttributionStep>(&step)) {
    switchAttribution(attribution->enable, host);
  } else if (const auto* network = std::get_if<NetworkStep>(&step)) {
    host.quillmar.setNetworkPaused(network->pause);
    host.attribution.setNetworkPaused(network->pause);
  } else if (const auto* subscription = std::get_if<SubscriptionStep>(&step)) {
    host.subscriptionUpdates.post(subscription->update);
  } else {
    host.quillmar.reset();
  }
}

void RunCommand::switchAttribution(bool enable, const Host& host) const {
  if (enable) {
    settle(host.quillmar);  // until the verification key is stored: without it there is nothing to enable
    host.attribution.enableASAAttributionTracking();
  } else {
    host.attribution.disableASAAttributionTracking();
  }
  settle(host.attribution);  // updates reach a listener that is there; what comes earlier is lost
}

/// Waits until nothing is in flight, no longer than the drain time-out or the wish to stop.
template <class Facade>
void RunCommand::settle(Facade& facade) const {
  constexpr std::chrono::milliseconds oneLook{100};
  const auto deadline = SteadyClock::now() + options_.drainTimeout;
  while (!facade.drain(std::min(oneLook, timeUntil(deadline))) && SteadyClock::now() < deadline && !stop_.raised()) {
  }
}

}  // namespace quillmar::cli
