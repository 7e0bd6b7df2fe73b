import Foundation
import XCTest

@testable import Quillmar

final class URLSessionTransportTests: XCTestCase {
  /// How an exchange ended. `isOver` is set on the session's queue.
  private final class Exchange: Sendable {
    let ends = Locked<[Result<URLSessionTransport.Answer, TransportError>?]>([])
    var count: Int { ends.with { $0.count } }
    var answer: URLSessionTransport.Answer? { try? ends.with { $0.first }??.get() }
    var error: TransportError? {
      if case .failure(let error)? = ends.with({ $0.first })?.flatMap({ $0 }) { return error }
      return nil
    }
    var isDropped: Bool { ends.with { $0.count == 1 && $0[0] == nil } }
  }

  private let transport = URLSessionTransport(maxBodyBytes: 1_000_000)
  private let lastIdentifier = Locked<UInt64>(0)

  private func start(
    _ request: @autoclosure () throws -> OutgoingRequest, on transport: URLSessionTransport? = nil
  ) throws -> (UInt64, Exchange) {
    let exchange = Exchange()
    let identifier = lastIdentifier.with { last -> UInt64 in
      last += 1
      return last
    }
    (transport ?? self.transport).start(identifier, Result { try request() }) { end in
      exchange.ends.with { $0.append(end) }
    }
    return (identifier, exchange)
  }

  private func perform(_ request: @autoclosure () throws -> OutgoingRequest) throws -> Exchange {
    let (_, exchange) = try start(try request())
    XCTAssertTrue(eventually { exchange.count > 0 })
    return exchange
  }

  private func serve(_ answer: @escaping @Sendable (LoopbackServer.Request) -> LoopbackServer.Answer) -> LoopbackServer
  {
    let server = LoopbackServer(answer)
    addTeardownBlock { server.stop() }
    return server
  }

  func testCarriesTheExchange() throws {
    let server = serve { .status($0.method == "DELETE" ? 599 : 201, "body of \($0.method)") }
    for method in ["GET", "POST", "PATCH", "DELETE"] {
      let sent = method == "GET" ? "" : String(repeating: "p\r\n", count: 100_000)
      let ended = try perform(
        OutgoingRequest(
          url: server.url + "/a?c=%20d", method: method,
          headers: ["Authorization": "key", "Content-Type": "text/plain", "Content-Length": "1"], body: Data(sent.utf8))
      )
      XCTAssertEqual(
        ended.answer,
        .init(
          url: server.url + "/a?c=%20d", status: method == "DELETE" ? 599 : 201, body: Data("body of \(method)".utf8)))
      let seen = try XCTUnwrap(server.requests.last)
      XCTAssertEqual(seen.method, method)
      XCTAssertEqual(seen.target, "/a?c=%20d")
      XCTAssertEqual(seen.body, sent)
      XCTAssertEqual(seen.headers["authorization"], "key")
      XCTAssertEqual(seen.headers["content-type"], "text/plain")
    }
  }

  func testRefusesWhatItCannotSendAsItIs() throws {
    let server = serve { _ in .status(200) }
    let rows: [(error: TransportError, method: String, name: String, value: String, url: String)] = [
      (.unsupportedURL, "GET", "X", "a", ""),
      (.badURL, "GET", "X", "a\nEvil: 1", server.url),
      (.badURL, "GET", "X", "a\r\nEvil: 1", server.url),
      (.badURL, "GET", "X: 1\r\nEvil", "a", server.url),
      (.badURL, "GET", "", "a", server.url),
      (.badURL, "GET / HTTP/1.1\r\nEvil: 1\r\nX:", "X", "a", server.url),
      (.badURL, "GET", "X", "a", server.url + "/ HTTP/1.1\r\nEvil: 1"),
      (.badURL, "GET", "X", "a", "http:///path"),
      (.unsupportedURL, "GET", "X", "a", "file:///etc/hostname"),
      (.unsupportedURL, "GET", "X", "a", "127.0.0.1/"),
    ]
    for row in rows {
      let ended = try perform(OutgoingRequest(url: row.url, method: row.method, headers: [row.name: row.value]))
      XCTAssertEqual(ended.error, row.error, "\(row)")
    }
    XCTAssertTrue(server.requests.isEmpty)
  }

  func testFollowsRedirectionsWithTheRightMethodAndBody() throws {
    for (status, method, then) in [
      (301, "POST", "GET"), (302, "PUT", "PUT"), (303, "DELETE", "GET"), (307, "POST", "POST"), (308, "PUT", "PUT"),
    ] {
      let server = serve {
        $0.target == "/from" ? .status(status, "moved", headers: ["Location: to?x=1"]) : .status(200, "here")
      }
      let ended = try perform(
        OutgoingRequest(
          url: server.url + "/from", method: method, headers: ["Authorization": "key", "Content-Type": "text/odd"],
          body: Data("body".utf8)))
      XCTAssertEqual(ended.answer, .init(url: server.url + "/to?x=1", status: 200, body: Data("here".utf8)), method)
      let seen = try XCTUnwrap(server.requests.last)
      XCTAssertEqual(seen.method, then)
      XCTAssertEqual(seen.body, method == then ? "body" : "")
      XCTAssertEqual(seen.headers["content-type"] == "text/odd", method == then)
      XCTAssertEqual(seen.headers["authorization"], "key")
    }
  }

