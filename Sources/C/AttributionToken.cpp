#include "C/PlatformHandle.h"

struct quillmar_token_completion : quillmar::Pending<quillmar::platform::AttributionTokenProvider::Completion> {};

namespace quillmar {

namespace {

class TableTokenProvider final : public platform::AttributionTokenProvider {
 public:
  void requestToken(Completion completion) override {
    table->call<&quillmar_attribution_token::request>(handed<quillmar_token_completion>(std::move(completion)));
  }

  std::shared_ptr<const Table<quillmar_attribution_token>> table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

void quillmar_token_completion_call(quillmar_token_completion* completion, const char* token, const char* error) {
  const auto callback = quillmar_token_completion::taken(completion);
  statusOf([&] {
    if (callback && token != nullptr) {
      callback(std::string(token));
    } else if (callback) {
      callback(platform::PlatformError{orEmpty(error)});
    }
    return QUILLMAR_OK;
  });
}
void quillmar_token_completion_drop(quillmar_token_completion* completion) {
  quillmar_token_completion::taken(completion);
}

quillmar_status quillmar_platform_set_attribution_token(quillmar_platform* platform,
                                                        const quillmar_attribution_token* token) {
  return setMember<TableTokenProvider>(platform, &platform::Platform::attributionToken, token,
                                       &quillmar_attribution_token::request);
}
