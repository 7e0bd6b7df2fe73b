#include "Report.h"

#include <fmt/format.h>

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace quillmar::bench {

std::optional<double> Report::Row::ratio() const {
  return baseline && *baseline > 0 ? std::optional(value / *baseline) : std::nullopt;
}

std::string Report::Row::wantedText() const {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (wanted.ratioAtMost) {
    add(fmt::format("<= {:g}x", *wanted.ratioAtMost));
  }
  if (wanted.valueAtMost) {
    add(fmt::format("<= {:g} {}", *wanted.valueAtMost, unit));
  }
  return text;
}

std::optional<bool> Report::Row::met() const {
  if (wantedText().empty()) {
    return std::nullopt;
  }
  const std::optional<double> times = ratio();
  const bool ratioFits = !wanted.ratioAtMost || (times && *times <= *wanted.ratioAtMost);
  return ratioFits && (!wanted.valueAtMost || value <= *wanted.valueAtMost);
}

void Report::add(std::string name, double value, std::string unit, std::optional<double> baseline, Wanted wanted) {
  rows_.push_back({std::move(name), value, std::move(unit), baseline, wanted});
}

void Report::print() const {
  fmt::print("\n{:<66} {:>11} {:<8} {:>11} {:>7}  {:<22} {}\n", "what", "ours", "unit", "baseline", "ratio", "wanted",
             "met");
  for (const Row& row : rows_) {
    const auto number = [](std::optional<double> value, int digits) {
      return value ? fmt::format("{:.{}f}", *value, digits) : std::string("-");
    };
    const std::optional<bool> met = row.met();
    fmt::print("{:<66} {:>11} {:<8} {:>11} {:>7}  {:<22} {}\n", row.name, number(row.value, 3), row.unit,
               number(row.baseline, 3), number(row.ratio(), 2), row.wantedText(),
               !met   ? ""
               : *met ? "yes"
                      : "NO");
  }
}

void Report::writeJson(const std::string& file) const {
  boost::json::array rows;
  for (const Row& row : rows_) {
    boost::json::object object{{"name", row.name}, {"value", row.value}, {"unit", row.unit}};
    const auto orNull = [](const auto& optional) {
      return optional ? boost::json::value(*optional) : boost::json::value(nullptr);
    };
    object["baseline"] = orNull(row.baseline);
    object["ratio"] = orNull(row.ratio());
    object["wanted"] = row.wantedText();
    object["met"] = orNull(row.met());
    rows.push_back(std::move(object));
  }
  std::ofstream stream(file);
  stream << boost::json::serialize(rows) << '\n';
  if (!stream.flush()) {
    throw std::runtime_error(file + ": cannot be written");
  }
}

}  // namespace quillmar::bench
