#pragma once

#import <Foundation/Foundation.h>

#include "Platform/Apple/Strong.h"
#include "quillmar/platform/PlatformError.h"

namespace quillmar::platform {

inline PlatformError platformError(NSError* error) {
  return {utf8(error.localizedDescription).value_or("")};
}

}  // namespace quillmar::platform
