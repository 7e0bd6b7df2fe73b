import CQuillmar
import Foundation

#if canImport(FoundationNetworking)
  import FoundationNetworking
#endif

/// Performs the library's exchanges with a URL session of its own, which shares cache, cookies and credentials with the
/// shared session. It follows redirections itself, see `OutgoingRequest.redirected`, ends an answer that is too long
/// while it arrives, and watches the time: not every session ends an answer that stops in its middle, and none one that
/// drips. The session adds headers of its own (`User-Agent`, `Accept`, ...).
final class URLSessionTransport: Sendable {
  struct Answer: Equatable, Sendable {
    /// Where it came from, after redirections.
    let url: String
    /// -1 when it did not come over HTTP.
    let status: Int
    let body: Data
    var retryAfter = ""
  }

  /// Called once, on the session's queue: with nil when the transport has gone before the exchange was over.
  typealias Completion = @Sendable (Result<Answer, TransportError>?) -> Void

  private let session: URLSession
  private let exchanges: Exchanges

  static func install(on platform: Handle, _ options: QuillmarPlatformOptions) {
    let configuration = URLSessionConfiguration.default
    if let count = options.maxConnections {
      configuration.httpMaximumConnectionsPerHost = count
    }
    #if !canImport(FoundationNetworking)  // on Linux no network is known to be constrained
      configuration.allowsConstrainedNetworkAccess = options.allowsConstrainedNetwork
      configuration.allowsExpensiveNetworkAccess = options.allowsExpensiveNetwork
    #endif
    register(URLSessionTransport(configuration, maxBodyBytes: options.maxAnswerBytes ?? 2 << 20)) { context in
      var http = quillmar_http()
      http.size = MemoryLayout.size(ofValue: http)
      http.context = context
      http.release = releaseContext
      http.start = { pointer, identifier, request, completion in
        guard let transport = object(at: pointer, as: URLSessionTransport.self), let request else { return }
        let completion = Handle(completion)
        transport.start(identifier, Result { try outgoing(request.pointee) }) { complete(completion, $0) }
      }
      http.cancel = { pointer, identifier in
        object(at: pointer, as: URLSessionTransport.self)?.cancel(identifier)
      }
      return quillmar_platform_set_http(platform.pointer, &http)
    }
  }

  init(_ configuration: URLSessionConfiguration = .default, maxBodyBytes: Int) {
    exchanges = Exchanges(maxBodyBytes: maxBodyBytes)
    session = URLSession(configuration: configuration, delegate: exchanges, delegateQueue: nil)
  }

  deinit {
    exchanges.dropAll()
    session.invalidateAndCancel()
  }

  func start(
    _ identifier: UInt64, _ request: Result<OutgoingRequest, any Error>, _ completion: @escaping Completion
  ) {
    switch request {
    case .success(let request):
      exchanges.start(identifier, request, completion, in: session)
    case .failure(let error):
      session.delegateQueue.addOperation { completion(.failure(error as? TransportError ?? .unknown)) }
    }
  }

  func cancel(_ identifier: UInt64) {
    exchanges.cancel(identifier)
  }
}

/// What is under way. The delegate of the session, which keeps it alive until it is invalidated.
private final class Exchanges: NSObject, URLSessionDataDelegate, Sendable {
  private struct Exchange {
    var request: OutgoingRequest
    let completion: URLSessionTransport.Completion
    var task: URLSessionDataTask
    var body = Data()
    var redirects = 0
    /// Why this adapter has cancelled the task.
    var failure: TransportError?
    var lastActivity = DispatchTime.now()
    /// A byte now and then is no silence; but the whole exchange may take only ten times as long as one.
    let deadline: DispatchTime

    init(_ request: OutgoingRequest, _ completion: @escaping URLSessionTransport.Completion, _ task: URLSessionDataTask)
    {
      self.request = request
      self.completion = completion
      self.task = task
      deadline = lastActivity + 10 * request.timeout
    }

    var end: DispatchTime { min(lastActivity + request.timeout, deadline) }
  }

  private struct State {
    var exchanges: [UInt64: Exchange] = [:]
    /// The exchange of each task, by the task's identifier.
    var identifiers: [Int: UInt64] = [:]
  }

  private let maxBodyBytes: Int
  private let state = Locked(State())

  init(maxBodyBytes: Int) {
    self.maxBodyBytes = maxBodyBytes
  }

