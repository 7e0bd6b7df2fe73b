import CQuillmar
import Foundation
import StoreKit

/// Has the library listen to StoreKit's subscription updates from iOS 15. On earlier systems none come.
func installSubscriptionUpdates(on platform: Handle) {
  guard #available(iOS 15.0, *) else { return }
  var updates = quillmar_subscription_updates()
  updates.size = MemoryLayout.size(ofValue: updates)
  updates.subscribe = { _, listener in
    let listener = Handle(listener)
    let task = Task(priority: .utility) {
      for await status in Product.SubscriptionInfo.Status.updates {
        if Task.isCancelled { break }
        post(status, to: listener)
      }
      quillmar_subscription_listener_end(listener.pointer)
      quillmar_subscription_listener_release(listener.pointer)
    }
    return Unmanaged.passRetained(Subscription(task)).toOpaque()
  }
  updates.unsubscribe = { _, subscription in
    subscription.map { Unmanaged<Subscription>.fromOpaque($0).takeRetainedValue().task.cancel() }
  }
  quillmar_platform_set_subscription_updates(platform.pointer, &updates)
}

private final class Subscription: Sendable {
  let task: Task<Void, Never>
  init(_ task: Task<Void, Never>) { self.task = task }
}

/// Passes an update on with what the platform said about its signatures. The library drops one that is not verified.
@available(iOS 15.0, *)
private func post(_ status: Product.SubscriptionInfo.Status, to listener: Handle) {
  let transaction = opened(status.transaction)
  let renewalInfo = opened(status.renewalInfo)
  let texts = [
    String(decoding: transaction.value.jsonRepresentation, as: UTF8.self), transaction.error,
    String(decoding: renewalInfo.value.jsonRepresentation, as: UTF8.self), renewalInfo.error,
  ].map { $0.flatMap { strdup($0) } }
  defer { texts.forEach { free($0) } }
  var update = quillmar_subscription_update()
  update.size = MemoryLayout.size(ofValue: update)
  update.transaction_identifier = transaction.value.id
  update.transaction_json = UnsafePointer(texts[0])
  update.transaction_error = UnsafePointer(texts[1])
  update.renewal_info_json = UnsafePointer(texts[2])
  update.renewal_info_error = UnsafePointer(texts[3])
  update.renewal_state = Int64(status.state.rawValue)
  quillmar_subscription_listener_post(listener.pointer, &update)
}

@available(iOS 15.0, *)
private func opened<Signed>(_ result: VerificationResult<Signed>) -> (value: Signed, error: String?) {
  switch result {
  case .verified(let value): return (value, nil)
  case .unverified(let value, let error): return (value, error.localizedDescription)
  }
}
