#include <gmock/gmock.h>

#include "support/AttributionHarness.h"

namespace quillmar::test {
namespace {

using namespace std::chrono_literals;
using namespace ::testing;

/// Lives without an option and with it.
class Options : public Test, protected AttributionHarness {
 protected:
  /// A new process with these options.
  void begin(const QuillmarOptions& options) {
    restart();
    quillmar->setOptions(options);
    make(simulated.platform());
    attribution->setOptions(options);
  }
};

TEST_F(Options, bothNetworksBringAnInstallByTheOtherFrameworkItsValue) {
  simulated.device->setSystemVersion("18.0");
  simulated.adNetwork->setRules({simulated::SignedAd::skAdNetwork4, startOfTests});
  for (const bool both : {false, true}) {
    begin({.updateBothNetworks = both});
    configure();
    send("session");
    EXPECT_EQ(calls().size(), both ? 3u : 1u);
    EXPECT_EQ(simulated.adNetwork->rules().postbacks().empty(), !both);
  }
}

}  // namespace
}  // namespace quillmar::test
