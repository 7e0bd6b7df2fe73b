// A stand-in; see ../README.md. `StandInStore` is what a test plays the App Store with.
import Foundation

@available(iOS 15.0, *)
public enum VerificationResult<SignedType: Sendable>: Sendable {
  case unverified(SignedType, VerificationError)
  case verified(SignedType)

  public enum VerificationError: Error, LocalizedError, Sendable {
    case invalidSignature
    public var errorDescription: String? { "The signature is invalid." }
  }
}

@available(iOS 15.0, *)
public struct Transaction: Sendable {
  public let id: UInt64
  public let jsonRepresentation: Data
}

@available(iOS 15.0, *)
public struct Product: Sendable {
  public struct SubscriptionInfo: Sendable {
    public struct RenewalInfo: Sendable {
      public let jsonRepresentation: Data
    }

    public struct RenewalState: Sendable {
      public let rawValue: Int
    }

    public struct Status: Sendable {
      public let state: RenewalState
      public let transaction: VerificationResult<Transaction>
      public let renewalInfo: VerificationResult<RenewalInfo>

      public static var updates: AsyncStream<Status> { StandInStore.subscribe() }
    }
  }
}

@available(iOS 15.0, *)
public enum StandInStore {
  private static let lock = NSLock()
  private nonisolated(unsafe) static var open: [UUID: AsyncStream<Product.SubscriptionInfo.Status>.Continuation] = [:]

  private static func with<Result>(_ body: () -> Result) -> Result {
    lock.lock()
    defer { lock.unlock() }
    return body()
  }

  static func subscribe() -> AsyncStream<Product.SubscriptionInfo.Status> {
    AsyncStream { continuation in
      let id = UUID()
      with { open[id] = continuation }
      continuation.onTermination = { _ in with { open[id] = nil } }
    }
  }

  /// How many are listening.
  public static var listeners: Int { with { open.count } }

  public static func post(
    id: UInt64, transaction: String, isVerified: Bool = true, renewalInfo: String = "{}",
    isRenewalVerified: Bool = true, state: Int = 1
  ) {
    let signed = Transaction(id: id, jsonRepresentation: Data(transaction.utf8))
    let renewal = Product.SubscriptionInfo.RenewalInfo(jsonRepresentation: Data(renewalInfo.utf8))
    let status = Product.SubscriptionInfo.Status(
      state: .init(rawValue: state),
      transaction: isVerified ? .verified(signed) : .unverified(signed, .invalidSignature),
      renewalInfo: isRenewalVerified ? .verified(renewal) : .unverified(renewal, .invalidSignature))
    with { Array(open.values) }.forEach { $0.yield(status) }
  }
}
