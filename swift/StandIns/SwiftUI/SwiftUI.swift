// A stand-in; see ../README.md. Declarations only: nothing here is ever run. Only as much as the sample app uses.

@_exported import Foundation

@available(iOS 13.0, *)
@MainActor @preconcurrency public protocol View {
  associatedtype Body: View
  @ViewBuilder @MainActor var body: Body { get }
}

@available(iOS 13.0, *)
extension Never: View {
  public var body: Never { return fatalError() }
}

@available(iOS 13.0, *)
@resultBuilder public enum ViewBuilder {
  public static func buildBlock<each Content: View>(_ content: repeat each Content) -> Group { fatalError() }
}

/// Whatever a builder gives.
@available(iOS 13.0, *)
public struct Group: View {
  public var body: Never { return fatalError() }
}

@available(iOS 14.0, *)
@MainActor @preconcurrency public protocol Scene {
  associatedtype Body: Scene
  @SceneBuilder @MainActor var body: Body { get }
}
@available(iOS 14.0, *)
extension Never: Scene {}
@available(iOS 14.0, *)
@resultBuilder public enum SceneBuilder {
  public static func buildBlock<Content: Scene>(_ content: Content) -> Content { fatalError() }
}
@available(iOS 14.0, *)
public struct WindowGroup<Content: View>: Scene {
  public init(@ViewBuilder content: () -> Content) {}
  public var body: Never { return fatalError() }
}
@available(iOS 14.0, *)
@MainActor @preconcurrency public protocol App {
  associatedtype Body: Scene
  @SceneBuilder @MainActor var body: Body { get }
  @MainActor init()
}
@available(iOS 14.0, *)
extension App {
  @MainActor public static func main() { fatalError() }
}

@available(iOS 13.0, *)
@propertyWrapper public struct State<Value> {
  public init(wrappedValue: Value) {}
  public var wrappedValue: Value {
    get { fatalError() }
    nonmutating set { fatalError() }
  }
  public var projectedValue: Binding<Value> { fatalError() }
}
@available(iOS 13.0, *)
public struct Binding<Value> {}

@available(iOS 13.0, *)
public struct Text: View {
  public init(_ content: String) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct Button: View {
  public init(_ title: String, action: @escaping @MainActor () -> Void) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct TextField: View {
  public init(_ title: String, text: Binding<String>) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct Toggle: View {
  public init(_ title: String, isOn: Binding<Bool>) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct List: View {
  public init<Content: View>(@ViewBuilder content: () -> Content) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct Section: View {
  @available(iOS 15.0, *)
  public init<Content: View>(_ title: String, @ViewBuilder content: () -> Content) {}
  public var body: Never { return fatalError() }
}
@available(iOS 13.0, *)
public struct ForEach: View {
  public init<Items: RandomAccessCollection, Id: Hashable, Content: View>(
    _ items: Items, id: KeyPath<Items.Element, Id>, @ViewBuilder content: @escaping (Items.Element) -> Content
  ) {}
  public var body: Never { return fatalError() }
}

@available(iOS 13.0, *)
extension View {
  @available(iOS 14.0, *)
  public func onChange<Value: Equatable>(of value: Value, perform action: @escaping (Value) -> Void) -> some View {
    Group()
  }
  @available(iOS 15.0, *)
  public func task(_ action: @escaping @MainActor @Sendable () async -> Void) -> some View { Group() }
}
