#pragma once

#include "Attribution/QuillmarASAAttributionCore.h"
#include "support/FacadeHarness.h"

namespace quillmar::test {

inline const std::string attributionFile = "/documents/asa_attribution_data.json";

inline platform::SubscriptionStatusUpdate subscriptionUpdate(std::uint64_t identifier) {
  platform::SubscriptionStatusUpdate update;
  update.transaction = {identifier, R"({"transactionId":")" + std::to_string(identifier) + "\"}", std::nullopt};
  update.renewalInfo = {R"({"autoRenewStatus":1})", std::nullopt};
  update.renewalState = 1;
  return update;
}

/// A host that was configured in an earlier process, and the service that tells of the attribution.
class AttributionHarness : public FacadeHarness {
 public:
  explicit AttributionHarness(const QuillmarOptions& given = {}) {
    defaults->set("QuillmarVerificationKey", "the-key");
    make(simulated.platform());
    begin(given);
  }
  ~AttributionHarness() override {
    attribution.reset();
    settle();  // the listener ends; what waits in the executor would keep it alive
  }

  void make(const platform::Platform& platform) {
    attribution = QuillmarFactory::createQuillmarASAAttribution(platform);
  }
  /// A new process, in which both work as the options say.
  void begin(const QuillmarOptions& given) {
    options = given;
    restart();
    quillmar->setOptions(options);
    attribution->setOptions(options);
  }
  void enable() {
    attribution->enableASAAttributionTracking();
    settle();
  }
  void disable() {
    attribution->disableASAAttributionTracking();
    settle();
  }
  void post(const platform::SubscriptionStatusUpdate& update) {
    simulated.subscriptionUpdates->post(update);
    settle();
  }
  bool isIdle() { return attribution->drain(std::chrono::milliseconds(0)); }
  std::size_t listeners() const { return simulated.subscriptionUpdates->listeners(); }

  void writeFile(const std::string& content) {
    simulated.files->createDirectory("/documents");
    simulated.files->writeFile(attributionFile, content, platform::WriteMode::direct);
  }
  std::string readFile() const {
    std::string content = "no file";
    simulated.files->readFile(attributionFile, content);
    return content;
  }

  int attributionStatus = 200;
  std::string attributionBody = R"({"attribution":true,"campaignId":"12","unknown":1})";
  QuillmarOptions options;
  std::shared_ptr<QuillmarASAAttribution> attribution;

 private:
  simulated::InMemoryAnswer answer(const platform::HttpRequest& request) const override {
    simulated::InMemoryAnswer answer = FacadeHarness::answer(request);
    if (request.url.ends_with("/api/v1")) {
      answer.result.statusCode = attributionStatus;
      answer.result.body = attributionBody;
    }
    return answer;
  }
};

}  // namespace quillmar::test
