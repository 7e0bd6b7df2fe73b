#pragma once

#import <Foundation/Foundation.h>

#include <optional>
#include <string>
#include <string_view>

// What the same source needs to compile with automatic reference counting and without.

namespace quillmar::platform {

#if __has_feature(objc_arc)

/// What "alloc" or "new" gave, as if by a method that gives nothing away.
template <class Object>
Object* autoreleased(Object* object) {
  return object;
}

/// Holds an object for as long as it lives.
template <class Object>
class Strong {
 public:
  explicit Strong(Object* object) : object_(object) {}
  Object* get() const { return object_; }

 private:
  Object* object_;
};

#else

template <class Object>
Object* autoreleased(Object* object) {
  return [object autorelease];
}

template <class Object>
class Strong {
 public:
  explicit Strong(Object* object) : object_([object retain]) {}
  Strong(const Strong& other) : Strong(other.object_) {}
  Strong& operator=(const Strong&) = delete;
  ~Strong() { [object_ release]; }
  Object* get() const { return object_; }

 private:
  Object* object_;
};

#endif

/// The text as Foundation's; nil when it is not UTF-8.
inline NSString* foundationText(std::string_view text) {
  return autoreleased([[NSString alloc] initWithBytes:text.empty() ? "" : text.data()
                                               length:text.size()
                                             encoding:NSUTF8StringEncoding]);
}

/// Nothing when the text is nil or has no form in UTF-8.
inline std::optional<std::string> utf8(NSString* text) {
  NSData* const bytes = [text dataUsingEncoding:NSUTF8StringEncoding];
  return bytes == nil ? std::nullopt : std::optional(std::string(static_cast<const char*>(bytes.bytes), bytes.length));
}

}  // namespace quillmar::platform
