#pragma once

#include "JsonOutput.h"
#include "SimulationReport.h"

namespace quillmar::cli {

/// The report as JSON Lines, the last of which is {"final":{...}}.
class JsonReport : public SimulationReport {
 public:
  explicit JsonReport(std::ostream& output);

  void begin(const std::string& osVersion, int days) override;
  void end(const SimulatedInstall& install) override;

 protected:
  void write(const std::string& name, const EventStep* event, const StepResult& result,
             const QuillmarState& state) override;

 private:
  JsonLineWriter writer_;
};

}  // namespace quillmar::cli
