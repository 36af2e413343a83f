#!/bin/sh
# Lets two folders share a history: examples/demo_sharing.sh PROGRAM PLACE
# PLACE is what tal remote takes; without it, a repository on the server of TALVCS_POSTGRES, which has
# the form "host=FOLDER user=NAME dbname=NAME". Ends with a comparison of every byte.
set -eu

program=$1
if [ $# -gt 1 ]; then
  place=$2
else
  # shellcheck disable=SC2086  # three words
  set -- $TALVCS_POSTGRES
  place="postgresql://${2#user=}@/${3#dbname=}?host=${1#host=}#demo"
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
mkdir "$work/ada"

# tal FOLDER ARGUMENT...: shows the command and runs it in the folder.
tal() {
  folder=$1
  shift
  printf '%s$ tal %s\n' "$folder" "$*" | sed "s|$place|PLACE|"
  "$program" -C "$work/$folder" "$@" 2>&1 | sed "s|$place|PLACE|; s|$work/||"
}

export TAL_AUTHOR=Ada TAL_EMAIL=ada@example.org
echo "one" >"$work/ada/both.txt"
tal ada init
tal ada commit -m "Ada begins"
tal ada remote "$place"
tal ada sync
mkdir "$work/bob"
tal bob clone "$place"

echo "Ada's page" >"$work/ada/ada.txt"
tal ada commit -m "Ada writes a page"
export TAL_AUTHOR=Bob TAL_EMAIL=bob@example.org
echo "Bob's page" >"$work/bob/bob.txt"
echo "two" >"$work/bob/both.txt"
tal bob commit -m "Bob writes a page and changes another"

tal ada sync
tal bob sync
tal ada sync
tal ada log -n 3

# A failing command on the left of a pipe goes unnoticed, so the outcome is what counts.
diff -r --exclude=.vcs "$work/ada" "$work/bob"
for folder in ada bob; do
  "$program" -C "$work/$folder" show HEAD --json >"$work/$folder.json"
  for file in both.txt ada.txt bob.txt; do
    test -s "$work/$folder/$file"
  done
done
cmp "$work/ada.json" "$work/bob.json"
echo "Both folders are equal, file by file, and at the same commit."
