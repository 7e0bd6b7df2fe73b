# To be sourced. Compiles the library for iOS with hand-written headers in place of Apple's SDK, and looks at the result.
# What that can and cannot show: docs/apple.md.

apple_target=arm64-apple-ios13.0
apple_llvm=/usr/lib/llvm-19

# The interfaces that Apple wants a reason for, as symbols or selectors in the objects, and their categories.
declare -A apple_reasoned=(
  ['_OBJC_CLASS_$_NSUserDefaults']=UserDefaults
  [_stat]=FileTimestamp [_fstat]=FileTimestamp [_lstat]=FileTimestamp [_fstatat]=FileTimestamp
  [_getattrlist]=FileTimestamp [_getattrlistbulk]=FileTimestamp [_fgetattrlist]=FileTimestamp
  ['_NSFileModificationDate']=FileTimestamp ['_NSFileCreationDate']=FileTimestamp
  ['_NSURLContentModificationDateKey']=FileTimestamp ['_NSURLCreationDateKey']=FileTimestamp
  [fileModificationDate]=FileTimestamp
  [_mach_absolute_time]=SystemBootTime [systemUptime]=SystemBootTime
  [_statfs]=DiskSpace [_fstatfs]=DiskSpace [_statvfs]=DiskSpace [_fstatvfs]=DiskSpace
  ['_NSFileSystemFreeSize']=DiskSpace ['_NSFileSystemSize']=DiskSpace
  ['_NSURLVolumeAvailableCapacityKey']=DiskSpace
  [activeInputModes]=ActiveKeyboards
)
# The reasons that were decided on. Another one wants a decision, and a line here.
declare -A apple_decided=(
  [UserDefaults]=CA92.1    # read and written by the app itself
  [FileTimestamp]=C617.1   # files in the app's own container
)

# apple_headers FOLDER: the headers that are not in the repository.
apple_headers() {
  mkdir -p "$1/libcxx" "$1/dependencies"
  # The configuration of Apple's own standard library: what is newer than the target is refused.
  grep -v NO_VENDOR_AVAILABILITY "$apple_llvm/include/c++/v1/__config_site" >"$1/libcxx/__config_site"
  ln -sfn /usr/include/boost "$1/dependencies/boost"
  ln -sfn /usr/include/fmt "$1/dependencies/fmt"
  ln -sfn /usr/include/sqlite3.h "$1/dependencies/sqlite3.h"
}

# apple_compile FOLDER SOURCE...: compiles to objects in FOLDER.
apple_compile() {
  local folder="$1" launcher=()
  shift
  if command -v ccache >/dev/null; then
    launcher=(ccache)
  fi
  apple_headers "$folder"
  rm -rf "$folder/objects"
  mkdir -p "$folder/objects"
  local flags=(-target "$apple_target" -std=c++20 -O1 -fvisibility=hidden -fvisibility-inlines-hidden
    -nostdinc++ -nostdlibinc -isystem "$folder/libcxx" -isystem "$apple_llvm/include/c++/v1"
    -isystem tests/apple/stand-ins -isystem /usr/include/x86_64-linux-musl -isystem "$folder/dependencies"
    -D_BSD_SOURCE -D_XOPEN_SOURCE=700 -DFMT_HEADER_ONLY=1 -DQUILLMAR_SERVICE_URL=\"https://service.example\"
    -DQUILLMAR_ATTRIBUTION_URL=\"https://attribution.example\" -Iinclude -ISources
    -Wall -Wextra -Wunguarded-availability -Werror)
  printf '%s\n' "$@" | FLAGS="$(printf '%q ' "${launcher[@]}" clang++-19 "${flags[@]}")" OBJECTS="$folder/objects" \
    xargs -P "${QUILLMAR_JOBS:-$(nproc)}" -I{} bash -c '
      object="$OBJECTS/$(tr / _ <<<"{}").o"
      language=()
      [[ "{}" != *.mm ]] || language=(-x objective-c++ -fobjc-arc -fblocks)
      eval "$FLAGS" "${language[@]}" -c "{}" -o "$object"'
}

# apple_link FOLDER: an archive and a shared library of the objects. The names that it would export without a list go to
# FOLDER/exports.txt, but for what Boost's headers make visible, which the list keeps in.
apple_link() {
  llvm-libtool-darwin-19 -static -D -o "$1/libquillmar.a" "$1"/objects/*.o &&
    ld64.lld-19 -arch arm64 -platform_version ios 13.0 17.0 -dylib -undefined dynamic_lookup -all_load -dead_strip \
      -o "$1/libquillmar.dylib" "$1/libquillmar.a" &&
    llvm-nm-19 --extern-only --defined-only --just-symbol-name "$1/libquillmar.dylib" | grep -v boost | LC_ALL=C sort \
      >"$1/exports.txt"
}

# apple_privacy FOLDER MANIFEST: prints what of the manifest does not fit the objects.
apple_privacy() {
  local name category reason
  local -A used=() declared=()
  while IFS= read -r name; do
    category="${apple_reasoned[${name:-none}]:-}"
    [[ -z "$category" ]] || used[$category]+=" $name"
  done < <({
    llvm-nm-19 --undefined-only --just-symbol-name "$1"/objects/*.o
    llvm-strings-19 --all "$1"/objects/*.mm.o
  } | sort -u)
  while read -r category reason; do
    declared[$category]="$reason"
  done < <(tr -d '\n\t' <"$2" | grep -oE 'NSPrivacyAccessedAPICategory[A-Za-z]+</string><key>NSPrivacyAccessedAPITypeReasons</key><array>(<string>[^<]*</string>)*' |
    sed -E 's/NSPrivacyAccessedAPICategory([A-Za-z]+).*<array>/\1 /; s/<\/?string>/ /g; s/ +/ /g; s/ $//')
  for category in "${!used[@]}"; do
    [[ -n "${declared[$category]+there}" ]] ||
      echo "$2: the library uses${used[$category]}, of $category, and does not declare it"
  done
  for category in "${!declared[@]}"; do
    [[ -n "${used[$category]+there}" ]] || echo "$2: $category is declared, and nothing uses it"
    [[ "${declared[$category]}" == "${apple_decided[$category]:-}" ]] ||
      echo "$2: nobody decided on the reason ${declared[$category]} for $category"
  done
}
