#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Persistence/ASADataPersistenceProtocol.h"
#include "quillmar/QuillmarOptions.h"
#include "quillmar/platform/FileManager.h"

namespace quillmar {

/// The attribution as a compact JSON file. It lies directly in the documents directory, not in the library's folder
/// there. It has at most 1 MiB. Without a documents directory it saves nothing and finds nothing. There is no lock: a
/// reader next to a writer sees no file, the file, or one that cannot be read; with `liveAttribution` not the last.
class ASADataPersistence final : public ASADataPersistenceProtocol {
 public:
  static constexpr std::string_view asaDataFileName = "asa_attribution_data.json";

  /// Without a directory, that of the file manager.
  explicit ASADataPersistence(std::shared_ptr<platform::FileManager> fileManager,
                              std::optional<std::string> documentsDirectory = std::nullopt,
                              const QuillmarOptions& options = {});

  void saveASAData(const ASAAttributionResponse& data) override;
  std::optional<ASAAttributionResponse> loadASAData() const override;
  std::optional<JsonObjectText> loadASADataAsDictionary() const override;
  void clearASAData() override;
  bool hasASAData() const override;

 private:
  bool fileExists() const;
  std::string path() const;
  std::string read() const;
  void write(const std::string& file, const std::string& content) const;

  const std::shared_ptr<platform::FileManager> fileManager_;
  const std::optional<std::string> documentsDirectory_;
  const QuillmarOptions options_;
};

}  // namespace quillmar
