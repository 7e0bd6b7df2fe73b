#include "Insight/ConfigurationCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <tuple>
#include <utility>

#include "Insight/Checks.h"
#include "Insight/JsonPlaces.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Model/ConversionValuesCoding.h"

namespace quillmar::insight {

namespace {

/// What the transport takes of an answer, in bytes.
constexpr std::size_t longest = 2U << 20U;

void refuse(CheckReport& report, const std::string& path, std::size_t line, std::string_view why) {
  report.usable = false;
  report.findings.push_back({Severity::error,
                             "unusable",
                             path,
                             line,
                             fmt::format("The library refuses the whole configuration: {}.", why),
                             "Repair this first: without a configuration no conversion value is sent.",
                             {}});
}

/// Reads the parts of a document one by one.
class DocumentReader {
 public:
  DocumentReader(const JsonReader& document, const Place& root, CheckReport& report)
      : document_(document), root_(root), report_(report), result_{root, {}, {}} {}

  CheckedDocument read() {
    attempt([this] { readEnvelope(); });
    attempt([this] { readRules(); });
    attempt([this] { readLocks(); });
    return std::move(result_);
  }

 private:
  template <class Read>
  void attempt(Read read) {
    try {
      read();
    } catch (const DecodingError& error) {
      const Place place = root_.below(error.place().path);
      refuse(report_, place.path(), place.line(), fmt::format("{}: {}", error.code().message(), error.detail()));
    }
  }

  /// The service's form has two members more; the stored form has neither.
  void readEnvelope() {
    if (!document_.optional("app_id") && !document_.optional("sdk_enabled")) {
      return;
    }
    attempt([this] { static_cast<void>(document_.required("app_id").string()); });
    if (!document_.required("sdk_enabled").boolean()) {
      add(report_, Severity::warning, "switched-off", root_.member("sdk_enabled"),
          "The library is switched off: events are dropped, and no rule is ever sent.",
          "Set \"sdk_enabled\" to true if that is not meant.");
    }
  }

  void readRules() {
    std::size_t index = 0;
    document_.required("values").forEachElement([&](const JsonReader& reader) {
      const Place place = root_.member("values").element(index++);
      attempt([&] { result_.rules.push_back({Codable<ConversionValues::ConversionValue>::decode(reader), place}); });
    });
  }

  void readLocks() {
    document_.required("lockWindows").forEachMember([&](std::string_view window, const JsonReader& reader) {
      const Place place = root_.member("lockWindows").member(window);
      attempt([&] {
        result_.locks.push_back(
            {std::string(window), Codable<ConversionValues::LockWindowConfiguration>::decode(reader), place});
      });
    });
  }

  const JsonReader& document_;
  const Place root_;
  CheckReport& report_;
  CheckedDocument result_;
};

void addRepeatedMembers(const JsonPlaces& places, CheckReport& report) {
  for (const JsonPlaces::Repeated& repeated : places.repeated()) {
    report.findings.push_back({Severity::error,
                               "key-repeated",
                               repeated.path,
                               repeated.line,
                               fmt::format("The same object has this member in line {}, too. The last one counts, the "
                                           "others are ignored.",
                                           repeated.firstLine),
                               "Keep one of them.",
                               {}});
  }
}

}  // namespace

Finding& add(CheckReport& report, Severity severity, std::string_view code, const Place& place, std::string message,
             std::string advice) {
  return report.findings.emplace_back(
      Finding{severity, code, place.path(), place.line(), std::move(message), std::move(advice), {}});
}

CheckReport checkConfiguration(std::string_view text, Effort effort) {
  CheckReport report;
  text = withoutByteOrderMark(text);
  if (text.size() > longest) {
    refuse(report, "$", 1, fmt::format("it has {} bytes, an answer of the service at most {}", text.size(), longest));
    return report;
  }
  boost::json::value value;
  try {
    value = parseJson(text);
  } catch (const DecodingError& error) {
    refuse(report, "$", error.place().line, error.detail());
    return report;
  }
  const JsonPlaces places(text);
  const JsonReader reader(value);
  addRepeatedMembers(places, report);
  const CheckedDocument document = DocumentReader(reader, places.root(), report).read();
  checkRules(document, report);
  checkRanges(document, report);
  const std::vector<WindowVerdicts> verdicts = checkReachability(document, effort, report);
  checkLocks(document, verdicts, report);
  checkSystems(document, verdicts, report);
  const auto everything = [](const Finding& finding) {
    return std::tie(finding.line, finding.path, finding.code, finding.message);
  };
  std::ranges::sort(report.findings, {}, everything);
  // What is no object has neither of its members, for the same reason.
  const auto repeated = std::ranges::unique(report.findings, {}, everything);
  report.findings.erase(repeated.begin(), repeated.end());
  return report;
}

}  // namespace quillmar::insight
