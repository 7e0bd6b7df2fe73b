#include "C/PlatformHandle.h"

namespace quillmar {

namespace {

using platform::LogSeverity;

static_assert(static_cast<int>(LogSeverity::info) == QUILLMAR_SEVERITY_INFO &&
              static_cast<int>(LogSeverity::debug) == QUILLMAR_SEVERITY_DEBUG &&
              static_cast<int>(LogSeverity::error) == QUILLMAR_SEVERITY_ERROR);

class TableLogSink final : public platform::LogSink {
 public:
  void write(std::string_view subsystem, std::string_view category, LogSeverity severity,
             std::string_view line) noexcept override {
    statusOf([&] {
      table->call<&quillmar_log_sink::write>(std::string(subsystem).c_str(), std::string(category).c_str(),
                                             static_cast<quillmar_log_severity>(severity), std::string(line).c_str());
      return QUILLMAR_OK;
    });
  }

  std::shared_ptr<const Table<quillmar_log_sink>> table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

quillmar_status quillmar_platform_set_log_sink(quillmar_platform* platform, const quillmar_log_sink* sink) {
  return setMember<TableLogSink>(platform, &platform::Platform::logSink, sink, &quillmar_log_sink::write);
}
