#!/usr/bin/env bash
# check_includes.sh <checkout>: each folder includes only the folders that it may, by their path from the checkout, and
# no folders include one another in a circle, within a room neither.
# Prints `file:line: reason` for each wrong line, and fails if there is one.
set -euo pipefail
cd "$1"

# room: the rooms that it may include beside itself; the longest room that a file's path starts with is the file's
library='ixocamglue/motion ixocamglue/gascal ixocamglue/config ixocamglue/devcomm ixocamglue/monitor ixocamglue/alarms
  ixocamglue/panel ixocamglue/platform ixocamglue/support'
library=${library//$'\n'/ }
all="ixocamglue ixocamglue/alarms/store $library controller machines/composed machines/simulated machines/linuxcnc machines/modbus verify commandline"
rules="
ixocamglue/support:
ixocamglue/platform: ixocamglue/support
ixocamglue/config: ixocamglue/platform ixocamglue/support
ixocamglue/devcomm: ixocamglue/platform ixocamglue/support
ixocamglue/monitor: ixocamglue/platform ixocamglue/support
ixocamglue/alarms: ixocamglue/platform ixocamglue/support
ixocamglue/alarms/store: ixocamglue/alarms ixocamglue/platform ixocamglue/support
ixocamglue/panel: ixocamglue/platform ixocamglue/support
ixocamglue/gascal: ixocamglue/config ixocamglue/platform ixocamglue/support
ixocamglue/motion: ixocamglue/config ixocamglue/platform ixocamglue/support
ixocamglue: $library
machines/composed: ixocamglue/config ixocamglue/devcomm ixocamglue/platform ixocamglue/support
machines/linuxcnc: ixocamglue/config ixocamglue/devcomm ixocamglue/platform ixocamglue/support
machines/linuxcnc/hal: machines/linuxcnc ixocamglue/support
machines/simulated: ixocamglue/config ixocamglue/devcomm ixocamglue/platform ixocamglue/support
machines/modbus: ixocamglue/config ixocamglue/devcomm ixocamglue/platform ixocamglue/support
controller: ixocamglue ixocamglue/alarms/store $library
verify: ixocamglue ixocamglue/alarms/store $library controller machines/simulated
commandline: ixocamglue/support
ixocut: $all
examples/machine:
tests/fixture: $all ixocut
tests: $all ixocut tests/fixture examples/machine machines/linuxcnc/hal
bench: $all ixocut
fuzz: $all ixocut tests/fixture
"

mapfile -d '' files < <(find ixocamglue machines controller verify commandline ixocut tests bench fuzz \
  \( -name '*.h' -o -name '*.cpp' \) -print0 | sort -z)
[ ${#files[@]} -gt 0 ] || { echo "no sources found in $1"; exit 1; }

RULES="$rules" awk '
  BEGIN {
    count = split(ENVIRON["RULES"], lines, "\n")
    for (i = 1; i <= count; ++i) {
      if (split(lines[i], words, /[: ]+/) < 1 || words[1] == "") continue
      rooms[words[1]] = 1
      allowed[words[1], words[1]] = 1
      for (j = 2; j in words; ++j) if (words[j] != "") allowed[words[1], words[j]] = 1
      delete words
    }
  }
  function roomOf(path) {
    while (sub(/\/[^\/]*$/, "", path)) if (path in rooms) return path
    return ""
  }
  function wrong(reason) {
    printf "%s:%d: %s\n    %s\n", FILENAME, FNR, reason, $0
    bad = 1
  }
  function folderOf(path) {
    sub(/\/[^\/]*$/, "", path)
    return path
  }
  # One of the folders in `left` that this one includes; "": none.
  function onward(folder,   i, count, included) {
    count = split(includes[folder], included, " ")
    for (i = 1; i <= count; ++i) if (included[i] in left) return included[i]
    return ""
  }
  FNR == 1 {
    from = roomOf(FILENAME)
    folder = folderOf(FILENAME)
  }
  /^[ \t]*#[ \t]*include[ \t]*[<"]/ {
    quoted = $0 ~ /include[ \t]*"/
    path = $0
    sub(/^[^<"]*[<"]/, "", path)
    sub(/[>"].*/, "", path)
    if (path ~ /^fixture\//) path = "tests/" path
    to = roomOf(path)
    if (to != "") {
      if (!quoted) wrong("a file of ours is included in quotation marks")
      if (!((from, to) in allowed)) wrong(from "/ must not include " to "/")
      other = folderOf(path)
      if (other != folder && !((folder, other) in edge)) {
        edge[folder, other] = FILENAME ":" FNR ": " folder "/ includes " other "/ in a circle\n    " $0
        includes[folder] = includes[folder] " " other
        left[folder] = 1
      }
    } else if (quoted) wrong("\"" path "\" does not start with a folder of ours; other libraries stand in <>")
  }
  END {
    # A folder that includes none of those left is in no circle; from one that stays the way leads into a circle.
    do {
      gone = 0
      for (folder in left) if (onward(folder) == "") {
        delete left[folder]
        gone = 1
      }
    } while (gone)
    for (folder in left) {
      for (; !(folder in seen); folder = onward(folder)) seen[folder] = 1
      for (; folder in seen; folder = other) {
        other = onward(folder)
        print edge[folder, other]
        delete seen[folder]
      }
      bad = 1
      break
    }
    exit bad
  }
' "${files[@]}"
