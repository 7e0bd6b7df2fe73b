import CQuillmar
import Foundation

/// Why an exchange gave no response, as the C interface counts it.
struct TransportError: Error, Equatable {
  let code: quillmar_http_error

  init(_ code: Int) {
    self.code = quillmar_http_error(code)
  }

  static let unknown = TransportError(QUILLMAR_HTTP_UNKNOWN)
  static let timedOut = TransportError(QUILLMAR_HTTP_TIMED_OUT)
  static let connectionLost = TransportError(QUILLMAR_HTTP_NETWORK_CONNECTION_LOST)
  static let cancelled = TransportError(QUILLMAR_HTTP_CANCELLED)
  static let badURL = TransportError(QUILLMAR_HTTP_BAD_URL)
  static let unsupportedURL = TransportError(QUILLMAR_HTTP_UNSUPPORTED_URL)
  static let tooManyRedirects = TransportError(QUILLMAR_HTTP_TOO_MANY_REDIRECTS)
  static let insecureRedirect = TransportError(QUILLMAR_HTTP_REDIRECT_TO_INSECURE_LOCATION)
  static let badServerResponse = TransportError(QUILLMAR_HTTP_BAD_SERVER_RESPONSE)
  static let tooLong = TransportError(QUILLMAR_HTTP_DATA_LENGTH_EXCEEDS_MAXIMUM)
}

/// A request that was found fit to be sent. URL sessions look at neither line ends in headers nor spaces in URLs, and
/// lose the body of some redirected requests: what the library is promised is seen to here.
struct OutgoingRequest: Sendable {
  private(set) var url: URL
  private(set) var method: String
  private(set) var headers: [String: String]
  private(set) var body: Data
  let timeout: TimeInterval
  let isReload: Bool

  init(
    url: String, method: String, headers: [String: String] = [:], body: Data = Data(), timeout: TimeInterval = 60,
    isReload: Bool = false
  ) throws {
    self.url = try Self.read(url)
    guard isToken(method), headers.allSatisfy({ isToken($0.key) && isHeaderValue($0.value) }) else {
      throw TransportError.badURL
    }
    self.method = method
    self.headers = headers
    self.body = body
    self.timeout = timeout > 0 ? min(timeout, 365 * 24 * 3600) : 0.001
    self.isReload = isReload
  }

  private static func read(_ text: String) throws -> URL {
    guard !text.isEmpty else { throw TransportError.unsupportedURL }
    guard text.utf8.allSatisfy({ $0 > 0x20 && $0 < 0x7f }), let url = URL(string: text) else {
      throw TransportError.badURL
    }
    guard url.isSecure || url.scheme?.lowercased() == "http" else { throw TransportError.unsupportedURL }
    guard url.host?.isEmpty == false else { throw TransportError.badURL }
    return url
  }

  /// The request that a redirection asks for. The keys that were meant for this origin go to no other one.
  func redirected(status: Int, location: String) throws -> OutgoingRequest {
    guard let target = URL(string: location, relativeTo: url)?.absoluteString else {
      throw TransportError.badServerResponse
    }
    var next = self
    do {
      next.url = try Self.read(target)
    } catch {
      throw error as? TransportError == .unsupportedURL ? TransportError.insecureRedirect : .badServerResponse
    }
    if url.isSecure && !next.url.isSecure {
      throw TransportError.insecureRedirect
    }
    if url.origin != next.url.origin {
      next.drop { ["authorization", "proxy-authorization", "cookie", "host"].contains($0) }
    }
    if (status == 303 && method != "HEAD") || (status <= 302 && method == "POST") {
      next.method = "GET"
      next.body = Data()
      next.drop { $0.hasPrefix("content-") || $0 == "transfer-encoding" }
    }
    return next
  }

  private mutating func drop(_ isUnwanted: (String) -> Bool) {
    headers = headers.filter { !isUnwanted($0.key.lowercased()) }
  }
}

extension URL {
  fileprivate var isSecure: Bool { scheme?.lowercased() == "https" }
  fileprivate var origin: [String] {
    [scheme?.lowercased() ?? "", host?.lowercased() ?? "", String(port ?? (isSecure ? 443 : 80))]
  }
}

/// Methods and header names are such tokens; anything else could end the line or the name early.
private func isToken(_ text: String) -> Bool {
  !text.isEmpty
    && text.utf8.allSatisfy {
      switch $0 {
      case UInt8(ascii: "0")...UInt8(ascii: "9"), UInt8(ascii: "A")...UInt8(ascii: "Z"),
        UInt8(ascii: "a")...UInt8(ascii: "z"):
        return true
      default: return "!#$%&'*+-.^_`|~".utf8.contains($0)
      }
    }
}

private func isHeaderValue(_ text: String) -> Bool {
  text.utf8.allSatisfy { $0 != 0x0d && $0 != 0x0a && $0 != 0 }
}
