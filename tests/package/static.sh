#!/bin/sh
# Takes the source tree into a host project as static libraries, which the host installs as well, and
# uses them in all ways: as a subproject, by find_package and by pkg-config.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
# shellcheck source=tests/package/hosts.sh
. "$here/hosts.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

"$CMAKE_COMMAND" -S "$here/subproject" -B host -DSOURCE="$SOURCE" -DBUILD_SHARED_LIBS=OFF \
  -DTALVCS_BUILD_KIT="$KIT" -DTALVCS_BUILD_SQLITE="$SQLITE" -DTALVCS_BUILD_ZIP="$ZIP" \
  -DTALVCS_BUILD_ENCRYPTION="$ENCRYPTION" -DTALVCS_BUILD_POSTGRES="$POSTGRES" -DTALVCS_INSTALL=ON \
  -DTALVCS_PRECOMPILE_HEADERS=ON >configure.txt
build host
expect_files host/in_memory

"$CMAKE_COMMAND" --install host --prefix "$work/first" >install.txt
mv "$work/first" "$work/moved"
expect_no_places moved "$work/host" "$SOURCE" "$work/first"
if find . -name '*talvcs*.so*' | grep .; then
  echo "the files above are shared libraries" >&2
  exit 1
fi

expect_found "$work/moved"
expect_modules "$work/moved" --static
