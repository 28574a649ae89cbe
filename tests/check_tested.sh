#!/usr/bin/env bash
# check_tested.sh <checkout>: what `tested` (scripts/packages.sh) makes of tests that fail once or always, whatever they
# are called. Prints each case that comes out wrong, and fails if there is one.
set -uo pipefail
. "$1/scripts/packages.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong=0
label=threaded

# always <name> <commands>: a test. once <name> <commands>: one that does them the first time only.
always() {
  printf 'add_test([==[%s]==] sh -c [==[%s]==])\nset_tests_properties([==[%s]==] PROPERTIES LABELS %s)\n' "$1" "$2" "$1" $label
}
once() {
  local seen
  seen=seen-$(cksum <<<"$1" | cut -d ' ' -f 1)
  always "$1" "[ -e $seen ] || { touch $seen; $2; }"
}

# comes <good|bad> <what>: the build folder with the tests on standard input
comes() {
  local folder=$work/build came=good
  rm -rf "$folder"
  mkdir -p "$folder/Testing/Temporary"
  cat >"$folder/CTestTestfile.cmake"
  # Of an earlier run, which does not count.
  echo 1:A.Late >"$folder/Testing/Temporary/LastTestsFailed.log"
  tested "$folder" -j2 >"$work/said" 2>&1 || came=bad
  [ $came = "$1" ] || { echo "$2: comes out as $came" && cat "$work/said" && wrong=1; }
}

late() { once A.Late false; }
comes good "all pass" < <(always A.B true)
comes good "late once" < <(late)
comes bad "late twice" < <(always A.Late false)
comes good "killed once" < <(once A.Late 'kill -KILL $$')
comes bad "killed twice" < <(always A.Late 'kill -KILL $$')
for name in 'A.B' 'A.Plus+c' 'P/A.B/0' 'P/A.B/Tcp  # GetParam() = <01-8A>' 'A[b]^$*?|\(c' 'AxLate'; do
  comes good "$name once, beside one that is late" < <(late; once "$name" false)
  comes bad "$name beside one that is late" < <(late; always "$name" false)
done
# Leaves itself out by its exit code, as the scripts do, or by what it prints, as GTest does.
leaves_out() {
  always A.Late "$1"
  printf 'set_tests_properties(A.Late PROPERTIES SKIP_RETURN_CODE 77 SKIP_REGULAR_EXPRESSION SKIPPED)\n'
}
first_late='[ -e seen ] || { touch seen; exit 1; }'
comes good "left out" < <(leaves_out 'exit 77')
comes good "left out, beside one that is late" < <(leaves_out 'exit 77'; once A.B false)
comes bad "late, then left out" < <(leaves_out "$first_late; exit 77")
comes bad "late, then left out in words" < <(leaves_out "$first_late; echo SKIPPED")
comes bad "late, then left out, beside one that passes then" < <(leaves_out "$first_late; exit 77"; once A.B false)
comes bad "no test" < <(:)
comes bad "a list that cannot be read" < <(late; echo 'message(FATAL_ERROR "no list")')
comes bad "ctest is killed" < <(late; always A.B 'kill -KILL $PPID')
label=unit
comes bad "without a clock" < <(once A.B false)
comes bad "without a clock, beside one that is late" < <(late; once A.B false)
exit $wrong
