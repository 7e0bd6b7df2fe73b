#pragma once

// What the adapters for Apple systems use of Foundation and GNUstep's lacks. Included before each of their sources when
// they are built for the tests on GNUstep.

#import <Foundation/Foundation.h>

typedef struct {
  NSInteger majorVersion, minorVersion, patchVersion;
} NSOperatingSystemVersion;

@interface NSProcessInfo (Additions)
- (NSOperatingSystemVersion)operatingSystemVersion;  // 17.4
@end

@interface NSUserDefaults (Additions)
- (instancetype)initWithSuiteName:(NSString*)name;  // in the folder of the environment's SUITES
@end
@interface NSUserDefaults (ThereButNotDeclared)
- (instancetype)initWithContentsOfFile:(NSString*)path;
@end

#define NSFileProtectionKey @"NSFileProtectionKey"
#define NSFileProtectionCompleteUntilFirstUserAuthentication @"UntilFirstUserAuthentication"
#define NSURLIsExcludedFromBackupKey @"NSURLIsExcludedFromBackupKey"

// Both note what they are asked for in the file "marks" of the same folder.
@interface NSFileManager (Additions)
- (BOOL)setAttributes:(NSDictionary*)attributes ofItemAtPath:(NSString*)path error:(NSError**)error;
@end
@interface NSURL (Additions)
- (BOOL)setResourceValue:(id)value forKey:(NSString*)key error:(NSError**)error;
@end
