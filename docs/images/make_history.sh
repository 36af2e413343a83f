#!/bin/sh
# Draws docs/images/history.svg with tal: docs/images/make_history.sh PROGRAM
# The ids in the picture differ from run to run, because a commit's id covers its time.
set -eu
program=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
picture=$(cd "$(dirname "$0")" && pwd)/history.svg
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export TAL_AUTHOR=Ada TAL_EMAIL=ada@example.org
cd "$folder"

# commit FILE MESSAGE: changes one file and commits it.
commit() {
  echo "$2" >>"$1"
  "$program" commit -m "$2"
}

mkdir novel
cd novel
"$program" init
commit novel.txt "Write the first chapter"
commit novel.txt "Write the second chapter"
"$program" switch -c new-ending
commit ending.txt "Try another ending"
commit ending.txt "Let the hero return"
"$program" switch master
commit cover.txt "Add a cover"
"$program" switch -c translation
commit roman.txt "Translate the first chapter"
"$program" switch master
commit novel.txt "Correct the spelling"
"$program" merge new-ending
"$program" graph
"$program" graph --svg --output "$picture"
