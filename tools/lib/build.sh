# To be sourced. Configuring and building; everything below build/.

repository="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

# configure_build NAME [CMAKE OPTION...]: configures build/NAME with clang.
configure_build() {
  local name="$1" launcher=()
  shift
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    export CCACHE_SLOPPINESS=pch_defines,time_macros  # it leaves precompiled headers alone otherwise
  fi
  cmake -S "$repository" -B "$repository/build/$name" -G Ninja -DCMAKE_CXX_COMPILER=clang++-19 "${launcher[@]}" "$@"
}

# build_targets NAME [TARGET...]: builds them, or all, with QUILLMAR_JOBS jobs (default: one a processor).
build_targets() {
  local name="$1"
  shift
  cmake --build "$repository/build/$name" --parallel "${QUILLMAR_JOBS:-$(nproc)}" --target "${@:-all}"
}
