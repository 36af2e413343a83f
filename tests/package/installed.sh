#!/bin/sh
# Installs the shared libraries, moves what was installed, and builds and runs hosts against it by
# CMake and by pkg-config.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/package/hosts.sh
. "$here/hosts.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$CMAKE_COMMAND" --install "$BUILD" --prefix "$work/first" >install.txt
mv "$work/first" "$work/moved"
expect_no_places moved "$BUILD" "$SOURCE" "$work/first"
if [ "$TAL" -eq 1 ]; then
  moved/bin/tal --version
  for file in bash-completion/completions/tal zsh/site-functions/_tal fish/vendor_completions.d/tal.fish \
    man/man1/tal.1; do
    grep -q export-git "moved/share/$file" || grep -q 'export\\-git' "moved/share/$file"
  done
elif [ -e moved/bin ]; then
  echo "programs are installed that nobody asked for:" >&2
  ls moved/bin >&2
  exit 1
fi

expect_found "$work/moved"
expect_modules "$work/moved"

# The examples as a project of their own. The program tal, which is large, includes and links nothing
# else, so it is configured alone.
"$CMAKE_COMMAND" -S "$SOURCE/examples" -B examples -DCMAKE_PREFIX_PATH="$work/moved" >configure.txt
build examples in_memory
expect_files examples/in_memory
if [ "$KIT" -eq 1 ]; then
  build examples quick_start sketchbook
  examples/quick_start >printed.txt
  head -n 3 printed.txt >files.txt
  printf 'house/door\nhouse/roof\ntree\n' | diff -u - files.txt
  examples/sketchbook sketched >sketched.txt
fi
