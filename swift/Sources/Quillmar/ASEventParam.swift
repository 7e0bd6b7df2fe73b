/// The names of the parameters that an app may attach to an event.
public enum ASEventParam: String, CaseIterable, Sendable {
  /// What the event earned, in the currency of the conversion rules.
  case revenue

  /// The name as it is sent, which is also the raw value.
  public var key: String { rawValue }

  /// Replaces each key by its name. Values are kept as they are.
  public static func parameters(_ params: [ASEventParam: any EventValue]) -> [String: any EventValue] {
    Dictionary(uniqueKeysWithValues: params.map { ($0.key.key, $0.value) })
  }
}
