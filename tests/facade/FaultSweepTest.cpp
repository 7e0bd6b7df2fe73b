#include <gtest/gtest.h>

#include <iostream>
#include <utility>

#include "quillmar/ConversionValuesRepositoryProtocol.h"
#include "support/FacadeHarness.h"

namespace quillmar::test {
namespace {

using platform::PropertyListValue;
using simulated::InMemoryFileManager;
using simulated::InMemoryUserDefaults;

/// Makes calls fail: so many in a row of all that count.
struct Fault {
  int failing = 0;
  std::errc error{};
  int inARow = 1;
  int calls = 0;

  std::error_code next() {
    const int since = calls++ - failing;
    return failing >= 0 && since >= 0 && since < inARow ? std::make_error_code(error) : std::error_code{};
  }
  template <class Call>
  std::error_code nextOr(Call call) {
    const std::error_code fault = next();
    return fault ? fault : call();
  }
};

class FaultyFiles final : public InMemoryFileManager {
 public:
  explicit FaultyFiles(Fault& fault) : fault_(fault) {}

  std::error_code createDirectory(const std::string& path) override {
    return fault_.nextOr([&] { return InMemoryFileManager::createDirectory(path); });
  }
  std::error_code createFile(const std::string& path) override {
    return fault_.nextOr([&] { return InMemoryFileManager::createFile(path); });
  }
  std::error_code removeItem(const std::string& path) override {
    return fault_.nextOr([&] { return InMemoryFileManager::removeItem(path); });
  }
  std::error_code readFile(const std::string& path, std::string& content) const override {
    return fault_.nextOr([&] { return InMemoryFileManager::readFile(path, content); });
  }
  std::error_code writeFile(const std::string& path, std::string_view content, platform::WriteMode mode) override {
    return fault_.nextOr([&] { return InMemoryFileManager::writeFile(path, content, mode); });
  }

 private:
  Fault& fault_;
};

/// Keeps in memory what it cannot write, as the seam wants it; appends are all or nothing.
class FaultyDefaults final : public InMemoryUserDefaults {
 public:
  explicit FaultyDefaults(Fault& fault) : fault_(fault) {}

  std::optional<PropertyListValue> object(std::string_view key) const override {
    if (key == EventTracker::completedEventsKey) {  // the only value that is read from the disk
      if (const std::error_code error = fault_.next()) {
        throw std::system_error(error);
      }
    }
    return InMemoryUserDefaults::object(key);
  }
  std::error_code set(std::string_view key, PropertyListValue value) override {
    static_cast<void>(InMemoryUserDefaults::set(key, std::move(value)));
    return fault_.next();
  }
  std::error_code remove(std::string_view key) override {
    static_cast<void>(InMemoryUserDefaults::remove(key));
    return fault_.next();
  }
  std::error_code replaceDataTail(std::string_view key, std::size_t keep, std::string_view tail) override {
    return fault_.nextOr([&] { return InMemoryUserDefaults::replaceDataTail(key, keep, tail); });
  }

 private:
  Fault& fault_;
};

struct FaultyProvider final : simulated::InMemoryUserDefaultsProvider {
  explicit FaultyProvider(Fault& fault) : store(std::make_shared<FaultyDefaults>(fault)) {}
  std::shared_ptr<platform::UserDefaults> openSuite(const std::string&) override { return store; }
  const std::shared_ptr<platform::UserDefaults> store;
};

/// Tells whether the fault was met.
bool liveWith(Fault& fault) {
  FacadeHarness host;
  host.simulated.files = std::make_shared<FaultyFiles>(fault);
  host.simulated.userDefaults = std::make_shared<FaultyProvider>(fault);
  host.restart();
  const auto expectNothingAcknowledgedIsLost = [&host, &fault] {
    const Fault now = std::exchange(fault, {-1});  // this look at the history is none of the library's
    EventTracker history(host.simulated.userDefaults->openSuite(""), host.simulated.clock);
    for (const std::string name : {"session", "purchase", "after"}) {
      EXPECT_TRUE(!host.logged("EventTracker - Tracked event: " + name) || history.areEventsCompleted({name})) << name;
    }
    EXPECT_FALSE(host.logged("nexpected error"));
    fault = now;
  };
  const auto live = [&] {
    host.configure();
    host.advance(std::chrono::seconds(30));  // the attempts to fetch
    host.send("session");
    host.send("purchase", {{ASEventParam::revenue, 20}});
    expectNothingAcknowledgedIsLost();
  };
  live();
  host.restart();  // the history is read anew
  live();
  host.quillmar->reset();
  host.quillmar->setLogLevel(LogLevel::info);
  host.log.clear();
  live();
  const bool met = fault.calls > fault.failing;
  // The fault is over, and two hours later so is all that it caused.
  fault.failing = -1;
  host.advance(std::chrono::hours(2));
  host.activate();
  host.send("after");
  host.send("session");
  EXPECT_TRUE(host.quillmar->drain(std::chrono::seconds(0)));
  expectNothingAcknowledgedIsLost();
  EXPECT_TRUE(host.core().eventTracker()->areEventsCompleted({"after", "session"}));
  EXPECT_NO_THROW(host.quillmar->conversionValuesRepository()->fetchAllConversionValues());
  EXPECT_GT(host.calls().size(), 0u);
  return met;
}

TEST(FaultSweep, eachCallFailsAndTheLibraryGoesOn) {
  int faults = 0;
  for (const std::errc error : {std::errc::no_space_on_device, std::errc::io_error, std::errc::permission_denied,
                                std::errc::read_only_file_system, std::errc::resource_unavailable_try_again}) {
    for (const int inARow : {1, 5, 1'000'000}) {
      for (int call = 0;; ++call, ++faults) {
        SCOPED_TRACE(testing::Message() << inARow << " from call " << call << ": "
                                        << std::make_error_code(error).message());
        Fault fault{call, error, inARow};
        if (!liveWith(fault) || HasFailure()) {
          break;
        }
      }
    }
  }
  std::cout << faults << " calls failed\n";
  EXPECT_GT(faults, 100);
}

}  // namespace
}  // namespace quillmar::test
