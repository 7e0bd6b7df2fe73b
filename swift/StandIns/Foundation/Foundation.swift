// A stand-in; see ../README.md. Declarations only: nothing here is ever run.
// On Apple systems Foundation passes on the C library and Dispatch; so they are in here.

public func strdup(_ text: UnsafePointer<CChar>) -> UnsafeMutablePointer<CChar>! { fatalError() }
public func free(_ pointer: UnsafeMutableRawPointer!) { fatalError() }

public typealias TimeInterval = Double

open class NSObject {
  public init() {}
}

public final class NSLock: @unchecked Sendable {
  public init() {}
  public func lock() { fatalError() }
  public func unlock() { fatalError() }
}

public protocol LocalizedError: Error {
  var errorDescription: String? { get }
}
extension Error {
  public var localizedDescription: String { fatalError() }
}

extension StringProtocol {
  public func contains<Other: StringProtocol>(_ other: Other) -> Bool { fatalError() }
}

public struct UUID: Hashable, Sendable {
  public init() {}
}

public struct Data: Collection, Hashable, Sendable {
  public init() {}
  public init(bytes: UnsafeRawPointer, count: Int) { fatalError() }
  public init<Bytes: Sequence>(_ elements: Bytes) where Bytes.Element == UInt8 { fatalError() }
  public mutating func append(_ other: Data) { fatalError() }
  public func withUnsafeBytes<Result>(_ body: (UnsafeRawBufferPointer) throws -> Result) rethrows -> Result {
    fatalError()
  }
  public var startIndex: Int { fatalError() }
  public var endIndex: Int { fatalError() }
  public func index(after index: Int) -> Int { fatalError() }
  public subscript(index: Int) -> UInt8 { fatalError() }
}

open class JSONEncoder {
  public init() {}
  open func encode<Value: Encodable>(_ value: Value) throws -> Data { fatalError() }
}
open class JSONDecoder {
  public init() {}
  open func decode<Value: Decodable>(_ type: Value.Type, from data: Data) throws -> Value { fatalError() }
}

public struct URL: Hashable, Sendable {
  public init?(string: String) { fatalError() }
  public init?(string: String, relativeTo url: URL?) { fatalError() }
  public var absoluteString: String { fatalError() }
  public var scheme: String? { fatalError() }
  public var host: String? { fatalError() }
  public var port: Int? { fatalError() }
}

public struct URLError: Error {
  public enum Code: Sendable {
    case unknown, cancelled, badURL, unsupportedURL, timedOut, cannotFindHost, dnsLookupFailed, cannotConnectToHost
    case networkConnectionLost, notConnectedToInternet, dataNotAllowed, internationalRoamingOff, callIsActive
    case secureConnectionFailed, serverCertificateHasBadDate, serverCertificateUntrusted
    case serverCertificateHasUnknownRoot, serverCertificateNotYetValid, clientCertificateRejected
    case clientCertificateRequired, appTransportSecurityRequiresSecureConnection
    case httpTooManyRedirects, redirectToNonExistentLocation, badServerResponse, cannotDecodeRawData
    case cannotDecodeContentData, cannotParseResponse, zeroByteResource, dataLengthExceedsMaximum
  }
  public var code: Code { fatalError() }
}

public struct URLRequest: Sendable {
  public enum CachePolicy: Sendable {
    case useProtocolCachePolicy, reloadIgnoringLocalCacheData
  }
  public init(url: URL, cachePolicy: CachePolicy = .useProtocolCachePolicy, timeoutInterval: TimeInterval = 60) {}
  public var httpMethod: String?
  public var httpBody: Data?
  public mutating func setValue(_ value: String?, forHTTPHeaderField field: String) { fatalError() }
}

open class URLResponse: NSObject, @unchecked Sendable {}
open class HTTPURLResponse: URLResponse, @unchecked Sendable {
  public var statusCode: Int { fatalError() }
  public func value(forHTTPHeaderField field: String) -> String? { fatalError() }
}

open class OperationQueue: NSObject, @unchecked Sendable {
  public func addOperation(_ block: @escaping @Sendable () -> Void) { fatalError() }
}

open class URLSessionConfiguration: NSObject, @unchecked Sendable {
  public class var `default`: URLSessionConfiguration { fatalError() }
  public var httpMaximumConnectionsPerHost: Int {
    get { fatalError() }
    set { fatalError() }
  }
  @available(iOS 13.0, *)
  public var allowsConstrainedNetworkAccess: Bool {
    get { fatalError() }
    set { fatalError() }
  }
  @available(iOS 13.0, *)
  public var allowsExpensiveNetworkAccess: Bool {
    get { fatalError() }
    set { fatalError() }
  }
}
open class URLSessionTask: NSObject, @unchecked Sendable {
  public var taskIdentifier: Int { fatalError() }
  public var response: URLResponse? { fatalError() }
  public func resume() { fatalError() }
  public func cancel() { fatalError() }
}
open class URLSessionDataTask: URLSessionTask, @unchecked Sendable {}
open class URLSession: NSObject, @unchecked Sendable {
  public init(
    configuration: URLSessionConfiguration, delegate: (any URLSessionDelegate)?, delegateQueue: OperationQueue?
  ) {}
  public var delegateQueue: OperationQueue { fatalError() }
  public func invalidateAndCancel() { fatalError() }
  public func dataTask(with request: URLRequest) -> URLSessionDataTask { fatalError() }
}

public protocol URLSessionDelegate: Sendable {}
public protocol URLSessionTaskDelegate: URLSessionDelegate {
  func urlSession(
    _ session: URLSession, task: URLSessionTask, willPerformHTTPRedirection response: HTTPURLResponse,
    newRequest request: URLRequest, completionHandler: @escaping @Sendable (URLRequest?) -> Void)
  func urlSession(
    _ session: URLSession, task: URLSessionTask, didSendBodyData bytesSent: Int64, totalBytesSent: Int64,
    totalBytesExpectedToSend: Int64)
  func urlSession(_ session: URLSession, task: URLSessionTask, didCompleteWithError error: (any Error)?)
}
public protocol URLSessionDataDelegate: URLSessionTaskDelegate {
  func urlSession(_ session: URLSession, dataTask: URLSessionDataTask, didReceive data: Data)
}

public struct DispatchTime: Comparable, Sendable {
  public static func now() -> DispatchTime { fatalError() }
  public static func < (left: DispatchTime, right: DispatchTime) -> Bool { fatalError() }
  public static func + (time: DispatchTime, seconds: Double) -> DispatchTime { fatalError() }
}
public struct DispatchQoS: Sendable {
  public enum QoSClass: Sendable {
    case utility
  }
}
public final class DispatchQueue: Sendable {
  public static func global(qos: DispatchQoS.QoSClass) -> DispatchQueue { fatalError() }
  public func asyncAfter(deadline: DispatchTime, execute work: @escaping @Sendable () -> Void) { fatalError() }
}
