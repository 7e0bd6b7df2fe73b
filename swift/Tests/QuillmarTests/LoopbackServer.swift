import Foundation

#if canImport(Glibc)
  import Glibc
  private let stream = Int32(SOCK_STREAM.rawValue)
  private let socketSend = Glibc.send
#else
  import Darwin
  private let stream = SOCK_STREAM
  private let socketSend = Darwin.send
#endif

/// An HTTP server on 127.0.0.1, with a thread for each connection. It closes a connection after one answer.
final class LoopbackServer: @unchecked Sendable {
  struct Request: Sendable {
    var method: String
    var target: String
    /// By lower-case name; a second value of a name follows the first behind a comma.
    var headers: [String: String]
    var body: String
  }

  /// What goes out, and whether the connection stays open then, until `stop`. `isEndless`: it goes out again and again,
  /// until the client has gone, slowly when it `drips`.
  struct Answer: Sendable {
    var bytes: String
    var hangs = false
    var isEndless = false
    var drips = false

    static func status(_ code: Int, _ body: String = "", headers: [String] = []) -> Answer {
      let lines = ["HTTP/1.1 \(code) Status", "Content-Length: \(body.utf8.count)", "Connection: close"] + headers
      return Answer(bytes: (lines + ["", body]).joined(separator: "\r\n"))
    }
  }

  let url: String
  private let listener: Int32
  private let answer: @Sendable (Request) -> Answer
  private let changed = NSCondition()
  private var seen: [Request] = []
  private var leaving = 0
  private var isStopped = false

  init(_ answer: @escaping @Sendable (Request) -> Answer) {
    self.answer = answer
    let listener = socket(AF_INET, stream, 0)
    self.listener = listener
    var address = sockaddr_in()
    address.sin_family = sa_family_t(AF_INET)
    address.sin_addr.s_addr = inet_addr("127.0.0.1")
    var size = socklen_t(MemoryLayout<sockaddr_in>.size)
    let listens = withUnsafeMutablePointer(to: &address) {
      $0.withMemoryRebound(to: sockaddr.self, capacity: 1) { pointer in
        bind(listener, pointer, size) == 0 && listen(listener, 64) == 0 && getsockname(listener, pointer, &size) == 0
      }
    }
    precondition(listens, "no socket")
    url = "http://127.0.0.1:\(UInt16(bigEndian: address.sin_port))"
    Thread.detachNewThread { [self] in
      while case let connection = accept(listener, nil, nil), connection >= 0 {
        Thread.detachNewThread { [self] in serve(connection) }
      }
      close(listener)
    }
  }

  func stop() {
    changed.lock()
    isStopped = true
    changed.broadcast()
    changed.unlock()
    shutdown(listener, Int32(SHUT_RDWR))
  }

  var requests: [Request] {
    changed.lock()
    defer { changed.unlock() }
    return seen
  }

  /// The clients that went before an endless answer was over.
  var abandoned: Int {
    changed.lock()
    defer { changed.unlock() }
    return leaving
  }

  private func serve(_ connection: Int32) {
    defer { close(connection) }
    guard let request = read(connection) else { return }
    changed.lock()
    seen.append(request)
    changed.unlock()
    let answer = answer(request)
    repeat {
      if !send(answer.bytes, to: connection) { break }
      if answer.drips { usleep(10_000) }
    } while answer.isEndless
    changed.lock()
    leaving += answer.isEndless ? 1 : 0
    while answer.hangs && !isStopped { changed.wait() }
    changed.unlock()
  }

  private func send(_ text: String, to connection: Int32) -> Bool {
    var left = ArraySlice(Array(text.utf8))
    while !left.isEmpty {
      let sent = left.withUnsafeBytes { socketSend(connection, $0.baseAddress, $0.count, Int32(MSG_NOSIGNAL)) }
      if sent <= 0 { return false }
      left = left.dropFirst(sent)
    }
    return true
  }

  private func read(_ connection: Int32) -> Request? {
    var bytes: [UInt8] = []
    var piece = [UInt8](repeating: 0, count: 65536)
    while true {
      if let end = bytes.firstRange(of: Array("\r\n\r\n".utf8)) {
        var lines = String(decoding: bytes[..<end.lowerBound], as: UTF8.self).components(separatedBy: "\r\n")
        let first = lines.removeFirst().components(separatedBy: " ")
        let fields = lines.map { line -> (String, String) in
          let colon = line.firstIndex(of: ":") ?? line.endIndex
          return (line[..<colon].lowercased(), line[colon...].dropFirst().trimmingCharacters(in: .whitespaces))
        }
        let headers = Dictionary(fields, uniquingKeysWith: { "\($0), \($1)" })
        let body = bytes[end.upperBound...]
        if body.count >= Int(headers["content-length"] ?? "0") ?? 0 {
          return Request(
            method: first[0], target: first[1], headers: headers, body: String(decoding: body, as: UTF8.self))
        }
      }
      let count = recv(connection, &piece, piece.count, 0)
      if count <= 0 { return nil }
      bytes += piece[..<count]
    }
  }
}

#if canImport(Darwin)
  private let MSG_NOSIGNAL: Int32 = 0
#endif

/// Waits until a condition holds, for at most half a minute.
func eventually(_ condition: () -> Bool) -> Bool {
  let end = Date() + 30
  while !condition() {
    if Date() > end { return false }
    usleep(1000)
  }
  return true
}

/// A folder that is gone at the end.
final class TemporaryFolder {
  let path = NSTemporaryDirectory() + "quillmar-" + UUID().uuidString
  deinit { try? FileManager.default.removeItem(atPath: path) }
}
