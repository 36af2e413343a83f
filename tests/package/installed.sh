#!/bin/sh
# Installs the library, moves what was installed, and builds and runs hosts against it by CMake and
# by pkg-config. The variables come from the test's environment.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/package/expect_files.sh
. "$here/expect_files.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$CMAKE_COMMAND" --install "$BUILD" --prefix "$work/first" >install.txt
mv "$work/first" "$work/moved"

# Nothing that was installed names a place of the build or the place before the move.
if grep -rIl -e "$BUILD" -e "$SOURCE" -e "$work/first" moved; then
  echo "the files above name folders of this machine" >&2
  exit 1
fi

# By find_package: the examples as a project of their own, and a host of the kit.
"$CMAKE_COMMAND" -S "$SOURCE/examples" -B examples -DCMAKE_PREFIX_PATH="$work/moved" >configure.txt
"$CMAKE_COMMAND" --build examples --parallel "$(nproc)" >build.txt || { cat build.txt; exit 1; }
expect_files examples/in_memory
if [ "$KIT" -eq 1 ]; then
  expect_files examples/quick_start
  examples/tal --version
  "$CMAKE_COMMAND" -S "$here/installed" -B host -DCMAKE_PREFIX_PATH="$work/moved" >configure.txt
  "$CMAKE_COMMAND" --build host >build.txt || { cat build.txt; exit 1; }
  host/kit_host from_cmake
fi

# By pkg-config; its hosts say themselves where the libraries are at run time.
PKG_CONFIG_PATH=$(dirname "$(find "$work/moved" -name talvcs.pc)")
libraries=$(dirname "$PKG_CONFIG_PATH")
export PKG_CONFIG_PATH

# build_by_pkg_config MODULE SOURCE PROGRAM
build_by_pkg_config() {
  # shellcheck disable=SC2046  # flags are words
  "$CXX" -std=c++20 "$2" -o "$3" $("$PKG_CONFIG" --cflags --libs "$1") -Wl,-rpath,"$libraries"
}

build_by_pkg_config talvcs "$SOURCE/examples/in_memory.cpp" in_memory
expect_files ./in_memory

if [ "$KIT" -eq 1 ]; then
  build_by_pkg_config talvcs-kit "$here/installed/kit_host.cpp" kit_host
  ./kit_host from_pkg_config
fi
