// The stored attribution: a file of JSON, read as a record and passed on as the text that it is.
#include <boost/json/parse.hpp>

#include "Attribution/CorrelatedPayload.h"
#include "Persistence/ASADataPersistence.h"
#include "Promises.h"
#include "Target.h"
#include "quillmar/simulated/InMemoryFileManager.h"

using namespace quillmar;
using fuzz::require;

namespace {

/// Like the library's own parser, but with room for what the payload puts around the text.
boost::json::value parsed(const std::string& text) {
  boost::json::parse_options options;
  options.max_depth = 80;
  return boost::json::parse(text, {}, options);
}

void requirePassedOn(const JsonObjectText& attribution) {
  CorrelatedPayload payload{"id", "\"install\"", "app", attribution, attribution, 1, attribution};
  for (const auto format : {JsonWriter::Format::compact, JsonWriter::Format::prettyPrinted}) {
    const boost::json::value written = parsed(fuzz::encoded(payload, format));
    const boost::json::value original = parsed(attribution.text());
    require(written.at("attribution_details") == original, "the payload's attribution is the stored one");
    require(written.at("transaction_details").at("renewal_info") == original, "and so is an object deeper inside");
  }
  JsonWriter once;
  JsonWriter twice;
  const std::string compact = once.raw(attribution.text()).take();
  require(twice.raw(compact).take() == compact, "a text without white space is passed on byte for byte");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::composeLogLines();
  const std::string text(reinterpret_cast<const char*>(data), size);
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  const std::string path = "/documents/" + std::string(ASADataPersistence::asaDataFileName);
  files->createDirectory("/documents");
  files->writeFile(path, text, platform::WriteMode::direct);
  ASADataPersistence persistence(files);
  require(persistence.hasASAData(), "a file is data, whatever it holds");

  const auto record = persistence.loadASAData();
  const auto dictionary = persistence.loadASADataAsDictionary();
  require(record == fuzz::decoded<ASAAttributionResponse>(text), "the record is what the file says");
  require(!record || dictionary, "what is a record is also an object");
  if (dictionary) {
    require(dictionary->text() == text, "the object is the file's text");
    requirePassedOn(*dictionary);
  }
  if (record) {
    fuzz::requireRoundTrip(*record);
    persistence.saveASAData(*record);
    require(persistence.loadASAData() == record, "the saved record reads back as the same");
  }
  persistence.clearASAData();
  require(!persistence.hasASAData() && !persistence.loadASAData(), "cleared data is gone");
  return 0;
}
