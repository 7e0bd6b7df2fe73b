import CQuillmar

/// A handle of the C interface, which takes each of them on any thread. Null, which its functions refuse, when memory
/// ran out.
struct Handle: @unchecked Sendable {
  let pointer: OpaquePointer?

  init(_ pointer: OpaquePointer?) {
    self.pointer = pointer
  }
}

/// Runs `body` for a C function that copies a text into a buffer and gives its whole length.
func text(_ copy: (UnsafeMutablePointer<CChar>?, Int) -> Int) -> String {
  var buffer = [CChar](repeating: 0, count: 128)
  while true {
    let length = copy(&buffer, buffer.count)
    if length < buffer.count {
      return String(decoding: buffer.prefix(length).map { UInt8(bitPattern: $0) }, as: UTF8.self)
    }
    buffer = [CChar](repeating: 0, count: length + 1)  // it may have grown again by the next round
  }
}

/// Hands a table with this object as its context to the C interface, which releases the object once.
func register(_ context: AnyObject, _ set: (UnsafeMutableRawPointer) -> quillmar_status) {
  let retained = Unmanaged.passRetained(context)
  if set(retained.toOpaque()) != QUILLMAR_OK {
    retained.release()
  }
}

/// What a table's `release` does.
func releaseContext(_ context: UnsafeMutableRawPointer?) {
  context.map { Unmanaged<AnyObject>.fromOpaque($0).release() }
}

/// The context of a table.
func object<Context: AnyObject>(at pointer: UnsafeMutableRawPointer?, as type: Context.Type) -> Context? {
  pointer.map { Unmanaged<Context>.fromOpaque($0).takeUnretainedValue() }
}

/// Whole milliseconds; what no number can count is the longest or the shortest there is.
func milliseconds(_ seconds: Double) -> Int64 {
  let value = (seconds * 1000).rounded(.up)
  return Int64(exactly: value) ?? (value > 0 ? .max : 0)
}
