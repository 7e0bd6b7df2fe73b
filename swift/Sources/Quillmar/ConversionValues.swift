/// The conversion-values configuration: which fine and coarse value each set of events earns in each postback window,
/// and when the windows lock. As JSON it is what the library stores: the service's configuration without the members
/// about the app.
public struct ConversionValues: Codable, Hashable, Sendable {
  /// The three postback windows.
  public enum Window: String, CaseIterable, Codable, Sendable {
    case window0, window1, window2
  }

  /// From high to low.
  public enum CoarseValue: String, CaseIterable, Codable, Sendable {
    case high, medium, low
  }

  /// When a window locks.
  public enum LockWindowType: String, CaseIterable, Codable, Sendable {
    /// After a number of hours.
    case time
    /// Once the highest coarse value is reached.
    case high
  }

  /// A condition on the tracked events. The revenue counts only when both bounds are there.
  public struct RequiredEvent: Codable, Hashable, Sendable {
    public var name: String
    public var revenueMin: Double?
    public var revenueMax: Double?

    public init(name: String, revenueMin: Double? = nil, revenueMax: Double? = nil) {
      self.name = name
      self.revenueMin = revenueMin
      self.revenueMax = revenueMax
    }
  }

  /// A fine value, 0...63, and the events that earn it.
  public struct FineValue: Codable, Hashable, Sendable {
    public var value: Int
    public var requiredEvents: [RequiredEvent]

    public init(value: Int, requiredEvents: [RequiredEvent] = []) {
      self.value = value
      self.requiredEvents = requiredEvents
    }
  }

  /// A coarse value, and the events that earn it.
  public struct CoarseValueData: Codable, Hashable, Sendable {
    public var value: CoarseValue
    public var requiredEvents: [RequiredEvent]

    public init(value: CoarseValue, requiredEvents: [RequiredEvent] = []) {
      self.value = value
      self.requiredEvents = requiredEvents
    }
  }

  /// What a rule reports in one window: a fine value, a coarse value, both or neither.
  public struct WindowValue: Codable, Hashable, Sendable {
    public var fineValue: FineValue?
    public var coarseValue: CoarseValueData?

    public init(fineValue: FineValue? = nil, coarseValue: CoarseValueData? = nil) {
      self.fineValue = fineValue
      self.coarseValue = coarseValue
    }
  }

  /// One named rule.
  public struct ConversionValue: Codable, Hashable, Sendable {
    public var key: String
    /// By the raw value of the window; other names are kept, and ignored.
    public var windows: [String: WindowValue]

    public init(key: String, windows: [String: WindowValue]) {
      self.key = key
      self.windows = windows
    }
  }

  /// How a window is locked.
  public struct LockWindowConfiguration: Codable, Hashable, Sendable {
    public var type: LockWindowType
    /// Hours.
    public var value: Int?

    public init(type: LockWindowType, value: Int? = nil) {
      self.type = type
      self.value = value
    }
  }

  public var values: [ConversionValue]
  /// By the raw value of the window.
  public var lockWindows: [String: LockWindowConfiguration]

  public init(values: [ConversionValue], lockWindows: [String: LockWindowConfiguration] = [:]) {
    self.values = values
    self.lockWindows = lockWindows
  }
}
