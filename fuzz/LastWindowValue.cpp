// The last window value: JSON when the input begins with a brace, else a stored settings value.
#include "Conversion/LastWindowValue.h"

#include "Conversion/ConversionValueResolver.h"
#include "Platform/Sqlite/PropertyListCoding.h"
#include "Promises.h"
#include "Target.h"
#include "quillmar/Config.h"
#include "quillmar/simulated/InMemoryUserDefaults.h"

using namespace quillmar;
using fuzz::require;
using platform::PropertyListValue;

namespace {

/// As stored, in which a number that is none is equal to itself.
std::optional<std::string> bytesOf(const std::optional<LastWindowValue>& value) {
  return value ? encodePropertyList(value->toDictionary()) : std::nullopt;
}

void requireResolved(const std::shared_ptr<platform::UserDefaults>& store, const std::optional<LastWindowValue>& last) {
  ConversionValueResolver resolver(store);
  ConversionValues::ConversionValue value{"rule", {{"window1", {}}}};
  value = resolver.resolveConversionValue(value, Window::window1);
  const ConversionValues::WindowValue& filled = value.windows.at("window1");
  require(filled.fineValue.has_value() == last.has_value(), "a missing fine value comes from the last update");
  require(!last || filled.fineValue->value == last->fineValue, "it is the one of the last update");
  require(filled.coarseValue.has_value() == (last && last->coarseValue), "so does a coarse value");
  require(resolver.resolveConversionValue(value, Window::window1) == value, "what is complete stays");
}

void requireStored(const PropertyListValue& stored) {
  const auto store = std::make_shared<simulated::InMemoryUserDefaults>();
  store->set(Config::lastWindowValue, stored);
  const std::optional<LastWindowValue> last = readLastWindowValue(*store);
  const auto* const dictionary = stored.as<PropertyListValue::Dictionary>();
  require(dictionary != nullptr || !last, "only a dictionary is a last window value");
  requireResolved(store, last);
  if (last) {
    require(bytesOf(LastWindowValue::fromDictionary(*dictionary)) == bytesOf(last), "the store changes nothing");
    require(bytesOf(LastWindowValue::fromDictionary(last->toDictionary())) == bytesOf(last),
            "the dictionary reads back as the same value");
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::composeLogLines();
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  if (input.starts_with('{')) {
    if (auto value = fuzz::decoded<LastWindowValue>(input)) {
      fuzz::requireRoundTrip(*value);
      requireStored(value->toDictionary());
      require(LastWindowValue::fromDictionary(value->toDictionary()).has_value() == value->lockWindow.has_value(),
              "in the store, and only there, the lock flag is required");
    }
  } else if (const auto stored = platform::decodePropertyList(input)) {
    requireStored(*stored);
  }
  return 0;
}
