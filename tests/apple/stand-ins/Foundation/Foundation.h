// A stand-in, see README.md in this folder.
#pragma once

#include <Availability.h>
#include <stdint.h>

typedef bool BOOL;  // on arm64
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;

__attribute__((objc_root_class))
@interface NSObject
+ (instancetype)alloc;
- (instancetype)init;
- (id)copy;
+ (Class)class;
- (BOOL)isKindOfClass:(Class)aClass;
@end

@class NSArray, NSDictionary, NSData, NSError;

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding { NSUTF8StringEncoding = 4 };

@interface NSString : NSObject
- (instancetype)initWithBytes:(const void*)bytes length:(NSUInteger)length encoding:(NSStringEncoding)encoding;
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
@end

@interface NSNumber : NSObject
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithDouble:(double)value;
@property(readonly) BOOL boolValue;
@property(readonly) double doubleValue;
@property(readonly) long long longLongValue;
@property(readonly) const char* objCType;
@end

@interface NSDate : NSObject
+ (instancetype)dateWithTimeIntervalSinceReferenceDate:(NSTimeInterval)seconds;
@property(readonly) NSTimeInterval timeIntervalSinceReferenceDate;
@end

@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(void*)state objects:(id __unsafe_unretained[])buffer count:(NSUInteger)count;
@end

@interface NSArray : NSObject <NSFastEnumeration>
@property(readonly) NSUInteger count;
- (id)objectAtIndex:(NSUInteger)index;
@end
@interface NSMutableArray : NSArray
+ (instancetype)arrayWithCapacity:(NSUInteger)capacity;
- (void)addObject:(id)object;
@end

@interface NSDictionary : NSObject <NSFastEnumeration>
+ (instancetype)dictionaryWithObject:(id)object forKey:(id)key;
- (id)objectForKey:(id)key;
@end
@interface NSMutableDictionary : NSDictionary
+ (instancetype)dictionaryWithCapacity:(NSUInteger)capacity;
- (void)setObject:(id)object forKey:(id)key;
@end

@interface NSError : NSObject
@property(readonly, copy) NSString* localizedDescription;
@end

@interface NSUserDefaults : NSObject
+ (NSUserDefaults*)standardUserDefaults;
- (instancetype)initWithSuiteName:(NSString*)name STAND_IN_IOS(7.0);
- (id)objectForKey:(NSString*)key;
- (void)setObject:(id)value forKey:(NSString*)key;
- (void)removeObjectForKey:(NSString*)key;
- (BOOL)synchronize;
@end

@interface NSURL : NSObject
+ (NSURL*)fileURLWithPath:(NSString*)path;
- (BOOL)setResourceValue:(id)value forKey:(NSString*)key error:(NSError* __autoreleasing*)error STAND_IN_IOS(4.0);
@end
extern NSString* const NSURLIsExcludedFromBackupKey STAND_IN_IOS(5.1);

@interface NSFileManager : NSObject
+ (NSFileManager*)defaultManager;
- (BOOL)setAttributes:(NSDictionary*)attributes
         ofItemAtPath:(NSString*)path
                error:(NSError* __autoreleasing*)error STAND_IN_IOS(2.0);
@end
extern NSString* const NSFileProtectionKey STAND_IN_IOS(4.0);
extern NSString* const NSFileProtectionCompleteUntilFirstUserAuthentication STAND_IN_IOS(5.0);

typedef enum : NSUInteger { NSDocumentDirectory = 9, NSApplicationSupportDirectory = 14 } NSSearchPathDirectory;
typedef enum : NSUInteger { NSUserDomainMask = 1 } NSSearchPathDomainMask;
extern "C" NSArray* NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory, NSSearchPathDomainMask, BOOL);

@interface NSBundle : NSObject
+ (NSBundle*)mainBundle;
@property(readonly) NSString* bundleIdentifier;
- (id)objectForInfoDictionaryKey:(NSString*)key;
@end

typedef struct {
  NSInteger majorVersion, minorVersion, patchVersion;
} NSOperatingSystemVersion;
@interface NSProcessInfo : NSObject
+ (NSProcessInfo*)processInfo;
@property(readonly) NSOperatingSystemVersion operatingSystemVersion STAND_IN_IOS(8.0);
@end

@class NSNotification, NSOperationQueue;
@interface NSNotificationCenter : NSObject
+ (NSNotificationCenter*)defaultCenter;
- (id)addObserverForName:(NSString*)name
                  object:(id)object
                   queue:(NSOperationQueue*)queue
              usingBlock:(void (^)(NSNotification*))block STAND_IN_IOS(4.0);
- (void)removeObserver:(id)observer;
@end
