import Quillmar
import SwiftUI

/// Sends events, and shows what has become of them.
struct EventsView: View {
  @State private var revenue = "9.99"
  @State private var isTracking = false
  @State private var state = Quillmar.shared.state
  @State private var statistics = Quillmar.shared.statistics
  /// What the rules gave last, and what the ad network answered, as the log tells it.
  @State private var lastValues: [String] = []
  @State private var log: [String] = []

  var body: some View {
    List {
      Section("Events") {
        Button("session") { send("session") }
        Button("view_item") { send("view_item") }
        TextField("Revenue", text: $revenue)
        Button("purchase") { send("purchase", revenue: Double(revenue)) }
        Toggle("Search-ads attribution", isOn: $isTracking)
      }
      Section("State") {
        Text("Window: \(state.window.map { String($0) } ?? "over")")
        Text("App: \(state.appId ?? "unknown")")
        Text(
          "Switched on: \(state.isEnabled ? "yes" : "no"), key valid: \(state.isVerificationKeyValid ? "yes" : "no")")
        Text("Sent \(statistics.sent), logged \(statistics.logged), failed \(statistics.failed)")
        Button("Reset") { Quillmar.shared.reset() }
      }
      Section("Last values") {
        ForEach(lastValues, id: \.self) { Text($0) }
      }
      Section("Log") {
        ForEach(log.indices, id: \.self) { Text(log[$0]) }
      }
    }
    .onChange(of: isTracking) { isOn in
      if isOn {
        QuillmarASAAttribution.shared.enableASAAttributionTracking()
      } else {
        QuillmarASAAttribution.shared.disableASAAttributionTracking()
      }
    }
    .task { await follow() }
  }

  private func send(_ event: String, revenue: Double? = nil) {
    Quillmar.shared.sendEvent(event: event, params: revenue.map { [.revenue: $0] })
  }

  /// Starts the library once its log is listened to, and goes on until the screen goes.
  private func follow() async {
    let lines = Quillmar.logLines
    Quillmar.shared.logLevel = .debug
    Quillmar.shared.configure("sample-key")
    for await line in lines {
      log.insert(line.text, at: 0)
      log = Array(log.prefix(200))
      if line.text.contains("Resolved conversion value") || line.text.contains("Attribution:") {
        lastValues = [line.text] + lastValues.prefix(4)
      }
      statistics = Quillmar.shared.statistics
      state = await Task.detached { Quillmar.shared.state }.value
    }
  }
}