  func start(
    _ identifier: UInt64, _ request: OutgoingRequest, _ completion: @escaping URLSessionTransport.Completion,
    in session: URLSession
  ) {
    let task = session.dataTask(with: URLRequest(request))
    state.with {
      $0.exchanges[identifier] = Exchange(request, completion, task)
      $0.identifiers[task.taskIdentifier] = identifier
    }
    task.resume()
    watch(identifier, until: .now() + request.timeout)
  }

  private func watch(_ identifier: UInt64, until end: DispatchTime) {
    DispatchQueue.global(qos: .utility).asyncAfter(deadline: end) { [weak self] in
      self?.look(at: identifier)
    }
  }

  /// Ends an exchange whose time is over.
  private func look(at identifier: UInt64) {
    let (end, task): (DispatchTime?, URLSessionDataTask?) = state.with { state in
      guard let exchange = state.exchanges[identifier], exchange.failure == nil else { return (nil, nil) }
      if exchange.end > .now() { return (exchange.end, nil) }
      state.exchanges[identifier]?.failure = .timedOut
      return (nil, exchange.task)
    }
    task?.cancel()
    if let end {
      watch(identifier, until: end)
    }
  }

  func cancel(_ identifier: UInt64) {
    let task = state.with { state in
      if state.exchanges[identifier]?.failure == nil {
        state.exchanges[identifier]?.failure = .cancelled
      }
      return state.exchanges[identifier]?.task
    }
    task?.cancel()
  }

  func dropAll() {
    let dropped = state.with { state in
      defer { state = State() }
      return state.exchanges.values.map(\.completion)
    }
    dropped.forEach { $0(nil) }
  }

  func urlSession(
    _ session: URLSession, task: URLSessionTask, willPerformHTTPRedirection response: HTTPURLResponse,
    newRequest request: URLRequest, completionHandler: @escaping @Sendable (URLRequest?) -> Void
  ) {
    completionHandler(nil)  // the redirection itself is the answer then
  }

  func urlSession(
    _ session: URLSession, task: URLSessionTask, didSendBodyData bytesSent: Int64, totalBytesSent: Int64,
    totalBytesExpectedToSend: Int64
  ) {
    state.with { state in
      if let identifier = state.identifiers[task.taskIdentifier] {
        state.exchanges[identifier]?.lastActivity = .now()
      }
    }
  }

  func urlSession(_ session: URLSession, dataTask: URLSessionDataTask, didReceive data: Data) {
    let isTooLong = state.with { state in
      guard let identifier = state.identifiers[dataTask.taskIdentifier], var exchange = state.exchanges[identifier],
        exchange.failure == nil
      else { return false }
      state.exchanges[identifier] = nil  // so that the body is not copied for each piece
      if data.count > maxBodyBytes - exchange.body.count {
        exchange.failure = .tooLong
        exchange.body = Data()
      } else {
        exchange.lastActivity = .now()
        exchange.body.append(data)
      }
      state.exchanges[identifier] = exchange
      return exchange.failure != nil
    }
    if isTooLong {
      dataTask.cancel()
    }
  }

  func urlSession(_ session: URLSession, task: URLSessionTask, didCompleteWithError error: (any Error)?) {
    enum Step {
      case none
      case follow(URLSessionDataTask)
      case end(URLSessionTransport.Completion, Result<URLSessionTransport.Answer, TransportError>)
    }
    let step: Step = state.with { state in
      guard let identifier = state.identifiers.removeValue(forKey: task.taskIdentifier),
        var exchange = state.exchanges.removeValue(forKey: identifier)
      else { return .none }
      do {
        if let failure = exchange.failure { throw failure }
        if let error { throw TransportError(error) }
        let answer = task.response as? HTTPURLResponse
        guard let answer, let next = try exchange.request.followed(answer) else {
          let url = exchange.request.url.absoluteString
          let retryAfter = answer?.value(forHTTPHeaderField: "Retry-After") ?? ""
          return .end(
            exchange.completion,
            .success(.init(url: url, status: answer?.statusCode ?? -1, body: exchange.body, retryAfter: retryAfter)))
        }
        exchange.redirects += 1
        if exchange.redirects > 20 { throw TransportError.tooManyRedirects }
        exchange.request = next
        exchange.body = Data()
        exchange.lastActivity = .now()
        exchange.task = session.dataTask(with: URLRequest(next))
        state.exchanges[identifier] = exchange
        state.identifiers[exchange.task.taskIdentifier] = identifier
        return .follow(exchange.task)
      } catch {
        return .end(exchange.completion, .failure(error as? TransportError ?? .unknown))
      }
    }
    switch step {
    case .none: break
    case .follow(let task): task.resume()
    case .end(let completion, let result): completion(result)
    }
  }
}

