import CQuillmar

/// Makes further instances beside `Quillmar.shared` and `QuillmarASAAttribution.shared`. They share the counters of
/// failures and the log with the others.
public enum QuillmarFactory {
  /// An instance over the library's own settings suite of that platform.
  public static func createQuillmar(platform: QuillmarPlatform) -> Quillmar {
    var instance: OpaquePointer?
    quillmar_create(platform.handle.pointer, &instance)
    return Quillmar(instance)
  }

  /// Search-ads attribution over the same.
  public static func createQuillmarASAAttribution(platform: QuillmarPlatform) -> QuillmarASAAttribution {
    var attribution: OpaquePointer?
    quillmar_attribution_create(platform.handle.pointer, &attribution)
    return QuillmarASAAttribution(attribution)
  }
}
