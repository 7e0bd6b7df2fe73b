// A host with an Asio of another version and a {fmt} of another configuration than those that are in the library.
#define FMT_HEADER_ONLY
#include <fmt/format.h>
#include <quillmar/Quillmar.h>

#include <boost/asio.hpp>
#include <boost/version.hpp>
#include <thread>

static_assert(BOOST_VERSION < 108100);

namespace {
struct Groups final : std::numpunct<char> {
  char do_thousands_sep() const override { return '\''; }
  std::string do_grouping() const override { return "\3"; }
};
}  // namespace

int main() {
  quillmar::platform::DefaultPlatformOptions options;
  options.serviceUrl = "http://127.0.0.1:1";  // nothing answers there
  quillmar::platform::setSharedPlatform(quillmar::platform::makeDefaultPlatform(options));
  const auto events = quillmar::Quillmar::shared();
  events->configure("any-key");
  boost::asio::io_context context;
  int ticks = 0;
  for (int i = 0; i < 100; ++i) {
    auto timer = std::make_shared<boost::asio::steady_timer>(context, std::chrono::milliseconds(i));
    timer->async_wait([&, timer](const boost::system::error_code& error) {
      events->sendEvent("tick");
      ticks += error ? 0 : 1;
    });
  }
  std::thread([&] { context.run(); }).join();
  events->drain(std::chrono::seconds(1));
  const bool passed = ticks == 100 && events->statistics().sent == 100 &&
                      fmt::format(std::locale({}, new Groups), "{:L}", 1234567) == "1'234'567" &&
                      fmt::format("{}", static_cast<__int128>(-1)) == "-1";
  return passed ? 0 : 1;
}
