// swift-tools-version: 6.0
import PackageDescription

// On Apple systems the library is the framework that tools/xcframework makes. On Linux, where the package is tested, it
// is the shared library that CMake builds, and Apple's modules are stand-ins.
#if os(Linux)
  let library: [Target] = [
    .systemLibrary(name: "CQuillmar", path: "swift/Sources/CQuillmar"),
    .target(name: "StoreKit", path: "swift/StandIns/StoreKit"),
    .target(name: "AdAttributionKit", path: "swift/StandIns/AdAttributionKit"),
  ]
#else
  let library: [Target] = [
    .binaryTarget(name: "CQuillmar", path: "build/xcframework/CQuillmar.xcframework")
  ]
#endif

let package = Package(
  name: "Quillmar",
  platforms: [.iOS(.v13)],
  products: [.library(name: "Quillmar", targets: ["Quillmar"])],
  targets: library + [
    .target(
      name: "Quillmar", dependencies: library.map { .byName(name: $0.name) }, path: "swift/Sources/Quillmar"),
    .testTarget(name: "QuillmarTests", dependencies: ["Quillmar"], path: "swift/Tests/QuillmarTests"),
  ],
  swiftLanguageModes: [.v6]
)
