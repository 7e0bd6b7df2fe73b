/// The instance of the app of a public class, made over the shared platform at its first use.
final class SharedInstance<Instance: Sendable>: Sendable {
  private let current = Locked<Instance?>(nil)
  private let make: @Sendable () -> Instance
  private let tell: @Sendable (Instance?) -> Void

  /// `tell` makes an instance that of the C interface, too.
  init(make: @escaping @Sendable () -> Instance, tell: @escaping @Sendable (Instance?) -> Void) {
    self.make = make
    self.tell = tell
  }

  var instance: Instance {
    current.with {
      if let instance = $0 {
        return instance
      }
      QuillmarPlatform.chooseForSharedInstances()
      let made = make()
      $0 = made
      return made
    }
  }

  func set(_ instance: Instance?) {
    // The one before goes outside the lock: with it goes what the app has set.
    _ = current.with { current -> Instance? in
      tell(instance)
      defer { current = instance }
      return current
    }
  }
}
