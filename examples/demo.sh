#!/bin/sh
# Shows what tal does, on a copy of a folder: examples/demo.sh PROGRAM FOLDER [REPORT]
# The folder itself is only read. Every command is a process of its own, so each one after the first
# commit loads what an earlier one has saved. Ends with a comparison of every byte, and leaves a page
# about the history: the file REPORT, or one in the folder for temporary files.
set -eu

if [ $# -ne 2 ] && [ $# -ne 3 ]; then
  echo "usage: $0 PROGRAM FOLDER [REPORT]" >&2
  exit 2
fi
story_began=$(date +%s%N)
report=${3:-${TMPDIR:-/tmp}/tal-demo-report.html}
program=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
original=$(cd "$2" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
trap 'exit 1' INT TERM
copy=$work/copy
expected=$work/expected
mkdir "$copy" "$expected"
TAL_AUTHOR=${TAL_AUTHOR:-Demo}
TAL_EMAIL=${TAL_EMAIL:-demo@example.org}
export TAL_AUTHOR TAL_EMAIL

title() {
  printf '\n== %s\n' "$*"
}

# tal ARGUMENT...: shows the command and how long it took, and runs it in the copy.
tal() {
  printf '$ tal %s\n' "$*"
  began=$(date +%s%N)
  status=0
  "$program" -C "$copy" "$@" 2>&1 || status=$?
  printf '  (%d ms)\n' $((($(date +%s%N) - began) / 1000000))
  return "$status"
}

# conflicting ARGUMENT...: does the same with a command that must end with exit code 1.
conflicting() {
  outcome=0
  tal "$@" || outcome=$?
  if [ "$outcome" -ne 1 ]; then
    echo "tal $1 ended with $outcome instead of conflicts" >&2
    exit 1
  fi
}

# quietly ARGUMENT...: runs a command of tal without showing its result.
quietly() {
  "$program" -C "$copy" "$@" >"$work/output" 2>&1 || { cat "$work/output" >&2; return 1; }
}

# files_of FOLDER: the paths to copy, each ended by a null byte: what git would keep, if it is asked.
files_of() {
  if [ -e "$1/.git" ] && command -v git >/dev/null; then
    git -C "$1" -c safe.directory="$1" ls-files -z --cached --others --exclude-standard
  else
    (cd "$1" && find . \( -name .git -o -name .vcs \) -prune -o -type f -print0)
  fi
}

# remember BRANCH: keeps a copy of the folder as it is now, to compare with in the end.
remember() {
  rm -rf "${expected:?}/$1"
  mkdir "$expected/$1"
  (cd "$copy" && tar -cf - --exclude=./.vcs .) | tar -xf - -C "$expected/$1"
}

count_files() {
  find "$1" -name .vcs -prune -o -type f -print | wc -l
}

count_bytes() {
  (cd "$1" && find . -name .vcs -prune -o -type f -print0 | xargs -0 cat | wc -c)
}

title "A copy of $original"
files_of "$original" | (cd "$original" && xargs -0 sh -c '
  for file; do if [ -f "$file" ] && [ ! -L "$file" ]; then printf "%s\0" "$file"; fi; done' sh) \
  >"$work/list"
tar -C "$original" --null --files-from="$work/list" -cf - | tar -xf - -C "$copy"
rm -f "$copy/.talignore"
echo "$(count_files "$copy") files, $(count_bytes "$copy") bytes"

title "Put it under history"
tal init
tal commit -m "The folder as it was"

title "Several commits"
mkdir "$copy/demo-notes"
printf 'one\ntwo\nthree\n' >"$copy/demo-notes/plan.txt"
printf 'caf\303\251 \000\001\377 bytes' >"$copy/demo-notes/caf\303\251.bin"
tal commit -m "Add notes, one with a non-ASCII name"
first=$(cd "$copy" && find . -name .vcs -prune -o -type f -size -200k -print | LC_ALL=C sort | sed -n 1p)
printf '\nA line that was added.\n' >>"$copy/$first"
printf 'one\ntwo, longer\nthree\n' >"$copy/demo-notes/plan.txt"
tal commit -m "Change two files"
tal diff HEAD~1 HEAD || [ $? -eq 1 ]

title "Who wrote this, and when?"
tal blame demo-notes/plan.txt
tal log --relative demo-notes/plan.txt

title "Take back, put aside, bring back"
tal undo
cat "$copy/demo-notes/plan.txt"
tal redo
printf 'An idea\n' >"$copy/demo-notes/idea.txt"
tal stash -m "An idea"
tal status
tal stash pop
rm "$copy/demo-notes/plan.txt" "$copy/demo-notes/idea.txt"
tal restore demo-notes
grep -q 'two, longer' "$copy/demo-notes/plan.txt"

title "A branch, and a conflicting change on each side"
tal switch -c topic
printf 'one\ntwo of the topic\nthree\n' >"$copy/demo-notes/plan.txt"
printf 'A file of the topic.\n' >"$copy/demo-notes/topic.txt"
quietly commit -m "Change the plan on the topic"
printf 'Another line.\n' >>"$copy/demo-notes/topic.txt"
tal commit -m "Say more on the topic"
remember topic
tal switch master
printf 'one\ntwo of master\nthree\n' >"$copy/demo-notes/plan.txt"
rm "$copy/demo-notes/caf"*
tal commit -m "Change the plan on master"
tal status

title "What a merge would meet"
before=$("$program" -C "$copy" stat --json)
conflicts=0
tal merge topic --dry-run >"$work/dry-run" || conflicts=$?
cat "$work/dry-run"
if [ "$conflicts" -ne 1 ] || ! grep -q 'demo-notes/plan.txt' "$work/dry-run"; then
  echo "the dry run doesn't name the conflict" >&2
  exit 1
fi
if [ "$before" != "$("$program" -C "$copy" stat --json)" ]; then
  echo "the dry run has changed the store" >&2
  exit 1
fi

title "The merge leaves the conflict in the folder"
conflicting merge topic
cat "$copy/demo-notes/plan.txt"
tal status
if quietly switch topic 2>/dev/null; then
  echo "a switch went through in the middle of a merge" >&2
  exit 1
fi
printf 'one\ntwo of both\nthree\n' >"$copy/demo-notes/plan.txt"
tal merge --continue
tal graph
remember master

title "What the store holds"
tal log -n 2
tal stat
tal verify

title "A page about it"
tal report "$report"
test -s "$report"

title "A branch that is given up, and the room that it took"
quietly switch -c scrap
dd if=/dev/urandom of="$copy/demo-notes/scrap.bin" bs=1024 count=300 2>/dev/null
quietly commit -m "Keep something large"
quietly switch master
tal branch -d scrap
tal gc

title "Keep the tips and forks only"
tal simplify
tal graph
tal verify

title "Load it all elsewhere and compare every byte"
files=0
bytes=0
for branch in master topic; do
  back=$work/back-$branch
  mkdir "$back"
  cp -R "$copy/.vcs" "$back/.vcs"
  "$program" -C "$back" switch --restore "$branch"
  diff -r --exclude=.vcs "$expected/$branch" "$back"
  echo "$branch: $(count_files "$back") files, $(count_bytes "$back") bytes, all as they were"
  files=$((files + $(count_files "$back")))
  bytes=$((bytes + $(count_bytes "$back")))
done
if [ "$files" -eq 0 ]; then
  echo "nothing came back" >&2
  exit 1
fi
printf '\nWhat came back is identical: every byte was compared (%d files, %d bytes, 2 branches).\n' \
  "$files" "$bytes"

title "Two folders share a history through a PostgreSQL server"
examples=$(cd "$(dirname "$0")" && pwd)
if ! ls /usr/lib/postgresql/*/bin/postgres >/dev/null 2>&1 || ! command -v python3 >/dev/null; then
  echo "Skipped: no PostgreSQL server is installed (Debian: postgresql)."
else
  outcome=0
  PYTHONPATH="$examples/../tests/support" python3 -B \
    "$examples/../tests/stores/postgres/with_server.py" "$examples/demo_sharing.sh" "$program" \
    >"$work/sharing" 2>&1 || outcome=$?
  if grep -q 'this build has no stores on PostgreSQL' "$work/sharing"; then
    echo "Skipped: this build has no stores on PostgreSQL servers (Debian: libpq-dev)."
  else
    cat "$work/sharing"
    [ "$outcome" -eq 0 ] || exit "$outcome"
  fi
fi

printf '\nThe story took %d seconds. Its history, before it was simplified, is a page for any browser:\n%s\n' \
  $((($(date +%s%N) - story_began) / 1000000000)) "$report"
