# To be sourced after packages.sh and build.sh. The Swift package: its toolchain, its tests, its type check.

# Debian 13 has a Swift compiler and Debian 12 has not. A small Debian 13 in a folder, made once (some 3 GB). Nothing but
# what is run with `in_swift` sees it.
swift_root="${QUILLMAR_SWIFT_TOOLCHAIN:-${XDG_CACHE_HOME:-$HOME/.cache}/quillmar/swift-toolchain}"
swift_packages=(swiftlang libc6-dev libstdc++-14-dev libcurl4t64 libsqlite3-0)

install_swift() {
  local mirror
  if [[ -e "$swift_root/ready" ]]; then
    return 0
  fi
  ((EUID == 0)) || { echo "tools/check swift: making the toolchain needs root" >&2; return 1; }
  install_packages debootstrap debian-archive-keyring
  mirror="$(apt-get indextargets --format '$(ORIGIN) $(SITE)' | sed -n 's/^Debian //p' | grep -v security | head -n 1)"
  rm -rf "${swift_root:?}"
  mkdir -p "$swift_root"
  debootstrap --variant=minbase --keyring=/usr/share/keyrings/debian-archive-trixie-stable.gpg trixie "$swift_root" \
    "$mirror" >&2 || return 1
  chroot "$swift_root" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y --no-install-recommends "${swift_packages[@]}" >&2 || return 1
  touch "$swift_root/ready"
}

# in_swift COMMAND...: runs it inside the toolchain's folder, which sees the repository as /quillmar and nothing else of
# the machine. Mounts are seen by the command alone, and end with it.
in_swift() {
  mkdir -p "$swift_root/quillmar"
  unshare --mount bash -c '
    mount --bind "$1" "$2/quillmar" && mount --rbind /proc "$2/proc" && mount --rbind /dev "$2/dev" &&
      cd / && exec chroot "$2" env -C /quillmar HOME=/root LC_ALL=C.UTF-8 "${@:3}"' - "$repository" "$swift_root" "$@"
}

# swift_package COMMAND [OPTION...]: the package manager, with the library from build/$swift_library.
swift_library=swift-library
swift_package() {
  local command="$1"
  shift
  in_swift swift "$command" --scratch-path "build/swift${swift_scratch:-}" --jobs 1 -Xswiftc -warnings-as-errors \
    -Xcc -I/quillmar/include -Xlinker "-L/quillmar/build/$swift_library" -Xlinker "-rpath=/quillmar/build/$swift_library" "$@"
}

# swift_frontend OPTION...: the compiler itself, for iOS 13. Its modules are in the toolchain's folder: the standard
# library, as the toolchain describes it in text, compiled for iOS.
swift_ios_target=x86_64-apple-ios13.0-simulator
swift_frontend() {
  in_swift /usr/libexec/swift/bin/swift-frontend -target "$swift_ios_target" "$@"
}

compile_swift_for_ios() {
  local module interface options
  if [[ -e "$swift_root/ios/ready" ]]; then
    return 0
  fi
  mkdir -p "$swift_root/ios"
  for module in Swift _Concurrency; do
    options=()
    [[ "$module" == Swift ]] || options=(-disable-availability-checking)
    interface="$swift_root/usr/libexec/swift/lib/swift_static/linux/$module.swiftmodule/x86_64-pc-linux-gnu.swiftinterface"
    sed -E "3s/-target [^ ]+/-target $swift_ios_target/; s/@backDeployed\([^)]*\) ?//" "$interface" \
      >"$swift_root/ios/$module.swiftinterface"
    swift_frontend -compile-module-from-interface -parse-stdlib -module-name "$module" -I /ios "${options[@]}" \
      "/ios/$module.swiftinterface" -o "/ios/$module.swiftmodule" || return 1
  done
  touch "$swift_root/ios/ready"
}

# check_for_ios NAME VERSION OPTION|SOURCE...: type-checks a module for iOS in a language mode, against the stand-ins and
# the framework's headers, and leaves it in build/ios.
check_for_ios() {
  local name="$1" version="$2"
  shift 2
  swift_frontend -emit-module -O -module-name "$name" -swift-version "$version" -warnings-as-errors -parse-as-library \
    -disable-objc-interop -disable-implicit-string-processing-module-import -I /ios -I build/ios \
    -F build/ios -Xcc -ffreestanding -Xcc -nostdlibinc \
    -o "build/ios/$name.swiftmodule" "$@"
}

# test_swift NAME [OPTION...]: all tests of the package, built apart under that name.
test_swift() {
  local log="$repository/build/swift-test-$1.log"
  swift_scratch="-$1"
  if ! swift_package test "${@:2}" >"$log" 2>&1; then
    grep -v '^\[Quillmar\]' "$log" >&2
    complain "tools/check: the Swift tests failed ($1); the log of the library is in $log"
  fi
}

check_swift() {
  local module version sources readme
  install_swift && compile_swift_for_ios || { complain "tools/check: no Swift toolchain"; return 0; }
  configure_build "$swift_library" -DCMAKE_BUILD_TYPE=Release -DQUILLMAR_BUILD_TESTS=OFF -DQUILLMAR_BUILD_TOOLS=OFF \
    >/dev/null
  build_targets "$swift_library" quillmar_shared

  in_swift swift format lint --strict --recursive Package.swift swift examples/ios ||
    complain "tools/check: run swift format on the files above"

  test_swift plain
  test_swift thread --sanitize thread
  # Without the search for leaks: Foundation's URL sessions leave some behind on Linux.
  ASAN_OPTIONS=detect_leaks=0 test_swift address --sanitize address

  framework_layout build/ios iPhoneSimulator
  python3 -c 'import plistlib, sys; [plistlib.load(open(name, "rb")) for name in sys.argv[1:]]' \
    build/ios/CQuillmar.framework/Info.plist examples/ios/Info.plist || complain "tools/check: a property list is broken"
  for module in Foundation os StoreKit AdAttributionKit SwiftUI; do
    check_for_ios "$module" 6 "swift/StandIns/$module/$module.swift" ||
      complain "tools/check: the stand-in $module does not compile for iOS"
  done
  mapfile -t sources < <(git ls-files -co --exclude-standard 'swift/Sources/Quillmar/*.swift')
  for version in 5 6; do
    check_for_ios Quillmar "$version" "${sources[@]}" && check_for_ios Quillmar "$version" -D DEBUG "${sources[@]}" ||
      complain "tools/check: the Swift package does not compile for iOS 13 in Swift $version"
  done
  mapfile -t sources < <(git ls-files -co --exclude-standard 'examples/ios/*.swift')
  readme=build/ios/README.swift
  sed -n '/^## On iOS$/,/^## /{/^```swift$/,/^```$/{/^```/!p}}' README.md >"$readme"
  [[ -s "$readme" ]] || complain "tools/check: README.md has no Swift in \"On iOS\""
  for version in 5 6; do
    swift_ios_target=x86_64-apple-ios15.0-simulator check_for_ios QuillmarSample "$version" "${sources[@]}" ||
      complain "tools/check: the sample app does not compile for iOS 15 in Swift $version"
    check_for_ios Readme "$version" "$readme" ||
      complain "tools/check: what README.md shows for iOS does not compile in Swift $version"
  done
}