  func testKeepsCredentialsFromOtherOriginsAndLeavesALoop() throws {
    let other = Locked("")
    let here = serve { _ in .status(307, headers: ["Location: " + other.with { $0 }]) }
    let there = serve { _ in .status(307, headers: ["Location: " + here.url]) }
    other.with { $0 = there.url }
    let ended = try perform(
      OutgoingRequest(
        url: here.url, method: "GET", headers: ["authorization": "key", "Cookie": "a", "X-Kept": "1"]))
    XCTAssertEqual(ended.error, .tooManyRedirects)
    XCTAssertEqual(here.requests.count + there.requests.count, 21)
    XCTAssertEqual(here.requests.first?.headers["authorization"], "key")
    // Nor do they come back: the other origin chose where to go.
    for seen in [there.requests.first, here.requests.last] {
      XCTAssertNil(seen?.headers["authorization"])
      XCTAssertNil(seen?.headers["cookie"])
      XCTAssertEqual(seen?.headers["x-kept"], "1")
    }
  }

  func testStaysWhereItIsSecure() throws {
    let request = try OutgoingRequest(url: "https://a.example/x", method: "GET", headers: ["Authorization": "key"])
    for (location, expected) in [
      ("http://a.example/", .insecureRedirect), ("file:///etc/hostname", .insecureRedirect),
      ("//a.example:99/", nil), ("https://A.example:443/y", nil), ("https:///", .badServerResponse),
    ] as [(String, TransportError?)] {
      let outcome = Result { try request.redirected(status: 302, location: location) }
      switch outcome {
      case .failure(let error): XCTAssertEqual(error as? TransportError, expected, location)
      case .success(let next):
        XCTAssertNil(expected, location)
        XCTAssertEqual(next.headers["Authorization"], location.hasSuffix("y") ? "key" : nil, location)
      }
    }
  }

  func testLeavesServersThatAnswerTooMuchTooLittleOrTooLate() throws {
    let head = "HTTP/1.1 200 OK\r\nContent-Length: 5000\r\nConnection: close\r\n\r\n"
    let piece = String(repeating: "z", count: 50_000)
    for (answer, error) in [
      (
        .init(bytes: "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nc350\r\n\(piece)\r\n", hangs: true),
        .timedOut
      ),
      (.init(bytes: head, hangs: true), .timedOut),
      (.init(bytes: "HTTP/1.1 200 OK\r\n\r\n", isEndless: true, drips: true), .timedOut),
      (.status(302, headers: ["Location: file:///etc/hostname"]), .insecureRedirect),
      (.status(200, piece + piece), nil),
      (.status(200, String(repeating: piece, count: 20)), nil),  // as much as is allowed
      (.status(200, String(repeating: piece, count: 20) + "!"), .tooLong),
    ] as [(LoopbackServer.Answer, TransportError?)] {
      let server = serve { _ in answer }
      let ended = try perform(OutgoingRequest(url: server.url, method: "GET", timeout: error == .timedOut ? 0.3 : 30))
      XCTAssertEqual(ended.error, error)
      XCTAssertEqual(ended.answer == nil, error != nil)
    }
    // One that never ends: the connection is closed, not read on.
    let endless = serve { _ in
      .init(bytes: "HTTP/1.1 200 OK\r\n\r\n" + String(repeating: "z", count: 100_000), isEndless: true, drips: true)
    }
    XCTAssertEqual(try perform(OutgoingRequest(url: endless.url, method: "GET")).error, .tooLong)
    XCTAssertTrue(eventually { endless.abandoned == 1 })
  }

  func testCancelEndsARequestWhereverItIs() throws {
    let server = serve { _ in .init(bytes: "", hangs: true) }
    let running = try (0..<20).map { _ in try start(try OutgoingRequest(url: server.url, method: "GET")) }
    XCTAssertTrue(eventually { !server.requests.isEmpty })
    for (identifier, _) in running {
      transport.cancel(identifier)
      transport.cancel(identifier)
    }
    XCTAssertTrue(eventually { running.allSatisfy { $0.1.error == .cancelled } })
    let after = serve { _ in .status(200) }
    XCTAssertEqual(try perform(OutgoingRequest(url: after.url, method: "GET")).answer?.status, 200)
    transport.cancel(running[0].0)  // too late
    XCTAssertTrue(running.allSatisfy { $0.1.count == 1 })
  }

  func testGoingDropsWhatIsUnderWay() throws {
    let server = serve { _ in .init(bytes: "", hangs: true) }
    var going: URLSessionTransport? = URLSessionTransport(maxBodyBytes: 1)
    let running = try (0..<20).map { _ in try start(try OutgoingRequest(url: server.url, method: "GET"), on: going) }
    XCTAssertTrue(eventually { !server.requests.isEmpty })
    going = nil
    XCTAssertTrue(running.allSatisfy { $0.1.isDropped })
  }
}
