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

  private struct State {
    var taken: [PostbackUpdate] = []
    var begun = 0
  }
  private static let lock = NSLock()
  private nonisolated(unsafe) static var state = State()

  private static func with<Result>(_ body: (inout State) -> Result) -> Result {
    lock.lock()
    defer { lock.unlock() }
    return body(&state)
  }

  /// The first update takes the longest, so that those behind it would overtake it if they could. 63 is refused.
  static func receive(_ update: PostbackUpdate) async throws {
    let isFirst = with { state in
      state.begun += 1
      return state.begun == 1
    }
    if isFirst {
      for _ in 0..<1000 { await Task.yield() }
    }
    with { $0.taken.append(update) }
    if update.fineConversionValue == 63 { throw Refused() }
  }

  public static var taken: [PostbackUpdate] { with { $0.taken } }
  public static func clear() { with { $0 = State() } }
}
