# shellcheck shell=sh
# Sourced by the tests: runs the quick start and compares what it prints.

# expect_quick_start PROGRAM
expect_quick_start() {
  printf 'hello.txt\nmain.txt\ntopic/new.txt\n' >expected.txt
  "$1" >printed.txt
  diff -u expected.txt printed.txt
  echo "$1 printed what it should"
}
