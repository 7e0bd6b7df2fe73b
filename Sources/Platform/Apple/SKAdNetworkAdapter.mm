#include "Platform/Apple/SKAdNetworkAdapter.h"

#import <Foundation/Foundation.h>
#import <StoreKit/StoreKit.h>

#include <utility>

#include "Platform/Apple/FoundationError.h"

namespace quillmar::platform {

namespace {

void (^handlerOf(AdNetworkCompletion completion))(NSError*) {
  const AdNetworkCompletion captured = std::move(completion);
  return autoreleased([^(NSError* error) {
    captured(error == nil ? std::nullopt : std::optional(platformError(error)));
  } copy]);
}

}  // namespace

// The two old operations are deprecated from 15.4 on, where the library calls the new ones.
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"

void SKAdNetworkAdapter::registerAppForAdNetworkAttribution() {
  @autoreleasepool {
    [SKAdNetwork registerAppForAdNetworkAttribution];
  }
}

void SKAdNetworkAdapter::updateConversionValue(int fineValue) {
  @autoreleasepool {
    if (@available(iOS 14.0, *)) {
      [SKAdNetwork updateConversionValue:fineValue];
    }
  }
}

#pragma clang diagnostic pop

void SKAdNetworkAdapter::updatePostbackConversionValue(int fineValue, AdNetworkCompletion completion) {
  @autoreleasepool {
    if (@available(iOS 15.4, *)) {
      [SKAdNetwork updatePostbackConversionValue:fineValue completionHandler:handlerOf(std::move(completion))];
    }
  }
}

void SKAdNetworkAdapter::updatePostbackConversionValue(int fineValue, SKAdNetworkCoarseConversionValue coarseValue,
                                                       bool lockWindow, AdNetworkCompletion completion) {
  @autoreleasepool {
    if (@available(iOS 16.1, *)) {
      ::SKAdNetworkCoarseConversionValue coarse = SKAdNetworkCoarseConversionValueLow;
      if (coarseValue != SKAdNetworkCoarseConversionValue::low) {
        coarse = coarseValue == SKAdNetworkCoarseConversionValue::high ? SKAdNetworkCoarseConversionValueHigh
                                                                       : SKAdNetworkCoarseConversionValueMedium;
      }
      [SKAdNetwork updatePostbackConversionValue:fineValue
                                     coarseValue:coarse
                                      lockWindow:lockWindow ? YES : NO
                               completionHandler:handlerOf(std::move(completion))];
    }
  }
}

}  // namespace quillmar::platform
