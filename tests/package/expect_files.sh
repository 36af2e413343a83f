# shellcheck shell=sh
# Sourced by the tests: runs an example and compares the files that it lists.

# expect_files PROGRAM
expect_files() {
  printf 'hello.txt\nmain.txt\ntopic/new.txt\n' >expected.txt
  "$1" >printed.txt
  diff -u expected.txt printed.txt
  echo "$1 printed what it should"
}