private func complete(_ completion: Handle, _ end: Result<URLSessionTransport.Answer, TransportError>?) {
  var result = quillmar_http_result()
  result.size = MemoryLayout.size(ofValue: result)
  switch end {
  case nil:
    quillmar_http_completion_drop(completion.pointer)
  case .failure(let error):
    result.error = error.code
    quillmar_http_completion_call(completion.pointer, &result)
  case .success(let answer):
    result.status_code = Int32(answer.status)
    answer.url.withCString { url in
      answer.body.withUnsafeBytes { body in
        answer.retryAfter.withCString { retryAfter in
          result.url = url
          result.body = body.baseAddress
          result.body_size = body.count
          result.retry_after = retryAfter
          quillmar_http_completion_call(completion.pointer, &result)
        }
      }
    }
  }
}

private func outgoing(_ request: quillmar_http_request) throws -> OutgoingRequest {
  var headers: [String: String] = [:]
  for header in UnsafeBufferPointer(start: request.headers, count: request.header_count) {
    headers[String(cString: header.name)] = String(cString: header.value)
  }
  return try OutgoingRequest(
    url: String(cString: request.url), method: String(cString: request.method), headers: headers,
    body: request.body.map { Data(bytes: $0, count: request.body_size) } ?? Data(),
    timeout: request.timeout_seconds, isReload: request.cache_policy == QUILLMAR_CACHE_RELOAD)
}

extension OutgoingRequest {
  /// The next request when this answer is a redirection.
  fileprivate func followed(_ answer: HTTPURLResponse) throws -> OutgoingRequest? {
    guard [301, 302, 303, 307, 308].contains(answer.statusCode),
      let location = answer.value(forHTTPHeaderField: "Location")
    else { return nil }
    return try redirected(status: answer.statusCode, location: location)
  }
}

extension URLRequest {
  fileprivate init(_ request: OutgoingRequest) {
    self.init(
      url: request.url, cachePolicy: request.isReload ? .reloadIgnoringLocalCacheData : .useProtocolCachePolicy,
      timeoutInterval: request.timeout)
    httpMethod = request.method
    for (name, value) in request.headers where name.lowercased() != "content-length" {  // the session counts itself
      setValue(value, forHTTPHeaderField: name)
    }
    if !request.body.isEmpty || ["POST", "PUT", "PATCH"].contains(request.method) {
      httpBody = request.body
    }
  }
}

extension TransportError {
  fileprivate init(_ error: any Error) {
    switch (error as? URLError)?.code {
    case .cancelled: self = .cancelled
    case .badURL: self = .badURL
    case .unsupportedURL: self = .unsupportedURL
    case .timedOut: self = .timedOut
    case .cannotFindHost, .dnsLookupFailed: self.init(QUILLMAR_HTTP_CANNOT_FIND_HOST)
    case .cannotConnectToHost: self.init(QUILLMAR_HTTP_CANNOT_CONNECT_TO_HOST)
    case .networkConnectionLost: self = .connectionLost
    case .notConnectedToInternet, .dataNotAllowed, .internationalRoamingOff, .callIsActive:
      self.init(QUILLMAR_HTTP_NOT_CONNECTED_TO_INTERNET)
    case .secureConnectionFailed, .serverCertificateHasBadDate, .serverCertificateUntrusted,
      .serverCertificateHasUnknownRoot, .serverCertificateNotYetValid, .clientCertificateRejected,
      .clientCertificateRequired, .appTransportSecurityRequiresSecureConnection:
      self.init(QUILLMAR_HTTP_SECURE_CONNECTION_FAILED)
    case .httpTooManyRedirects: self = .tooManyRedirects
    case .redirectToNonExistentLocation, .badServerResponse, .cannotDecodeRawData, .cannotDecodeContentData,
      .cannotParseResponse, .zeroByteResource:
      self = .badServerResponse
    case .dataLengthExceedsMaximum: self = .tooLong
    default: self = .unknown
    }
  }
}
