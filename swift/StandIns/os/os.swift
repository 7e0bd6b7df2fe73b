// A stand-in; see ../README.md. Declarations only: nothing here is ever run.
import Foundation

public final class OSLog: NSObject, @unchecked Sendable {
  public init(subsystem: String, category: String) {}
}
public struct OSLogType: Hashable, Sendable {
  public static let info = OSLogType()
  public static let debug = OSLogType()
  public static let error = OSLogType()
}
public func os_log(_ message: StaticString, log: OSLog, type: OSLogType, _ arguments: Any...) { fatalError() }
