#include <quillmar/Quillmar.h>

int main(int argc, char** argv) {
  if (argc > 1) {  // another event service than the one built in
    quillmar::platform::DefaultPlatformOptions options;
    options.serviceUrl = argv[1];
    quillmar::platform::setSharedPlatform(quillmar::platform::makeDefaultPlatform(options));
  }
  const auto quillmar = quillmar::Quillmar::shared();
  quillmar->setLogLevel(quillmar::LogLevel::debug);
  quillmar->configure("your-verification-key");
  quillmar->sendEvent("session");
  quillmar->sendEvent("purchase", {{quillmar::ASEventParam::revenue, 9.99}});
  return quillmar->waitUntilDelivered(std::chrono::seconds(10)) ? 0 : 1;
}
