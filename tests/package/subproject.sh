#!/bin/sh
# Takes the source tree into a host project by add_subdirectory: the host's configuration checks what
# the library adds, then the host is built and run.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/package/hosts.sh
. "$here/hosts.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$CMAKE_COMMAND" -S "$here/subproject" -B host -DSOURCE="$SOURCE" -DTALVCS_PRECOMPILE_HEADERS=ON >configure.txt
build host
expect_files host/in_memory

"$CMAKE_COMMAND" --install host --prefix "$work/prefix" >install.txt
if [ -e prefix ]; then
  echo "the host installs files that it did not ask for:" >&2
  find prefix >&2
  exit 1
fi
