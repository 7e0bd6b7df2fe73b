#pragma once

#include "SimulationReport.h"

namespace quillmar::cli {

/// The report as a table to read.
class TextReport : public SimulationReport {
 public:
  explicit TextReport(std::ostream& output);

  void begin(const std::string& osVersion, int days) override;
  void end(const SimulatedInstall& install) override;

 protected:
  void write(const std::string& name, const EventStep* event, const StepResult& result,
             const QuillmarState& state) override;

 private:
  std::ostream& output_;
};

}  // namespace quillmar::cli
