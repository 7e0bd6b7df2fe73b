// A stand-in; see ../README.md. `StandInPostbacks` is what a test looks into.
import Foundation

@available(iOS 17.4, *)
public enum CoarseConversionValue: Sendable {
  case low, medium, high
}

@available(iOS 18.0, *)
public struct PostbackUpdate: Sendable {
  public var fineConversionValue: Int
  public var lockPostback: Bool
  public var coarseConversionValue: CoarseConversionValue?
  public init(fineConversionValue: Int, lockPostback: Bool, coarseConversionValue: CoarseConversionValue? = nil) {
    self.fineConversionValue = fineConversionValue
    self.lockPostback = lockPostback
    self.coarseConversionValue = coarseConversionValue
  }
}

@available(iOS 17.4, *)
public struct Postback: Sendable {
  @available(iOS 18.0, *)
  public static func updateConversionValue(_ postbackUpdate: PostbackUpdate) async throws {
    try await StandInPostbacks.receive(postbackUpdate)
  }
}

@available(iOS 18.0, *)
public enum StandInPostbacks {
  public struct Refused: LocalizedError {
    public var errorDescription: String? { "The value is refused." }
  }

  private static let lock = NSLock()
  private nonisolated(unsafe) static var all: [PostbackUpdate] = []
  private nonisolated(unsafe) static var hasBegun = false

  /// The first update takes the longest, so that those behind it would overtake it if they could. 63 is refused.
  static func receive(_ update: PostbackUpdate) async throws {
    if begin() {
      for _ in 0..<1000 { await Task.yield() }
    }
    add(update)
    if update.fineConversionValue == 63 { throw Refused() }
  }

  private static func begin() -> Bool {
    lock.lock()
    defer { lock.unlock() }
    defer { hasBegun = true }
    return !hasBegun
  }

  private static func add(_ update: PostbackUpdate) {
    lock.lock()
    all.append(update)
    lock.unlock()
  }

  public static var taken: [PostbackUpdate] {
    lock.lock()
    defer { lock.unlock() }
    return all
  }

  public static func clear() {
    lock.lock()
    all = []
    hasBegun = false
    lock.unlock()
  }
}
