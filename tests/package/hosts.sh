# shellcheck shell=sh disable=SC2153,SC2154
# Sourced by the tests of the package: builds hosts of the library and runs them. The variables come
# from the environment of the test, "here" from the test itself.

# expect_files PROGRAM: runs an example and compares the files that it lists.
expect_files() {
  printf 'hello.txt\nmain.txt\ntopic/new.txt\n' >expected.txt
  "$1" >printed.txt
  diff -u expected.txt printed.txt
  echo "$1 printed what it should"
}

# expect_saved PROGRAM [FILE]: runs the host of a store, in one file if it is given, which saves one
# object and prints its id.
expect_saved() {
  echo 8aec4e4876f854f688d0ebfc8f37598f38e5fd6903cccc850ca36591175aeb60 >expected.txt
  "$@" >printed.txt
  diff -u expected.txt printed.txt
  echo "$1 saved what it should"
}

# expect_unreachable PROGRAM: runs the host of a store on a server that isn't there.
expect_unreachable() {
  echo Unavailable >expected.txt
  "$1" >printed.txt
  diff -u expected.txt printed.txt
  echo "$1 printed what it should"
}

# build FOLDER [TARGET...]: builds what was configured there, or those targets of it, and prints what
# the compilers said if it fails.
build() {
  folder=$1
  shift
  "$CMAKE_COMMAND" --build "$folder" --parallel "$(nproc)" --target "${@:-all}" >build.txt ||
    { cat build.txt; exit 1; }
}

# expect_no_places FOLDER PLACE...: no file in FOLDER names one of the places.
expect_no_places() {
  folder=$1
  shift
  for place in "$@"; do
    if grep -rIl -e "$place" "$folder"; then
      echo "the files above name $place" >&2
      exit 1
    fi
  done
}

# expect_found PREFIX: find_package finds what is installed there, and a host of the kit works.
expect_found() {
  "$CMAKE_COMMAND" -S "$here/installed" -B found -DKIT="$KIT" -DSQLITE="$SQLITE" -DZIP="$ZIP" \
    -DENCRYPTION="$ENCRYPTION" -DPOSTGRES="$POSTGRES" \
    -DCMAKE_PREFIX_PATH="$1" >configure.txt
  build found
  expect_files found/in_memory
  [ "$KIT" -eq 0 ] || found/kit_host from_cmake
  [ "$SQLITE" -eq 0 ] || expect_saved found/sqlite_host from_cmake.tal
  [ "$POSTGRES" -eq 0 ] || expect_unreachable found/postgres_host
  [ "$ENCRYPTION" -eq 0 ] || expect_saved found/encryption_host
  [ "$ZIP" -eq 0 ] || expect_saved found/zip_host from_cmake.zip
}

# build_by_pkg_config MODULE SOURCE PROGRAM OPTION...: the options are those of pkg-config. Hosts say
# themselves where shared libraries are at run time.
build_by_pkg_config() {
  module=$1 source=$2 program=$3
  shift 3
  # shellcheck disable=SC2046  # flags are words
  "$CXX" -std=c++20 "$source" -o "$program" $("$PKG_CONFIG" "$@" --cflags --libs "$module") \
    -Wl,-rpath,"$(dirname "$PKG_CONFIG_PATH")"
}

# expect_modules PREFIX OPTION...: pkg-config, with the options, has the flags for hosts.
expect_modules() {
  PKG_CONFIG_PATH=$(dirname "$(find "$1" -name talvcs.pc)")
  export PKG_CONFIG_PATH
  shift
  build_by_pkg_config talvcs "$SOURCE/examples/in_memory.cpp" ./in_memory "$@"
  expect_files ./in_memory
  [ "$KIT" -eq 1 ] || return 0
  build_by_pkg_config talvcs-kit "$here/installed/kit_host.cpp" ./kit_host "$@"
  ./kit_host from_pkg_config
  if [ "$SQLITE" -eq 1 ]; then
    build_by_pkg_config talvcs-sqlite "$here/installed/sqlite_host.cpp" ./sqlite_host "$@"
    expect_saved ./sqlite_host from_pkg_config.tal
  fi
  if [ "$ENCRYPTION" -eq 1 ]; then
    build_by_pkg_config talvcs-encryption "$here/installed/encryption_host.cpp" ./encryption_host "$@"
    expect_saved ./encryption_host
  fi
  if [ "$POSTGRES" -eq 1 ]; then
    build_by_pkg_config talvcs-postgres "$here/installed/postgres_host.cpp" ./postgres_host "$@"
    expect_unreachable ./postgres_host
  fi
  if [ "$ZIP" -eq 1 ]; then
    build_by_pkg_config talvcs-zip "$here/installed/zip_host.cpp" ./zip_host "$@"
    expect_saved ./zip_host from_pkg_config.zip
  fi
}
