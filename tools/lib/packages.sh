# To be sourced. What the build needs on Debian 12.

build_packages=(clang-19 libclang-rt-19-dev lld-19 cmake ninja-build libboost1.81-dev libcurl4-openssl-dev libssl-dev
  libsqlite3-dev libfmt-dev libcli11-dev libgtest-dev libgmock-dev libicu-dev tzdata g++ openssl python3)
libcxx_packages=(libc++-19-dev libc++abi-19-dev googletest)
check_packages=(clang-format-19 clang-tidy-19)
apple_packages=(libc++-19-dev musl-dev llvm-19)  # tools/check apple
gnustep_packages=(libgnustep-base-dev libblocksruntime-dev)  # the adapters for Apple systems run on it

# install_packages PACKAGE...: installs those that are missing; asks the package server for nothing when none is.
install_packages() {
  local package missing=() root=()
  for package in "$@"; do
    if [[ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]]; then
      missing+=("$package")
    fi
  done
  if ((${#missing[@]} == 0)); then
    return 0
  fi
  if ((EUID != 0)); then
    root=(sudo)
  fi
  echo "Installing ${missing[*]}" >&2
  "${root[@]}" apt-get update >&2 &&
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}" >&2
}

# unpack_package PACKAGE FOLDER: unpacks what cannot be installed next to the packages above, once.
unpack_package() {
  local download
  if [[ -d "$2" ]]; then
    return 0
  fi
  download="$(mktemp -d)"
  chmod 755 "$download"  # for the user that apt downloads as
  (cd "$download" && (apt-get download "$1" || (apt-get update && apt-get download "$1"))) >&2
  dpkg -x "$download"/*.deb "$2.new"
  mv "$2.new" "$2"
  rm -r "$download"
}
