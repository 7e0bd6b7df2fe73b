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
  in_swift swift "$command" --scratch-path "build/swift${swift_scratch:-}" --jobs 1 -Xswiftc -warnings-as-errors -Xcc -I/quillmar/include \
    -Xlinker "-L/quillmar/build/$swift_library" -Xlinker "-rpath=/quillmar/build/$swift_library" "$@"
}
