import CQuillmar
import Foundation

/// Where the service's configuration enters the library and is kept.
public protocol ConversionValuesRepositoryProtocol: Sendable {
  /// Fetches the configuration and stores it. What is thrown counts as a failed attempt; there are three.
  func fetchAndSaveConversionValues() async throws

  /// The stored document. Called in the background, for each event; may block on the disk. Throws when there is none.
  func fetchAllConversionValues() throws -> ConversionValues
}

/// Keeps the key that the event service knows the app by. Called on any thread; may block on the disk.
public protocol VerificationKeyRepositoryProtocol: Sendable {
  /// The stored key.
  func fetchVerificationKey() -> String?

  /// Stores the key in place of the one before.
  func save(verificationKey: String)
}

/// Logs events to the service. Calls may overtake each other.
public protocol EventServerLogRepositoryProtocol: Sendable {
  /// Logs one event. False when the service has switched the library off and was not asked. What is thrown counts
  /// against the key; with `QuillmarOptions.reliableDelivery` it does not, and the event is logged again later.
  @discardableResult
  func logEvent(_ event: String) async throws -> Bool

  /// The same under an identifier, by which the service knows an event that it gets twice. Called with
  /// `QuillmarOptions.reliableDelivery`. The standard implementation leaves the identifier aside.
  @discardableResult
  func logEvent(_ event: String, identifier: String) async throws -> Bool
}

extension EventServerLogRepositoryProtocol {
  public func logEvent(_ event: String, identifier: String) async throws -> Bool {
    try await logEvent(event)
  }
}

/// Reports conversion values to the platform.
public protocol ConversionTrackingManagerProtocol: Sendable {
  /// Starts an update with what `conversionValue` has for `window`, and returns without waiting for the platform's
  /// answer. It is not asynchronous, so that no update overtakes another: the last one counts. Called on the main
  /// queue, one call at a time; must not block.
  func send(
    conversionValue: ConversionValues.ConversionValue, for window: ConversionValues.Window, forceLockWindow: Bool)
}

/// What went wrong in the library's own collaborator.
public struct CollaboratorError: LocalizedError, Equatable, Sendable {
  /// In words.
  public let errorDescription: String?
}

/// The collaborators of an instance, which a test may replace. The repositories are nil until `configure` has built them
/// in the background, and each `configure` builds them anew: wait for it with `drain` before you set them. Each property
/// gives the object that was set, or one that stands for the library's own. That one can be called and put back, also
/// while another takes its place.
extension Quillmar {
  /// Where the service's configuration enters the library and is kept.
  public var conversionValuesRepository: (any ConversionValuesRepositoryProtocol)? {
    get { collaborator(QUILLMAR_CONVERSION_VALUES_REPOSITORY) { LibraryConversionValues(own: $0) } }
    set {
      put(newValue, (newValue as? LibraryConversionValues)?.own) { context in
        guard let context else { return quillmar_set_conversion_values_repository(handle.pointer, nil) }
        var table = conversionValuesTable(context)
        return quillmar_set_conversion_values_repository(handle.pointer, &table)
      }
    }
  }

  /// Keeps the key. `configure` saves the key with the repository that it builds; another one serves whoever asks for it
  /// here.
  public var verificationKeyRepository: (any VerificationKeyRepositoryProtocol)? {
    get { collaborator(QUILLMAR_VERIFICATION_KEY_REPOSITORY) { LibraryVerificationKey(own: $0) } }
    set {
      put(newValue, (newValue as? LibraryVerificationKey)?.own) { context in
        guard let context else { return quillmar_set_verification_key_repository(handle.pointer, nil) }
        var table = verificationKeyTable(context)
        return quillmar_set_verification_key_repository(handle.pointer, &table)
      }
    }
  }

  /// Logs events to the service.
  public var eventServerLogRepository: (any EventServerLogRepositoryProtocol)? {
    get { collaborator(QUILLMAR_EVENT_SERVER_LOG_REPOSITORY) { LibraryEventServerLog(own: $0) } }
    set {
      put(newValue, (newValue as? LibraryEventServerLog)?.own) { context in
        guard let context else { return quillmar_set_event_server_log_repository(handle.pointer, nil) }
        var table = eventServerLogTable(context)
        return quillmar_set_event_server_log_repository(handle.pointer, &table)
      }
    }
  }

  /// Reports conversion values to the platform. There from the beginning.
  public var conversionTrackingManager: (any ConversionTrackingManagerProtocol)? {
    get { collaborator(QUILLMAR_CONVERSION_TRACKING_MANAGER) { LibraryTrackingManager(own: $0) } }
    set {
      put(newValue, (newValue as? LibraryTrackingManager)?.own) { context in
        guard let context else { return quillmar_set_conversion_tracking_manager(handle.pointer, nil) }
        var table = trackingManagerTable(context)
        return quillmar_set_conversion_tracking_manager(handle.pointer, &table)
      }
    }
  }

  private func collaborator<Collaborator: Sendable>(
    _ kind: some BinaryInteger, _ standIn: (LibraryCollaborator) -> Collaborator
  ) -> Collaborator? {
    guard let present = quillmar_get_collaborator(handle.pointer, quillmar_collaborator_kind(kind)) else { return nil }
    let own = LibraryCollaborator(present)
    guard let context = quillmar_collaborator_context(present, releaseCollaborator) else { return standIn(own) }
    return withExtendedLifetime(own) { object(at: context, as: Box<Collaborator>.self)?.value }
  }

  /// `set` gets the context of a table, or nil for none.
  private func put<Collaborator: Sendable>(
    _ collaborator: Collaborator?, _ own: LibraryCollaborator?,
    _ set: (UnsafeMutableRawPointer?) -> quillmar_status
  ) {
    if let own {
      quillmar_set_collaborator(handle.pointer, own.handle.pointer)
    } else if let collaborator {
      register(Box(collaborator), set)
    } else {
      _ = set(nil)
    }
  }
}
