#!/usr/bin/env bash
# check_includes.sh <checkout>: each folder includes only the folders that it may, by their path from the checkout.
# Prints `file:line: reason` for each wrong line, and fails if there is one.
set -euo pipefail
cd "$1"

# folder: what it may include beside itself (fixture is tests/fixture)
rules='
support:
platform:  support
config:    platform support
devcomm:   platform support
monitor:   platform support
alarms:    platform support
panel:     platform support
gascal:    config platform support
motion:    config platform support
library:   motion gascal config devcomm monitor alarms panel platform support
simulator: platform support
host:      simulator library motion gascal config devcomm monitor alarms panel platform support
tests:     fixture host simulator library motion gascal config devcomm monitor alarms panel platform support
bench:     host simulator library motion gascal config devcomm monitor alarms panel platform support
fuzz:      fixture host simulator library motion gascal config devcomm monitor alarms panel platform support
fixture:
'

folders=()
while IFS=: read -r folder _; do
  if [ -n "$folder" ] && [ -d "$folder" ]; then folders+=("$folder"); fi
done <<<"$rules"
mapfile -d '' files < <(find "${folders[@]}" \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z)
[ ${#files[@]} -gt 0 ] || { echo "no sources found in $1"; exit 1; }

RULES="$rules" awk '
  BEGIN {
    count = split(ENVIRON["RULES"], lines, "\n")
    for (i = 1; i <= count; ++i) {
      if (split(lines[i], words, /[: ]+/) < 1 || words[1] == "") continue
      ours[words[1]] = 1
      allowed[words[1], words[1]] = 1
      for (j = 2; j in words; ++j) if (words[j] != "") allowed[words[1], words[j]] = 1
      delete words
    }
  }
  function wrong(reason) {
    printf "%s:%d: %s\n    %s\n", FILENAME, FNR, reason, $0
    bad = 1
  }
  /^[ \t]*#[ \t]*include[ \t]*[<"]/ {
    from = FILENAME
    sub(/\/.*/, "", from)
    quoted = $0 ~ /include[ \t]*"/
    path = $0
    sub(/^[^<"]*[<"]/, "", path)
    sub(/[>"].*/, "", path)
    to = path ~ /\// ? path : ""
    sub(/\/.*/, "", to)
    if (to == "ixocamglue") wrong("the installed name is for other projects; here it is \"" substr(path, 12) "\"")
    else if (to in ours) {
      if (!quoted) wrong("a file of ours is included in quotation marks")
      if (!((from, to) in allowed)) wrong(from "/ must not include " to "/")
    } else if (quoted) wrong("\"" path "\" does not start with a folder of ours; other libraries stand in <>")
  }
  END { exit bad }
' "${files[@]}"
