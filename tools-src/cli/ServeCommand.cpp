#include "ServeCommand.h"

#include <mutex>
#include <ostream>
#include <utility>

#include "FindingsOutput.h"
#include "Insight/ConfigurationCheck.h"
#include "JsonOutput.h"
#include "ServiceConfiguration.h"
#include "service/DevelopmentService.h"

namespace quillmar::cli {

ServeCommand::ServeCommand(ServeOptions options, const StopSignal& stop) : options_(std::move(options)), stop_(stop) {}

void ServeCommand::run(std::ostream& output, std::ostream& errors) {
  service::ServiceOptions answers;
  answers.forcedStatus = options_.status;
  answers.attributionStatus = options_.attributionStatus;
  answers.failFirst = options_.failFirst;
  answers.delay = options_.delay;
  service::ServiceLogic logic =
      options_.config.empty() ? service::ServiceLogic(answers) : makeServiceLogic("serve", options_.config, answers);
  if (!options_.config.empty()) {
    const std::string text = readConfiguration("serve: --config", options_.config);
    writeFindings(options_.config, insight::checkConfiguration(text), insight::Severity::warning, errors);
  }

  std::mutex mutex;
  const auto writeLine = [&](const std::string& line) {
    const std::lock_guard lock(mutex);
    output << line << std::endl;
  };
  service::DevelopmentServiceOptions options;
  options.port = options_.port;
  options.certificateFile = options_.tlsCertificate;
  options.keyFile = options_.tlsKey;
  // A client that is quick must not come before the line that says where to come to.
  std::unique_lock announcement(mutex);
  options.onRequest = [&](const service::ServedRequest& request) { writeLine(service::jsonLine(request)); };
  service::DevelopmentService server(options,
                                     [&](const service::ServiceRequest& request) { return logic.handle(request); });
  try {
    server.start();
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string("serve: ") +
                     (options_.tlsKey.empty() ? "--port: " : "--port, --tls-cert, --tls-key: ") + error.what());
  }
  output << "{\"listening\":\"" << server.url() << "\"}" << std::endl;
  announcement.unlock();
  stop_.wait();
  server.stop();
}

}  // namespace quillmar::cli
