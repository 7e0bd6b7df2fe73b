import CQuillmar

/// What goes beyond the library's usual behaviour. All of it is off at first.
public struct QuillmarOptions: Equatable, Sendable {
  /// Keeps each event, and each purchase, on disk until the service has accepted it, over restarts too. What fails for a
  /// reason that passes is sent again, under the same identifier. An event counts for the conversion value when it
  /// happened, whether the service can be reached or not.
  public var reliableDelivery = false

  public init() {}

  var forC: quillmar_options {
    var options = quillmar_options()
    options.size = MemoryLayout.size(ofValue: options)
    options.reliable_delivery = reliableDelivery
    return options
  }
}
