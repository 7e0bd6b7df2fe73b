/// How much the library writes to its log. The order deliberately differs from the usual one: `info` is the most
/// verbose level, and `debug` lies below it.
public enum LogLevel: Int32, CaseIterable, Sendable {
  /// Nothing.
  case off = 0
  /// Error lines.
  case error = 1
  /// Error and debug lines.
  case debug = 2
  /// Error, debug and info lines.
  case info = 3
}
