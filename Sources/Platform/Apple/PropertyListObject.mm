#include "Platform/Apple/PropertyListObject.h"

#include <chrono>
#include <cmath>
#include <string_view>
#include <utility>

#include "Platform/Apple/Strong.h"

namespace quillmar::platform {

namespace {

using Value = PropertyListValue;

/// Foundation counts from the first day of 2001.
constexpr std::chrono::sys_seconds referenceDate = std::chrono::sys_days(std::chrono::year(2001) / 1 / 1);

id exactly(const Value& value);

struct ToObject {
  id operator()(bool value) const { return [NSNumber numberWithBool:value ? YES : NO]; }
  id operator()(std::int64_t value) const { return [NSNumber numberWithLongLong:value]; }
  id operator()(double value) const { return [NSNumber numberWithDouble:value]; }
  id operator()(const std::string& value) const { return foundationText(value); }
  id operator()(const Value::Data& value) const {
    return [NSData dataWithBytes:value.bytes.data() length:value.bytes.size()];
  }
  id operator()(Value::Date value) const {
    const std::chrono::duration<double> seconds = value - referenceDate;
    return [NSDate dateWithTimeIntervalSinceReferenceDate:seconds.count()];
  }
  id operator()(const Value::Array& value) const {
    NSMutableArray* const array = [NSMutableArray arrayWithCapacity:value.size()];
    for (const Value& element : value) {
      id const object = exactly(element);
      if (object == nil) {
        return nil;
      }
      [array addObject:object];
    }
    return array;
  }
  id operator()(const Value::Dictionary& value) const {
    NSMutableDictionary* const dictionary = [NSMutableDictionary dictionaryWithCapacity:value.size()];
    for (const auto& [key, element] : value) {
      NSString* const name = foundationText(key);
      id const object = exactly(element);
      if (name == nil || object == nil) {
        return nil;
      }
      [dictionary setObject:object forKey:name];
    }
    return dictionary;
  }
};

id exactly(const Value& value) {
  return std::visit(ToObject{}, value.storage());
}

std::optional<Value> numberValue(NSNumber* number) {
  // Booleans are two objects of their own, in files as well.
  if (number == [NSNumber numberWithBool:YES] || number == [NSNumber numberWithBool:NO]) {
    return Value(static_cast<bool>(number.boolValue));
  }
  const std::string_view type = number.objCType;
  return type == "d" || type == "f" ? Value(number.doubleValue)
                                    : Value(static_cast<std::int64_t>(number.longLongValue));
}

std::optional<Value> dateValue(NSDate* date) {
  const double microseconds = std::round(date.timeIntervalSinceReferenceDate * 1e6);
  if (!(std::abs(microseconds) < 8e15)) {  // 253 years; the clock of some systems ends soon after
    return std::nullopt;
  }
  return Value(Value::Date(referenceDate) + std::chrono::microseconds(static_cast<std::int64_t>(microseconds)));
}

std::optional<Value> arrayValue(NSArray* objects) {
  Value::Array array;
  for (id object in objects) {
    std::optional<Value> element = propertyListValue(object);
    if (!element) {
      return std::nullopt;
    }
    array.push_back(std::move(*element));
  }
  return Value(std::move(array));
}

std::optional<Value> dictionaryValue(NSDictionary* objects) {
  Value::Dictionary dictionary;
  for (id key in objects) {
    const std::optional<std::string> name = [key isKindOfClass:[NSString class]] ? utf8(key) : std::nullopt;
    std::optional<Value> element = propertyListValue([objects objectForKey:key]);
    if (!name || !element) {
      return std::nullopt;
    }
    dictionary.insert_or_assign(*name, std::move(*element));
  }
  return Value(std::move(dictionary));
}

}  // namespace

id propertyListObject(const PropertyListValue& value) {
  id const object = exactly(value);
  return object != nil && propertyListValue(object) == value ? object : nil;
}

std::optional<PropertyListValue> propertyListValue(id object) {
  if ([object isKindOfClass:[NSNumber class]]) {
    return numberValue(object);
  }
  if ([object isKindOfClass:[NSString class]]) {
    std::optional<std::string> text = utf8(object);
    return text ? std::optional<Value>(std::move(*text)) : std::nullopt;
  }
  if ([object isKindOfClass:[NSData class]]) {
    NSData* const data = object;
    return Value(Value::Data{std::string(static_cast<const char*>(data.bytes), data.length)});
  }
  if ([object isKindOfClass:[NSDate class]]) {
    return dateValue(object);
  }
  if ([object isKindOfClass:[NSArray class]]) {
    return arrayValue(object);
  }
  return [object isKindOfClass:[NSDictionary class]] ? dictionaryValue(object) : std::nullopt;
}

}  // namespace quillmar::platform
