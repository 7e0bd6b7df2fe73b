import Quillmar
import SwiftUI

@main
struct SampleApp: App {
  init() {
    // The service that `quillmar serve` starts on the Mac is reached from the simulator at this address.
    var options = QuillmarPlatformOptions()
    options.serviceUrl = "http://127.0.0.1:8080"
    QuillmarPlatform(options).useForSharedInstances()
  }

  var body: some Scene {
    WindowGroup {
      EventsView()
    }
  }
}
