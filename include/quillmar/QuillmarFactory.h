#pragma once

#include <memory>

#include "quillmar/Export.h"
#include "quillmar/Quillmar.h"
#include "quillmar/QuillmarASAAttribution.h"

namespace quillmar {

/// Makes further instances beside `Quillmar::shared()` and `QuillmarASAAttribution::shared()`.
class QUILLMAR_API QuillmarFactory {
 public:
  /// An instance over exactly this store and bundle, on the shared platform. Null, with an error line in the log that
  /// names it, when the store or a member of the platform is missing; null when memory runs out.
  static std::shared_ptr<Quillmar> createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                  platform::Bundle bundle) noexcept;

  /// The same on a platform of its own.
  static std::shared_ptr<Quillmar> createQuillmar(std::shared_ptr<platform::UserDefaults> userDefaults,
                                                  platform::Bundle bundle, const platform::Platform& platform) noexcept;

  /// An instance over the library's own settings suite of that platform. Null, with an error line in the log that names
  /// it, when the store or a member of the platform is missing; null when memory runs out.
  static std::shared_ptr<Quillmar> createQuillmar(const platform::Platform& platform) noexcept;

  /// Search-ads attribution over the library's own settings suite of that platform. Null, with an error line in the log
  /// that names it, when the store or a member of the platform is missing; null when memory runs out.
  static std::shared_ptr<QuillmarASAAttribution> createQuillmarASAAttribution(
      const platform::Platform& platform) noexcept;
};

}  // namespace quillmar
