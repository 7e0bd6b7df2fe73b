import CQuillmar

#if canImport(AdAttributionKit)
  import AdAttributionKit

  /// Has AdAttributionKit called from iOS 18. Earlier systems lack what the library needs, and keep an adapter that says
  /// so.
  func installAdAttributionKit(on platform: Handle) {
    guard #available(iOS 18.0, *) else { return }
    register(PostbackQueue()) { context in
      var kit = quillmar_ad_attribution_kit()
      kit.size = MemoryLayout.size(ofValue: kit)
      kit.context = context
      kit.release = releaseContext
      kit.update_conversion_value = { pointer, fine, coarse, lock, completion in
        object(at: pointer, as: PostbackQueue.self)?.add(
          .init(fine: Int(fine), coarse: coarse, lock: lock, completion: Handle(completion)))
      }
      return quillmar_platform_set_ad_attribution_kit(platform.pointer, &kit)
    }
  }

  /// Sends updates one after the other, on the main actor: the system keeps the last that arrives, so none may overtake
  /// another.
  @available(iOS 18.0, *)
  final class PostbackQueue: Sendable {
    struct Update: Sendable {
      let fine: Int
      let coarse: quillmar_coarse_value
      let lock: Bool
      let completion: Handle
    }

    private let updates: AsyncStream<Update>.Continuation

    init() {
      let (stream, updates) = AsyncStream.makeStream(of: Update.self)
      self.updates = updates
      Task { @MainActor in
        for await update in stream {
          await Self.send(update)
        }
      }
    }

    deinit {
      updates.finish()  // what waits is still sent
    }

    func add(_ update: Update) {
      updates.yield(update)
    }

    @MainActor
    private static func send(_ update: Update) async {
      do {
        try await Postback.updateConversionValue(
          PostbackUpdate(
            fineConversionValue: update.fine, lockPostback: update.lock,
            coarseConversionValue: coarseValue(update.coarse)))
        quillmar_ad_network_completion_call(update.completion.pointer, nil)
      } catch {
        quillmar_ad_network_completion_call(update.completion.pointer, error.localizedDescription)
      }
    }

    private static func coarseValue(_ value: quillmar_coarse_value) -> CoarseConversionValue? {
      switch Int(value) {
      case Int(QUILLMAR_COARSE_HIGH): return .high
      case Int(QUILLMAR_COARSE_MEDIUM): return .medium
      case Int(QUILLMAR_COARSE_LOW): return .low
      default: return nil
      }
    }
  }
#else
  func installAdAttributionKit(on platform: Handle) {}
#endif
