#include "Insight/ConfigurationCheck.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

using namespace quillmar::insight;
using namespace ::testing;

namespace {

/// "code line path" of each finding that is no note.
std::vector<std::string> faults(const CheckReport& report) {
  std::vector<std::string> lines;
  for (const Finding& finding : report.findings) {
    if (finding.severity != Severity::note) {
      lines.push_back(std::string(finding.code) + " " + std::to_string(finding.line) + " " + finding.path);
    }
  }
  return lines;
}

TEST(ConfigurationCheck, findsInEachBadExampleWhatItIsNamedAfterAndNothingInTheGoodOnes) {
  std::size_t count = 0;
  for (const auto& file : std::filesystem::directory_iterator(QUILLMAR_EXAMPLES "/check")) {
    SCOPED_TRACE(file.path().filename());
    std::ifstream stream(file.path());
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    const CheckReport report = checkConfiguration(text);
    const std::string code = file.path().stem().stem();
    const bool bad = file.path().stem().extension() == ".bad";
    EXPECT_EQ(bad, std::any_of(report.findings.begin(), report.findings.end(),
                               [&code](const Finding& finding) { return finding.code == code; }));
    EXPECT_EQ(report.usable, !bad || code != "unusable");
    if (!bad) {
      EXPECT_THAT(faults(report), IsEmpty());
    }
    ++count;
  }
  EXPECT_EQ(count, 52U);
}

TEST(ConfigurationCheck, namesTheLineAndThePath) {
  const std::string half = R"({"value":1,"requiredEvents":[{"name":"a"}]})";
  const std::string rule = R"({"key":"k","windows":{)"
                           "\n";
  const std::string end = "}}],\n\"lockWindows\":{}}";
  const struct {
    std::string text;
    std::vector<std::string> expected;
    bool usable = true;
  } rows[] = {
      {"", {"unusable 1 $"}, false},
      {"[]", {"unusable 1 $"}, false},
      {"{\n\"values\":[\n", {"unusable 3 $"}, false},
      {std::string((2U << 20U) + 1, ' '), {"unusable 1 $"}, false},
      {"{\"values\":[\n5,\n" + rule + "}},{\n\"windows\":{}" + end.substr(1),
       {"unusable 2 $.values[0]", "never-complete 3 $.values[1].windows", "unusable 4 $.values[2]"},
       false},
      {"{\"app_id\":\"a\",\"values\":[" + rule + "\"window0\":{\"fineValue\":\n" + half + "}" + end,
       {"unusable 1 $"},
       false},
      {"{\"values\":[" + rule + "\"win\\u0064ow0\":{},\n\"window0\":{\"fineValue\":\n{\"value\":64" + half.substr(10) +
           "}" + end,
       {"key-repeated 3 $.values[0].windows.window0",
        "fine-value-out-of-range 4 $.values[0].windows.window0.fineValue.value"}},
      {"{\"values\":[" + rule + "\"window0\":{\"fineValue\":{\"value\":-1" + half.substr(10) + "}" + end,
       {"fine-value-out-of-range 2 $.values[0].windows.window0.fineValue.value"}},
      {"{\"values\":[" + rule + "\"" + std::string(100, 'w') + "\":{}" + end,
       {"window-unknown 2 $.values[0].windows." + std::string(64, 'w') + "..."}},
      {"{\"values\":[],\"lockWindows\":{\"a[0].b\":{\n\"type\":1}},\"other\":[[[[[[[[[[{\"a\":1,\"a\":2}]]]]]]]]]]}",
       {"window-unknown 1 $.lockWindows.a[0].b", "unusable 2 $.lockWindows.a[0].b.type"},
       false},
  };
  for (const auto& row : rows) {
    const CheckReport report = checkConfiguration(row.text);
    EXPECT_EQ(faults(report), row.expected) << row.text.substr(0, 200);
    EXPECT_EQ(report.usable, row.usable) << row.text.substr(0, 200);
  }
}

}  // namespace
