#!/usr/bin/env bash
# Installs the library into a scratch folder and lets a host that knows nothing but the package find, link and run it:
# C++17 with g++, and with clang. Arguments: the build folder, the example's folder.
set -euo pipefail
build="$1"
example="$2"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
cmake --install "$build" --prefix "$scratch/prefix" >/dev/null
for compiler in g++ clang++-19; do
  cmake -S "$example" -B "$scratch/$compiler" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
  cmake --build "$scratch/$compiler"
  # Nothing answers there: the host learns that nothing was delivered, and its install is recorded.
  status=0
  XDG_DATA_HOME="$scratch/data-$compiler" "$scratch/$compiler/embedding" http://127.0.0.1:1 || status=$?
  ((status == 1))
  test -s "$scratch/data-$compiler/quillmar/settings/tech.quill-mar.quillmaruserdefaults.sqlite"
  "$scratch/$compiler/host-test"
  echo "$compiler: the host found, linked and ran the library"
done

# A host with adapters of its own sees every public header, and needs neither libcurl nor SQLite.
find "$scratch/prefix/include" -name '*.h' -printf '#include <%P>\n' >"$scratch/all.h"
g++ -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Werror -I "$scratch/prefix/include" -include "$scratch/all.h" \
  -o "$scratch/own-adapters" "$(dirname "$0")/OwnAdapters.cpp" \
  "$scratch/prefix/lib/libquillmar_simulated.a" "$scratch/prefix/lib/libquillmar.a" -pthread
"$scratch/own-adapters"
