// A stand-in, see README.md in this folder.
#pragma once

#import <Foundation/Foundation.h>

STAND_IN_IOS(14.3)
@interface AAAttribution : NSObject
+ (NSString*)attributionTokenWithError:(NSError* __autoreleasing*)error;
@end
