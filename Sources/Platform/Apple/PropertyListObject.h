#pragma once

#import <Foundation/Foundation.h>

#include <optional>

#include "quillmar/platform/UserDefaults.h"

namespace quillmar::platform {

/// The value as a property-list object; nil when that would not give back the value as it was: a text or a key that is
/// not UTF-8, a date that a floating-point number of seconds cannot express, not-a-number.
id propertyListObject(const PropertyListValue& value);

/// The value of a property-list object; nothing for other objects. Dates are rounded to microseconds: what is finer is
/// an artefact of their floating-point form.
std::optional<PropertyListValue> propertyListValue(id object);

}  // namespace quillmar::platform
