#include "Platform/Apple/AdServicesToken.h"

#import <AdServices/AdServices.h>
#import <Foundation/Foundation.h>

#include "Platform/Apple/FoundationError.h"

namespace quillmar::platform {

namespace {

AttributionTokenResult token() {
  @autoreleasepool {
    if (@available(iOS 14.3, *)) {
      NSError* error = nil;
      if (std::optional<std::string> text = utf8([AAAttribution attributionTokenWithError:&error])) {
        return *std::move(text);
      }
      return platformError(error);
    }
    return PlatformError{"The attribution token is available on systems from 14.3 on."};
  }
}

}  // namespace

void AdServicesToken::requestToken(Completion completion) {
  completion(token());
}

}  // namespace quillmar::platform
