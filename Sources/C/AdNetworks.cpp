#include "C/PlatformHandle.h"

struct quillmar_ad_network_completion : quillmar::Pending<quillmar::platform::AdNetworkCompletion> {};

namespace quillmar {

namespace {

using platform::AdNetworkCompletion;
using platform::AttributionKitCoarseValue;
using platform::SKAdNetworkCoarseConversionValue;

static_assert(static_cast<int>(SKAdNetworkCoarseConversionValue::high) == QUILLMAR_COARSE_HIGH &&
              static_cast<int>(SKAdNetworkCoarseConversionValue::medium) == QUILLMAR_COARSE_MEDIUM &&
              static_cast<int>(SKAdNetworkCoarseConversionValue::low) == QUILLMAR_COARSE_LOW);
static_assert(static_cast<int>(AttributionKitCoarseValue::high) == QUILLMAR_COARSE_HIGH &&
              static_cast<int>(AttributionKitCoarseValue::medium) == QUILLMAR_COARSE_MEDIUM &&
              static_cast<int>(AttributionKitCoarseValue::low) == QUILLMAR_COARSE_LOW);

/// Without the function nobody will call the completion, so it goes.
template <auto Function, class Functions, class... Arguments>
void callWithCompletion(const Table<Functions>& table, AdNetworkCompletion completion, Arguments... arguments) {
  if (table.template has<Function>()) {
    table.template call<Function>(arguments..., handed<quillmar_ad_network_completion>(std::move(completion)));
  }
}

class TableAdNetwork final : public platform::StoreKitAdNetwork {
 public:
  void registerAppForAdNetworkAttribution() override { table->callIfThere<&quillmar_ad_network::register_app>(); }
  void updateConversionValue(int fineValue) override {
    table->callIfThere<&quillmar_ad_network::update_conversion_value>(std::int32_t{fineValue});
  }
  void updatePostbackConversionValue(int fineValue, AdNetworkCompletion completion) override {
    callWithCompletion<&quillmar_ad_network::update_postback>(*table, std::move(completion), std::int32_t{fineValue});
  }
  void updatePostbackConversionValue(int fineValue, SKAdNetworkCoarseConversionValue coarseValue, bool lockWindow,
                                     AdNetworkCompletion completion) override {
    callWithCompletion<&quillmar_ad_network::update_coarse_postback>(
        *table, std::move(completion), std::int32_t{fineValue}, static_cast<quillmar_coarse_value>(coarseValue),
        lockWindow);
  }

  std::shared_ptr<const Table<quillmar_ad_network>> table;
};

class TableAdAttributionKit final : public platform::AdAttributionKit {
 public:
  void updateConversionValue(const platform::PostbackUpdate& update, AdNetworkCompletion completion) override {
    const quillmar_coarse_value coarse = update.coarseConversionValue
                                             ? static_cast<quillmar_coarse_value>(*update.coarseConversionValue)
                                             : quillmar_coarse_value{QUILLMAR_COARSE_NONE};
    callWithCompletion<&quillmar_ad_attribution_kit::update_conversion_value>(
        *table, std::move(completion), std::int32_t{update.fineConversionValue}, coarse, update.lockPostback);
  }

  std::shared_ptr<const Table<quillmar_ad_attribution_kit>> table;
};

}  // namespace

}  // namespace quillmar

using namespace quillmar;

void quillmar_ad_network_completion_call(quillmar_ad_network_completion* completion, const char* error) {
  const auto callback = quillmar_ad_network_completion::taken(completion);
  statusOf([&] {
    if (callback) {
      callback(error != nullptr ? std::optional(platform::PlatformError{error}) : std::nullopt);
    }
    return QUILLMAR_OK;
  });
}
void quillmar_ad_network_completion_drop(quillmar_ad_network_completion* completion) {
  quillmar_ad_network_completion::taken(completion);
}

quillmar_status quillmar_platform_set_ad_network(quillmar_platform* platform, const quillmar_ad_network* network) {
  return setMember<TableAdNetwork>(platform, &platform::Platform::storeKitAdNetwork, network);
}
quillmar_status quillmar_platform_set_ad_attribution_kit(quillmar_platform* platform,
                                                         const quillmar_ad_attribution_kit* kit) {
  return setMember<TableAdAttributionKit>(platform, &platform::Platform::adAttributionKit, kit,
                                          &quillmar_ad_attribution_kit::update_conversion_value);
}
