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

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
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
  if (dictionary) {
    require(dictionary->text() == withoutByteOrderMark(text), "the object is the file's text");
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
