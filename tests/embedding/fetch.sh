#!/usr/bin/env bash
# Builds, runs and installs a host that takes the library's sources into its own build. Arguments: the build folder, in
# which it stays, so that only the first run compiles the library; and what calls the compiler (ccache), if anything.
set -euo pipefail
folder="$1/fetching"
cmake -S "$(dirname "$0")/fetching" -B "$folder" -G Ninja -DCMAKE_CXX_COMPILER=clang++-19 -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_FLAGS_DEBUG=-O0 -DCMAKE_CXX_COMPILER_LAUNCHER="$2" -DQUILLMAR_PRECOMPILE=ON >/dev/null
cmake --build "$folder" --parallel "${QUILLMAR_JOBS:-$(nproc)}" --target fetching
"$folder/fetching"
rm -rf "$folder/installed"
cmake --install "$folder" --prefix "$folder/installed" >/dev/null
[[ "$(cd "$folder/installed" && find . -type f)" == ./bin/fetching ]] || {
  echo "The library is installed with the host" >&2
  exit 1
}
