/// The value of an event's parameter: `Bool`, an integer, `Double` or `String`. A value of another type does not
/// compile. An app that wants to pass a type of its own, or `Decimal`, says in an extension which of the four it is:
///
///     extension Decimal: EventValue {
///       public var parameterValue: EventParameterValue { .number(NSDecimalNumber(decimal: self).doubleValue) }
///     }
public protocol EventValue: Sendable {
  /// The value as it is handed to the library.
  var parameterValue: EventParameterValue { get }
}

/// What is handed to the library.
public enum EventParameterValue: Equatable, Sendable {
  case boolean(Bool)
  case integer(Int64)
  case number(Double)
  /// Ends at the first zero byte.
  case text(String)
}

extension Bool: EventValue {
  public var parameterValue: EventParameterValue { .boolean(self) }
}

extension Double: EventValue {
  public var parameterValue: EventParameterValue { .number(self) }
}

extension String: EventValue {
  public var parameterValue: EventParameterValue { .text(self) }
}

extension EventValue where Self: FixedWidthInteger {
  /// Beyond 64 bits with a sign, the nearest number.
  public var parameterValue: EventParameterValue { Int64(exactly: self).map { .integer($0) } ?? .number(Double(self)) }
}

extension Int: EventValue {}
extension Int8: EventValue {}
extension Int16: EventValue {}
extension Int32: EventValue {}
extension Int64: EventValue {}
extension UInt: EventValue {}
extension UInt8: EventValue {}
extension UInt16: EventValue {}
extension UInt32: EventValue {}
extension UInt64: EventValue {}
