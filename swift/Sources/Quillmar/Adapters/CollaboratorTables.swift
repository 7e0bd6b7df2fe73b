import CQuillmar
import Foundation

/// A value as the context of a table.
final class Box<Value: Sendable>: Sendable {
  let value: Value
  init(_ value: Value) { self.value = value }
}

/// One function for all tables of collaborators, by which the package knows its own.
let releaseCollaborator: @convention(c) (UnsafeMutableRawPointer?) -> Void = { releaseContext($0) }

private func value<Value: Sendable>(at pointer: UnsafeMutableRawPointer?, as type: Value.Type) -> Value? {
  object(at: pointer, as: Box<Value>.self)?.value
}

func conversionValuesTable(_ context: UnsafeMutableRawPointer) -> quillmar_conversion_values_repository {
  var table = quillmar_conversion_values_repository()
  table.size = MemoryLayout.size(ofValue: table)
  table.context = context
  table.release = releaseCollaborator
  table.fetch_and_save = { pointer, completion in
    let repository = value(at: pointer, as: (any ConversionValuesRepositoryProtocol).self)
    let completion = Handle(completion)
    Task(priority: .utility) {
      do {
        try await repository?.fetchAndSaveConversionValues()
        quillmar_fetch_completion_call(completion.pointer, nil)
      } catch {
        quillmar_fetch_completion_call(completion.pointer, error.localizedDescription)
      }
    }
  }
  table.fetch_all = { pointer, bytes in
    let repository = value(at: pointer, as: (any ConversionValuesRepositoryProtocol).self)
    if let document = try? repository?.fetchAllConversionValues(), let json = try? JSONEncoder().encode(document) {
      _ = json.withUnsafeBytes { quillmar_bytes_set(bytes, $0.baseAddress, $0.count) }
    }
  }
  return table
}

func verificationKeyTable(_ context: UnsafeMutableRawPointer) -> quillmar_verification_key_repository {
  var table = quillmar_verification_key_repository()
  table.size = MemoryLayout.size(ofValue: table)
  table.context = context
  table.release = releaseCollaborator
  table.fetch = { pointer, bytes in
    if let key = value(at: pointer, as: (any VerificationKeyRepositoryProtocol).self)?.fetchVerificationKey() {
      quillmar_bytes_set(bytes, key, key.utf8.count)
    }
  }
  table.save = { pointer, key in
    if let key {
      value(at: pointer, as: (any VerificationKeyRepositoryProtocol).self)?.save(verificationKey: String(cString: key))
    }
  }
  return table
}

func eventServerLogTable(_ context: UnsafeMutableRawPointer) -> quillmar_event_server_log_repository {
  var table = quillmar_event_server_log_repository()
  table.size = MemoryLayout.size(ofValue: table)
  table.context = context
  table.release = releaseCollaborator
  table.log_event = { pointer, event, identifier, completion in
    let completion = Handle(completion)
    guard let repository = value(at: pointer, as: (any EventServerLogRepositoryProtocol).self), let event else {
      return quillmar_log_completion_drop(completion.pointer)
    }
    let name = String(cString: event)
    let identifier = identifier.map { String(cString: $0) }
    Task(priority: .utility) {
      do {
        let accepted =
          if let identifier { try await repository.logEvent(name, identifier: identifier) } else {
            try await repository.logEvent(name)
          }
        quillmar_log_completion_call(completion.pointer, accepted, nil)
      } catch {
        quillmar_log_completion_call(completion.pointer, false, error.localizedDescription)
      }
    }
  }
  return table
}

func trackingManagerTable(_ context: UnsafeMutableRawPointer) -> quillmar_conversion_tracking_manager {
  var table = quillmar_conversion_tracking_manager()
  table.size = MemoryLayout.size(ofValue: table)
  table.context = context
  table.release = releaseCollaborator
  table.send = { pointer, rule, window, lock in
    guard let manager = value(at: pointer, as: (any ConversionTrackingManagerProtocol).self), let rule,
      let value = try? JSONDecoder().decode(
        ConversionValues.ConversionValue.self, from: Data(String(cString: rule).utf8))
    else { return }
    manager.send(
      conversionValue: value, for: ConversionValues.Window.allCases[Int(window)], forceLockWindow: lock)
  }
  return table
}

