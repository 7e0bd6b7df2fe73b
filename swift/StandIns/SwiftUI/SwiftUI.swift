// A stand-in; see ../README.md. Declarations only: nothing here is ever run. Only as much as the sample app uses, which
// is for iOS 15: no declaration says since when it is there.

@_exported import Foundation

@MainActor @preconcurrency public protocol View {
  associatedtype Body: View
  @ViewBuilder @MainActor var body: Body { get }
}

extension Never: View {
  public var body: Never { return fatalError() }
}

@resultBuilder public enum ViewBuilder {
  public static func buildBlock<each Content: View>(_ content: repeat each Content) -> Group { fatalError() }
}

@MainActor @preconcurrency public protocol Scene {
  associatedtype Body: Scene
  @MainActor var body: Body { get }
}
extension Never: Scene {}
public struct WindowGroup<Content: View>: Scene {
  public init(@ViewBuilder content: () -> Content) {}
  public var body: Never { return fatalError() }
}
@MainActor @preconcurrency public protocol App {
  associatedtype Body: Scene
  @MainActor var body: Body { get }
  @MainActor init()
}
extension App {
  @MainActor public static func main() { fatalError() }
}

@propertyWrapper public struct State<Value> {
  public init(wrappedValue: Value) {}
  public var wrappedValue: Value {
    get { fatalError() }
    nonmutating set { fatalError() }
  }
  public var projectedValue: Binding<Value> { fatalError() }
}
public struct Binding<Value> {}

/// Whatever a builder or a modifier gives, and all the views below.
public struct Group: View {
  public var body: Never { return fatalError() }
}
public typealias Text = Group
public typealias TextField = Group
public typealias Toggle = Group
public typealias List = Group
public typealias Section = Group
public typealias ForEach = Group
extension Group {
  public init(_ content: String) {}
  public init(_ title: String, text: Binding<String>) {}
  public init(_ title: String, isOn: Binding<Bool>) {}
  public init<Content: View>(@ViewBuilder content: () -> Content) {}
  public init<Content: View>(_ title: String, @ViewBuilder content: () -> Content) {}
  public init<Items: RandomAccessCollection, Id: Hashable, Content: View>(
    _ items: Items, id: KeyPath<Items.Element, Id>, @ViewBuilder content: @escaping (Items.Element) -> Content
  ) {}
}
public struct Button: View {
  public init(_ title: String, action: @escaping @MainActor () -> Void) {}
  public var body: Never { return fatalError() }
}

extension View {
  public func onChange<Value: Equatable>(of value: Value, perform action: @escaping (Value) -> Void) -> some View {
    Group()
  }
  public func task(_ action: @escaping @MainActor @Sendable () async -> Void) -> some View { Group() }
}
