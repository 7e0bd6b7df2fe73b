# To be sourced after build.sh. What the framework for Apple systems has beside the binary.

# framework_layout FOLDER PLATFORM: puts headers, module map and property list into FOLDER/CQuillmar.framework. PLATFORM
# is iPhoneOS or iPhoneSimulator.
framework_layout() {
  local framework="$1/CQuillmar.framework" version
  version="$(sed -nE 's/^project\(quillmar VERSION ([0-9.]+).*/\1/p' "$repository/CMakeLists.txt")"
  rm -rf "$framework"
  mkdir -p "$framework/Headers" "$framework/Modules"
  # A framework's headers are in one folder, and find each other by the framework's name.
  sed 's|#include "quillmar/Export.h"|#include <CQuillmar/Export.h>|' "$repository/include/quillmar/c/quillmar.h" \
    >"$framework/Headers/quillmar.h"
  cp "$repository/include/quillmar/Export.h" "$framework/Headers/"
  cat >"$framework/Modules/module.modulemap" <<MAP
framework module CQuillmar {
  header "quillmar.h"
  header "Export.h"
  export *
}
MAP
  cat >"$framework/Info.plist" <<PLIST
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
  <key>CFBundleDevelopmentRegion</key><string>en</string>
  <key>CFBundleExecutable</key><string>CQuillmar</string>
  <key>CFBundleIdentifier</key><string>tech.quill-mar.CQuillmar</string>
  <key>CFBundleInfoDictionaryVersion</key><string>6.0</string>
  <key>CFBundleName</key><string>CQuillmar</string>
  <key>CFBundlePackageType</key><string>FMWK</string>
  <key>CFBundleShortVersionString</key><string>$version</string>
  <key>CFBundleVersion</key><string>$version</string>
  <key>CFBundleSupportedPlatforms</key><array><string>$2</string></array>
  <key>MinimumOSVersion</key><string>13.0</string>
</dict>
</plist>
PLIST
}
