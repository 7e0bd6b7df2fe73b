#include "Platform/Apple/FoundationDevice.h"

#import <Foundation/Foundation.h>

namespace quillmar::platform {

std::string FoundationDevice::systemVersion() const {
  // Spelled as UIKit spells it: "17.4", "17.4.1".
  static const std::string& version = *new std::string([] {
    @autoreleasepool {
      const NSOperatingSystemVersion number = [NSProcessInfo processInfo].operatingSystemVersion;
      std::string text = std::to_string(number.majorVersion) + "." + std::to_string(number.minorVersion);
      return number.patchVersion == 0 ? text : text + "." + std::to_string(number.patchVersion);
    }
  }());
  return version;
}

}  // namespace quillmar::platform
