#!/usr/bin/env bash
# Installs the library into a scratch folder and lets hosts that know nothing but the package find, link and run it:
# C++17 with g++ and with clang, by CMake and by pkg-config; C; Python. Arguments: the build folder, the examples' folder.
set -euo pipefail
here="$(dirname "$0")"
source "$here/../../tools/lib/packages.sh"
build="$1"
examples="$2"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
install_packages pkgconf groff-base
cmake --install "$build" --prefix "$scratch/elsewhere" >/dev/null
mv "$scratch/elsewhere" "$scratch/prefix"  # an installed package may be moved
library="$scratch/prefix/lib"

# Nothing answers there: the host learns that nothing was delivered, and its install is recorded.
passes() {
  local status=0
  XDG_DATA_HOME="$1-data" "$1" http://127.0.0.1:1 || status=$?
  ((status == 1))
  test -s "$1-data/quillmar/settings/tech.quill-mar.quillmaruserdefaults.sqlite"
}

for compiler in g++ clang++-19; do
  cmake -S "$examples/embedding" -B "$scratch/$compiler" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_PREFIX_PATH="$scratch/prefix" >/dev/null
  cmake --build "$scratch/$compiler"
  passes "$scratch/$compiler/embedding"
  "$scratch/$compiler/host-test"
  echo "$compiler: the host found, linked and ran the library"
done

# $1: a name; the rest: options for pkg-config.
with_pkg_config() {
  local flags
  flags="$(PKG_CONFIG_PATH="$library/pkgconfig" pkg-config --cflags --libs "${@:2}" quillmar)"
  # shellcheck disable=SC2086 # several arguments
  g++ -Wl,-rpath,"$library" -o "$scratch/$1" "$examples/embedding/main.cpp" $flags
  passes "$scratch/$1"
}
with_pkg_config shared &  # each waits for ten seconds
with_pkg_config static --static --define-variable=library=:libquillmar.a
wait "$!"
readelf -d "$scratch/shared" | grep 'NEEDED.*libquillmar' >/dev/null
! readelf -d "$scratch/static" | grep 'NEEDED.*libquillmar' || exit 1

# The installed command, with a manual page and a completion that know its options.
quillmar="$scratch/prefix/bin/quillmar"
options() {
  sed -nE 's/^ +(-h, ?)?(--[a-z-]+)( .*|$)/\2/p'
}
completions() {
  COMP_WORDS=("$quillmar" "$@")
  COMP_CWORD=$#
  _quillmar "$quillmar"
  printf '%s\n' "${COMPREPLY[@]}"
}
help="$(for command in "" run simulate check inspect serve; do "$quillmar" $command --help; done | grep '^  -' | options)"
groff -man -Tascii -ww -P-cbou "$scratch/prefix/share/man/man1/quillmar.1" >"$scratch/manual" 2>"$scratch/warnings"
diff "$scratch/warnings" /dev/null
diff <(echo "$help") <(grep -E '^ {7}-' "$scratch/manual" | options)
source "$scratch/prefix/share/bash-completion/completions/quillmar"
diff <("$quillmar" serve --help | grep '^  -' | options) <(completions serve --)
[[ "$(completions run --log-level = d)" == debug ]]

# A host with adapters of its own sees every public header, and needs neither libcurl nor SQLite.
find "$scratch/prefix/include" -name '*.h' -printf '#include <%P>\n' >"$scratch/all.h"
host=(g++ -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Werror -I "$scratch/prefix/include" -pthread)
"${host[@]}" -include "$scratch/all.h" -o "$scratch/own-adapters" "$here/OwnAdapters.cpp" \
  "$library/libquillmar_simulated.a" "$library/libquillmar.a" -Wl,--gc-sections
"$scratch/own-adapters"

# Through the C interface, with a service that accepts the events.
exec {served}< <(exec "$quillmar" serve)
serving=$!
trap 'kill "$serving"; rm -rf "$scratch"' EXIT
read -r line <&"$served"
service="$(sed 's/^{"listening":"\(.*\)"}$/\1/' <<<"$line")"
in_c=("$examples/c/host.c" -pedantic -Wall -Wextra -Werror -I "$scratch/prefix/include" -o)
gcc -std=c11 "${in_c[@]}" "$scratch/c-static" "$library/libquillmar.a" -lcurl -lsqlite3 -lstdc++ -lm
gcc -std=c11 "${in_c[@]}" "$scratch/c-shared" -L"$library" -Wl,-rpath,"$library" -lquillmar
g++ -std=c++17 -x c++ "${in_c[@]}" "$scratch/c-plus-plus" -L"$library" -Wl,-rpath,"$library" -lquillmar
reports() {
  test "$("$@" "$service" "$(mktemp -d -p "$scratch")")" = "fine value 20, coarse value medium"
}
reports "$scratch/c-static"
reports "$scratch/c-shared"
reports "$scratch/c-plus-plus"
reports python3 "$examples/python/host.py" "$library/libquillmar.so"
echo "Hosts in C, C++ and Python reported events through the C interface"

# What is public is what the repository says. Which helpers of the standard library come with it is the compiler's choice.
nm -D --defined-only "$library/libquillmar.so" | awk '$3 !~ /^_ZSt/ {print $3}' | sort | diff "$here/exported-symbols.txt" - ||
  {
    echo "The shared library shows other symbols than tests/embedding/exported-symbols.txt says" >&2
    exit 1
  }

# What is not ours is nobody's: a host with another Boost and {fmt} keeps its own, and the library, too.
if nm -g --defined-only "$library"/*.a | grep -E ' [A-Zu] ' | grep -vE ' (_Z(NK?|T[ISV]N)8quillmar|quillmar_)'; then
  echo "The static libraries show the symbols above" >&2
  exit 1
fi
unpack_package libboost1.74-dev "$build/boost-1.74"
"${host[@]}" -Wno-pedantic -isystem "$build/boost-1.74/usr/include" -c -o "$scratch/own-boost.o" "$here/OwnBoost.cpp"
for linked in "$library/libquillmar.a -lcurl -lsqlite3" "-L$library -Wl,-rpath,$library -lquillmar"; do
  # shellcheck disable=SC2086 # several arguments
  g++ -pthread -o "$scratch/own-boost" "$scratch/own-boost.o" $linked
  for _ in {1..5}; do  # a mixture does not crash each time
    XDG_DATA_HOME="$scratch/data-own-boost" "$scratch/own-boost"
  done
done
