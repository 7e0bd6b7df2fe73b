#include <fstream>

namespace {

NSString* inSuites(NSString* name) {
  const char* const folder = ::getenv("SUITES");
  return [[NSString stringWithUTF8String:folder] stringByAppendingPathComponent:name];
}

void mark(NSString* what, NSString* path) {
  if (::getenv("SUITES") == nullptr) {
    return;
  }
  std::ofstream([inSuites(@"marks") UTF8String], std::ios::app)
      << [what UTF8String] << ' ' << [[path lastPathComponent] UTF8String] << '\n';
}

}  // namespace

@implementation NSProcessInfo (Additions)
- (NSOperatingSystemVersion)operatingSystemVersion {
  return {17, 4, 0};
}
@end

#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wobjc-protocol-method-implementation"
@implementation NSUserDefaults (Additions)
- (instancetype)initWithSuiteName:(NSString*)name {
  // The file that is meant is the program's, in the folder of the one that is named.
  NSString* const folder = inSuites([name stringByReplacingOccurrencesOfString:@"/" withString:@"%"]);
  [[NSFileManager defaultManager] createDirectoryAtPath:folder
                            withIntermediateDirectories:YES
                                             attributes:nil
                                                  error:nullptr];
  NSUserDefaults* const suite = [self initWithContentsOfFile:[folder stringByAppendingPathComponent:@"any.plist"]];
  [suite setSearchList:[NSArray arrayWithObject:[[NSProcessInfo processInfo] processName]]];
  [suite synchronize];
  return suite;
}
// GNUstep's own would be a file of the account's.
+ (NSUserDefaults*)standardUserDefaults {
  static thread_local bool opening = false;  // which asks for the standard ones itself
  if (opening) {
    return nil;
  }
  opening = true;
  NSUserDefaults* const standard = [[[self alloc] initWithSuiteName:@"standard"] autorelease];
  opening = false;
  return standard;
}
@end
#pragma clang diagnostic pop

@implementation NSFileManager (Additions)
- (BOOL)setAttributes:(NSDictionary*)attributes ofItemAtPath:(NSString*)path error:(NSError**)error {
  (void)error;
  mark([attributes objectForKey:NSFileProtectionKey], path);
  return YES;
}
@end

@implementation NSURL (Additions)
- (BOOL)setResourceValue:(id)value forKey:(NSString*)key error:(NSError**)error {
  (void)error;
  mark([value boolValue] ? key : @"-", [self path]);
  return YES;
}
@end
