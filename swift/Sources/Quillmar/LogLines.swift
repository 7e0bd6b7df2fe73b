import CQuillmar
import Foundation

#if canImport(os)
  import os
#endif

/// A line of the library's log.
public struct LogLine: Equatable, Sendable {
  /// What a line is about.
  public enum Severity: Int32, Sendable {
    case info = 0
    case debug = 1
    case error = 2
  }

  /// What the line is about.
  public var severity: Severity
  /// The line without its end, as the log has it.
  public var text: String
}

/// Takes the log in debug builds: writes it where the system's own adapter would, and hands it to whoever listens.
final class LogLines: Sendable {
  static let shared = LogLines()
  private let listeners = Locked<[UUID: AsyncStream<LogLine>.Continuation]>([:])

  /// How many are listening.
  var count: Int { listeners.with { $0.count } }

  #if DEBUG
    func stream() -> AsyncStream<LogLine> {
      AsyncStream(bufferingPolicy: .bufferingNewest(1000)) { continuation in
        let id = UUID()
        listeners.with { $0[id] = continuation }
        continuation.onTermination = { [listeners] _ in
          // Let go outside the lock: the last reference to a stream ends it, which comes back here.
          _ = listeners.with { $0.removeValue(forKey: id) }
        }
      }
    }

    func install(on platform: Handle) {
      register(self) { context in
        var sink = quillmar_log_sink()
        sink.size = MemoryLayout.size(ofValue: sink)
        sink.context = context
        sink.release = releaseContext
        sink.write = { pointer, subsystem, category, severity, line in
          guard let lines = object(at: pointer, as: LogLines.self), let subsystem, let category, let line else {
            return
          }
          let made = LogLine(severity: .init(rawValue: severity) ?? .info, text: String(cString: line))
          write(made, subsystem: String(cString: subsystem), category: String(cString: category))
          let all = lines.listeners.with { Array($0.values) }
          all.forEach { $0.yield(made) }
        }
        return quillmar_platform_set_log_sink(platform.pointer, &sink)
      }
    }
  #else
    func stream() -> AsyncStream<LogLine> { AsyncStream { $0.finish() } }
    func install(on platform: Handle) {}
  #endif
}

#if DEBUG
  private func write(_ line: LogLine, subsystem: String, category: String) {
    #if canImport(os)
      let types: [LogLine.Severity: OSLogType] = [.info: .info, .debug: .debug, .error: .error]
      let log = OSLog(subsystem: subsystem, category: category)
      os_log("%{public}@", log: log, type: types[line.severity] ?? .info, line.text)
    #else
      FileHandle.standardError.write(Data((line.text + "\n").utf8))
    #endif
  }
#endif
