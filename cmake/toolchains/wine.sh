#!/bin/sh
# Runs a Windows program under wine, with the DLLs of the compiler of mingw.cmake.
set -eu
folder_of() { dirname "$(x86_64-w64-mingw32-g++-posix -print-file-name="$1")"; }
WINEPATH="$(folder_of libstdc++-6.dll);$(folder_of libwinpthread-1.dll);${WINEPATH:-}"
export WINEPATH
exec wine "$@"
