// A plugin that is closed while the library is at work for it.
#include "quillmar/Quillmar.h"

extern "C" __attribute__((visibility("default"))) void report(const char* data, const char* service) {
  quillmar::platform::setSharedPlatform(quillmar::platform::makeDefaultPlatform({data, service, {}, service}));
  const auto quillmar = quillmar::Quillmar::shared();
  quillmar->configure("the-key");
  for (int i = 0; i < 200; ++i) {
    quillmar->sendEvent("session");
  }
}
