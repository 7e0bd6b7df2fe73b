#include <quillmar/Quillmar.h>

int main() {
  const auto quillmar = quillmar::Quillmar::shared();
  quillmar->setLogLevel(quillmar::LogLevel::debug);
  quillmar->configure("your-verification-key");
  quillmar->sendEvent("session");
  quillmar->sendEvent("purchase", {{quillmar::ASEventParam::revenue, 9.99}});
  return quillmar->drain(std::chrono::seconds(10)) ? 0 : 1;
}
