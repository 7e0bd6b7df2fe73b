#pragma once

#include <optional>
#include <string>
#include <vector>

namespace quillmar::bench {

/// What a figure should be. A ratio is that to the baseline.
struct Wanted {
  std::optional<double> ratioAtMost = {};
  std::optional<double> valueAtMost = {};
};

/// The figures of one run: ours, a baseline taken in the same run, and what was wanted.
class Report {
 public:
  void add(std::string name, double value, std::string unit, std::optional<double> baseline, Wanted wanted = {});

  /// A table for people.
  void print() const;

  /// The same as a JSON array. Throws `std::runtime_error` when the file cannot be written.
  void writeJson(const std::string& file) const;

 private:
  struct Row {
    std::string name;
    double value;
    std::string unit;
    std::optional<double> baseline;
    Wanted wanted;

    std::optional<double> ratio() const;
    std::string wantedText() const;
    std::optional<bool> met() const;  ///< nothing when nothing was wanted
  };
  std::vector<Row> rows_;
};

}  // namespace quillmar::bench