/// A collaborator of the library's own, held as long as somebody has it.
final class LibraryCollaborator: Sendable {
  let handle: Handle

  /// Takes a handle over.
  init(_ pointer: OpaquePointer) {
    handle = Handle(pointer)
  }

  deinit {
    quillmar_collaborator_release(handle.pointer)
  }

  /// What the library answers to a call that `begin` makes with that context, or its error.
  func answer(_ begin: (UnsafeMutableRawPointer) -> quillmar_status) async throws -> Bool {
    try await withCheckedThrowingContinuation { continuation in
      let context = Unmanaged.passRetained(Box(continuation))
      if begin(context.toOpaque()) != QUILLMAR_OK {
        context.release()
        continuation.resume(throwing: CollaboratorError(errorDescription: "The library could not be asked."))
      }
    }
  }

  /// To be called once with the context of `answer`.
  static func resume(_ context: UnsafeMutableRawPointer?, _ result: Bool, _ error: UnsafePointer<CChar>?) {
    guard let context else { return }
    let continuation = Unmanaged<Box<CheckedContinuation<Bool, any Error>>>.fromOpaque(context).takeRetainedValue()
    if let error {
      continuation.value.resume(throwing: CollaboratorError(errorDescription: String(cString: error)))
    } else {
      continuation.value.resume(returning: result)
    }
  }
}

struct LibraryConversionValues: ConversionValuesRepositoryProtocol {
  let own: LibraryCollaborator

  func fetchAndSaveConversionValues() async throws {
    _ = try await own.answer {
      quillmar_collaborator_fetch_and_save(own.handle.pointer, $0) { LibraryCollaborator.resume($0, true, $1) }
    }
  }

  func fetchAllConversionValues() throws -> ConversionValues {
    let json = text { quillmar_collaborator_copy_document(own.handle.pointer, $0, $1) }
    guard !json.isEmpty else { throw CollaboratorError(errorDescription: "There is no document that can be read.") }
    return try JSONDecoder().decode(ConversionValues.self, from: Data(json.utf8))
  }
}

struct LibraryVerificationKey: VerificationKeyRepositoryProtocol {
  let own: LibraryCollaborator

  func fetchVerificationKey() -> String? {
    let key = text { quillmar_collaborator_copy_key(own.handle.pointer, $0, $1) }
    return key.isEmpty ? nil : key
  }

  func save(verificationKey: String) {
    quillmar_collaborator_save_key(own.handle.pointer, verificationKey)
  }
}

struct LibraryEventServerLog: EventServerLogRepositoryProtocol {
  let own: LibraryCollaborator

  func logEvent(_ event: String) async throws -> Bool {
    try await log(event, nil)
  }

  func logEvent(_ event: String, identifier: String) async throws -> Bool {
    try await log(event, identifier)
  }

  private func log(_ event: String, _ identifier: String?) async throws -> Bool {
    try await own.answer {
      quillmar_collaborator_log_event(own.handle.pointer, event, identifier, $0) {
        LibraryCollaborator.resume($0, $1, $2)
      }
    }
  }
}

struct LibraryTrackingManager: ConversionTrackingManagerProtocol {
  let own: LibraryCollaborator

  func send(
    conversionValue: ConversionValues.ConversionValue, for window: ConversionValues.Window, forceLockWindow: Bool
  ) {
    if let json = try? JSONEncoder().encode(conversionValue),
      let index = ConversionValues.Window.allCases.firstIndex(of: window)
    {
      quillmar_collaborator_send(
        own.handle.pointer, String(decoding: json, as: UTF8.self), Int32(index), forceLockWindow)
    }
  }
}
