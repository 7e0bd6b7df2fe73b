// A stand-in, see README.md in this folder.
#pragma once

#import <Foundation/Foundation.h>

typedef NSString* SKAdNetworkCoarseConversionValue;
extern SKAdNetworkCoarseConversionValue const SKAdNetworkCoarseConversionValueHigh STAND_IN_IOS(16.1);
extern SKAdNetworkCoarseConversionValue const SKAdNetworkCoarseConversionValueMedium STAND_IN_IOS(16.1);
extern SKAdNetworkCoarseConversionValue const SKAdNetworkCoarseConversionValueLow STAND_IN_IOS(16.1);

STAND_IN_IOS(11.3)
@interface SKAdNetwork : NSObject
+ (void)registerAppForAdNetworkAttribution STAND_IN_IOS_UNTIL(11.3, 15.4);
+ (void)updateConversionValue:(NSInteger)conversionValue STAND_IN_IOS_UNTIL(14.0, 15.4);
+ (void)updatePostbackConversionValue:(NSInteger)conversionValue
                    completionHandler:(void (^)(NSError* error))completion STAND_IN_IOS(15.4);
+ (void)updatePostbackConversionValue:(NSInteger)fineValue
                          coarseValue:(SKAdNetworkCoarseConversionValue)coarseValue
                           lockWindow:(BOOL)lockWindow
                    completionHandler:(void (^)(NSError* error))completion STAND_IN_IOS(16.1);
@end
