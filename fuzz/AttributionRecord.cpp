// The stored attribution: a file of JSON, read as a record and passed on as the text that it is.
#include "Attribution/CorrelatedPayload.h"
#include "Json/JsonToken.h"
#include "Persistence/ASADataPersistence.h"
#include "Promises.h"
#include "quillmar/simulated/InMemoryFileManager.h"

using namespace quillmar;
using fuzz::require;

namespace {

/// Without the white space between the tokens of a valid document.
std::string stripped(std::string_view json) {
  std::string result;
  for (std::string_view token = takeJsonToken(json); !token.empty(); token = takeJsonToken(json)) {
    result += token;
  }
  return result;
}

/// What is passed on is compared as text: parsing it could lose what passing it on must not.
void requirePassedOn(const JsonObjectText& attribution) {
  const CorrelatedPayload payload{"id", "\"install\"", "app", attribution, attribution, 1, attribution};
  const std::string compact = fuzz::encoded(payload);
  const std::string details = stripped(attribution.text());
  require(compact.ends_with(",\"attribution_details\":" + details + "}"), "the attribution is passed on byte for byte");
  require(compact.find("\"renewal_info\":" + details + ",\"state\":1}") != std::string::npos,
          "and so is an object deeper inside");
  require(stripped(fuzz::encoded(payload, JsonWriter::Format::prettyPrinted)) == compact,
          "both formats differ in white space only");
}

/// With the identifiers as the live service spells them.
ASAAttributionResponse decodeLive(const JsonReader& reader) {
  return ASAAttributionResponse::decode(reader, ASAAttributionResponse::Identifiers::textsOrIntegers);
}

/// What the service's answer becomes on its way into the file and out of it.
void requireKept(const ASAAttributionResponse& answered, ASADataPersistence& persistence) {
  fuzz::requireRoundTrip(answered);
  persistence.saveASAData(answered);
  require(persistence.hasASAData() && persistence.loadASAData() == answered, "the saved record reads back as the same");
}

/// Integers are their digits: spelled as texts, they give the same record.
void requireDigits(const ASAAttributionResponse& live, const std::string& text) {
  boost::json::value document = parseJson(text);
  for (const char* key : {"campaignId", "adGroupId", "keywordId", "adId", "orgId"}) {
    boost::json::value* const identifier = document.as_object().if_contains(key);
    if (identifier != nullptr && identifier->is_int64()) {
      *identifier = std::to_string(identifier->get_int64());
    }
  }
  require(ASAAttributionResponse::decode(JsonReader(document)) == live, "integers are their digits");
}

}  // namespace

void fuzz::look(std::string_view bytes) {
  const std::string text(bytes);
  const auto files = std::make_shared<simulated::InMemoryFileManager>();
  const std::string path = "/documents/" + std::string(ASADataPersistence::asaDataFileName);
  files->createDirectory("/documents");
  files->writeFile(path, text, platform::WriteMode::direct);
  ASADataPersistence persistence(files);
  require(persistence.hasASAData(), "a file is data, whatever it holds");

  const auto record = persistence.loadASAData();
  const auto dictionary = persistence.loadASADataAsDictionary();
  require(record == fuzz::decoded<ASAAttributionResponse>(text), "the record is what the file says");
  if (dictionary) {
    require(dictionary->text() == withoutByteOrderMark(text), "the object is the file's text");
    requirePassedOn(*dictionary);
  }
  const auto live = fuzz::decoded(text, decodeLive);
  ASADataPersistence livePersistence(files, std::nullopt, {.liveAttribution = true});
  require(livePersistence.hasASAData() == record.has_value(), "only a record counts as data then");
  require(!record || live == record, "what the usual reading takes is the same to the other");
  if (live) {
    requireDigits(*live, text);
    requireKept(*live, livePersistence);
  }
  if (record) {
    requireKept(*record, persistence);
  }
  persistence.clearASAData();
  require(!persistence.hasASAData() && !persistence.loadASAData() && !persistence.loadASADataAsDictionary(),
          "cleared data is gone");
}
