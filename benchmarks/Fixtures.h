#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Conversion/EventTracker.h"
#include "Platform/Sqlite/SqliteUserDefaults.h"
#include "quillmar/ASEventParam.h"
#include "quillmar/ConversionValues.h"
#include "quillmar/Quillmar.h"
#include "quillmar/platform/Platform.h"

namespace quillmar::bench {

/// A folder of its own that goes with the object.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;
  const std::string& path() const noexcept { return path_; }

 private:
  std::string path_;
};

/// The event of all cases: a purchase with its revenue.
inline constexpr const char* eventName = "purchase";
EventParameters eventParameters();
NamedParameters namedEventParameters();

/// Rules, each with a fine and a coarse value in three windows and two required events apiece. Half of them are
/// complete once `eventName` has been tracked with a revenue.
ConversionValues rules(int count = 64);
/// A configuration response with these rules, about 50 KB.
std::string configurationResponse();

/// A suite as the library has it, opened at its first use.
std::shared_ptr<platform::UserDefaults> openStore(const std::string& folder);

/// A tracker over a real store with so many events in it, tracked one by one.
struct History {
  explicit History(std::size_t events);
  Folder folder;
  std::shared_ptr<platform::UserDefaults> store;
  std::shared_ptr<platform::Clock> clock;
  EventTracker tracker;
};

void trackOneByOne(EventTracker& tracker, std::size_t events);

/// Answers requests at once, on an executor, as the event service would.
class InstantTransport final : public platform::HttpTransport {
 public:
  explicit InstantTransport(std::shared_ptr<platform::Executor> executor);
  RequestId start(platform::HttpRequest request, Completion completion) override;
  void cancel(RequestId request) noexcept override;

 private:
  const std::shared_ptr<platform::Executor> executor_;
  const std::string configuration_;
};

/// The adapters of this system with settings and files in `folder`, an ad network that accepts everything, and a log
/// that goes nowhere. An empty address: an `InstantTransport`.
platform::Platform makePlatform(const std::string& folder, const std::string& serviceUrl);

/// Those that QUILLMAR_BENCH_OPTIONS in the environment names, "reliableDelivery,limits".
void setChosenOptions(Quillmar& quillmar);

/// An instance over that platform, configured, with the configuration fetched and the chosen options.
std::shared_ptr<Quillmar> makeReady(const platform::Platform& platform);

/// Fails the run when an event was lost.
void requireAllLogged(const Quillmar& quillmar, std::uint64_t events);

using SteadyClock = std::chrono::steady_clock;

inline double secondsSince(SteadyClock::time_point start) {
  return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

/// The value below which the part `quantile` of the values lie.
double quantileOf(std::vector<double>& values, double quantile);

}  // namespace quillmar::bench
