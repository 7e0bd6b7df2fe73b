#pragma once

#include <cstdint>
#include <string_view>

#include "quillmar/Export.h"

namespace quillmar {

/// The library's constants: keys of its settings store, limits, addresses and its version.
struct QUILLMAR_API Config {
  Config() = delete;

  static constexpr std::string_view firstRunDateKey = "QuillmarFirstRunDate";  ///< date of the first configuration
  static constexpr std::string_view quillMarId = "QuillmarId";                 ///< install identifier, upper-case UUID
  /// The most days since the first run at which the library still starts.
  static constexpr std::int64_t daysLimit = 37;
  static constexpr std::string_view lastConversionValuesFetchTimestamp = "LastConversionValuesFetchTimestamp";
  /// Seconds between two refreshes of the conversion values.
  static constexpr double conversionValuesRefreshInterval = 3600.0;
  static constexpr std::string_view sdkEnabled = "SdkEnabled";    ///< the service's switch; absent means enabled
  static constexpr std::string_view serverAppId = "ServerAppId";  ///< the app's identifier at the service
  static constexpr std::string_view lastWindowValue = "LastWindowValue";
  static const std::string_view urlString;                      ///< base URL of the event service, no trailing "/"
  static const std::string_view attributionUrlString;           ///< where attribution tokens are exchanged, likewise
  static constexpr std::string_view appVersion = "AppVersion";  ///< nothing is stored under it
  static constexpr std::string_view sdkVersion = "SdkVersion";  ///< nothing is stored under it
  static constexpr std::string_view quillmarVerificationKey = "QuillmarVerificationKey";
  static constexpr std::string_view sdkVersionNumber = "2.0.0";  ///< the version of the library
};

}  // namespace quillmar
