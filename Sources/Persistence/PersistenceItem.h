#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "Json/Codable.h"
#include "Json/JsonParser.h"
#include "Json/JsonReader.h"
#include "Json/JsonWriter.h"
#include "Logging/Log.h"
#include "Persistence/PersistenceFile.h"

namespace quillmar {

/// One value kept as a pretty-printed JSON file in the library's folder. `T` has `encode(JsonWriter&)` and
/// `static T decode(const JsonReader&)`. The operations run on the calling thread, without a lock around the file:
/// a reader next to a writer sees the old file, the new one, or none.
template <class T>
class PersistenceItem {
 public:
  PersistenceItem(std::shared_ptr<platform::FileManager> fileManager, std::string filename)
      : file_(std::move(fileManager), std::move(filename)) {}

  const std::string& filename() const noexcept { return file_.filename(); }

  bool exists() const { return file_.exists(); }

  /// The stored value. A missing file is created empty first, and then fails to decode. The file is looked at each
  /// time, and read and decoded only when it is not the one that was decoded last.
  /// Throws `PersistenceItemError`, the system's error or `DecodingError`.
  std::shared_ptr<const T> read() const {
    std::string path = file_.usualPath();
    std::optional<platform::FileStamp> stamp = file_.stamp(path);
    if (!stamp) {
      path = file_.existingPath();
      stamp = file_.stamp(path);
    }
    {
      const std::lock_guard lock(decodedMutex_);
      if (stamp && decodedStamp_ == stamp) {
        Log::debug("PersistenceItem - Reading data from file: {}", filename());
        return decoded_;
      }
    }
    std::string content = file_.read(path);
    Log::debug("PersistenceItem - Reading data from file: {}", filename());
    auto value = std::make_shared<const T>(decode(std::move(content)));
    const std::lock_guard lock(decodedMutex_);
    decoded_ = value;
    decodedStamp_ = stamp;
    return value;
  }

  /// Replaces the stored value. Throws `PersistenceItemError`, the system's error or `EncodingError`.
  void save(const T& value) {
    const std::string path = file_.existingPath();
    JsonWriter writer(JsonWriter::Format::prettyPrinted);
    Codable<T>::encode(writer, value);
    file_.write(path, writer.take());
    forget();
    Log::debug("PersistenceItem - Saving data to file: {}", filename());
  }

  /// Removes the file. A missing one is created first and removed at once, so that deleting it is no error.
  void delete_() {
    const std::string path = file_.existingPath();
    file_.remove(path);
    forget();
    Log::debug("PersistenceItem - Deleting file: {}", filename());
  }

 private:
  static T decode(std::string content) {
    const boost::json::value document = parseJson(content);
    std::string().swap(content);  // a large one need not stay for the decoding
    return Codable<T>::decode(JsonReader(document));
  }

  void forget() {
    const std::lock_guard lock(decodedMutex_);
    decodedStamp_.reset();
    decoded_.reset();
  }

  const PersistenceFile file_;
  mutable std::mutex decodedMutex_;
  mutable std::shared_ptr<const T> decoded_;
  mutable std::optional<platform::FileStamp> decodedStamp_;
};

}  // namespace quillmar
