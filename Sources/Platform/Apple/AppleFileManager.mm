#include "Platform/Apple/AppleFileManager.h"

#import <Foundation/Foundation.h>

#include "Platform/Apple/Strong.h"

namespace quillmar::platform {

namespace {

std::optional<std::string> firstFolder(NSSearchPathDirectory which) {
  @autoreleasepool {
    NSArray* const folders = NSSearchPathForDirectoriesInDomains(which, NSUserDomainMask, YES);
    return folders.count == 0 ? std::nullopt : utf8([folders objectAtIndex:0]);
  }
}

}  // namespace

std::optional<std::string> appDocumentsFolder() {
  return firstFolder(NSDocumentDirectory);
}

std::string appSupportFolder() {
  return firstFolder(NSApplicationSupportDirectory).value_or("");
}

void protectItem(const std::string& path, Backup backup) {
  @autoreleasepool {
    NSString* const item = foundationText(path);
    if (item == nil) {
      return;
    }
    NSDictionary* const attributes =
        [NSDictionary dictionaryWithObject:NSFileProtectionCompleteUntilFirstUserAuthentication
                                    forKey:NSFileProtectionKey];
    [[NSFileManager defaultManager] setAttributes:attributes ofItemAtPath:item error:nullptr];
    if (backup == Backup::leaveOut) {
      [[NSURL fileURLWithPath:item] setResourceValue:[NSNumber numberWithBool:YES]
                                              forKey:NSURLIsExcludedFromBackupKey
                                               error:nullptr];
    }
  }
}

std::error_code AppleFileManager::createDirectory(const std::string& path) {
  // Found first: a folder that is there may be the app's own, whose protection is the app's choice.
  const bool isThere = fileExists(path);
  const std::error_code error = PosixFileManager::createDirectory(path);
  if (!error && !isThere) {
    protectItem(path, Backup::leaveOut);
  }
  return error;
}

std::error_code AppleFileManager::createFile(const std::string& path) {
  const std::error_code error = PosixFileManager::createFile(path);
  if (!error) {
    protectItem(path, Backup::leaveOut);
  }
  return error;
}

std::error_code AppleFileManager::writeFile(const std::string& path, std::string_view content, WriteMode mode) {
  const std::error_code error = PosixFileManager::writeFile(path, content, mode);
  if (!error) {
    protectItem(path, Backup::leaveOut);  // an atomic write makes a new file each time
  }
  return error;
}

}  // namespace quillmar::platform
