# Debian packages by purpose, and `need <set>`, which installs what is missing of one. Sourced by ./run, ./test, .ci/run.

packages() {
  case $1 in
    run)
      echo "g++ cmake ninja-build libpugixml-dev libutfcpp-dev nlohmann-json3-dev libcli11-dev libboost-dev" \
        "libssl-dev libsqlite3-dev gnuplot-nox fonts-wqy-zenhei libjs-dygraphs"
      ;;
    test)
      echo "$(packages run) libgtest-dev libgmock-dev clang-format locales libmodbus-dev python3-pymodbus" \
        "python3-serial python3-serial-asyncio python3-jsonschema openssl curl"
      ;;
    # npm where there is none of another origin, which Debian's would clash with.
    console) echo "$(packages test) chromium chromium-driver python3-selenium $(command -v npm >/dev/null || echo npm)" ;;
    pictures) echo "$(packages console) python3-pil" ;;
    # The simulated machine's; not of a program of ours.
    linuxcnc) echo "linuxcnc-uspace linuxcnc-uspace-dev iproute2 util-linux" ;;
    headers) echo "doxygen" ;;
    coverage) echo "$(packages test) gcovr" ;;
    # What makes Debian packages, and an empty Debian to try them in.
    packages) echo "$(packages run) debhelper lintian mmdebstrap systemd" ;;
    bench)
      echo "$(packages run) libbenchmark-dev libfccp-dev libfmt-dev libmodbus-dev libreaderwriterqueue-dev" \
        "libspdlog-dev valgrind"
      ;;
    ci) echo "$(packages test) $(packages bench) clang clang-tidy libclang-rt-14-dev util-linux zsh" ;;
    *)
      echo "packages.sh: no set of packages is called '$1'; there are run, test, console, pictures, linuxcnc," \
        "headers, coverage, packages, bench and ci" >&2
      return 1
      ;;
  esac
}

# Quiet, and without touching the network, when everything is there.
need() {
  local wanted missing="" package
  wanted=$(packages "$1") || return 1
  if ! command -v dpkg-query >/dev/null; then
    echo "This system has no Debian packages; going on with what is installed. Needed are the equivalents of: $wanted" >&2
    return 0
  fi
  for package in $wanted; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=" $package"
  done
  [ -n "$missing" ] || return 0

  local as_root=()
  if [ "$(id -u)" != 0 ]; then
    if ! command -v sudo >/dev/null || ! sudo -n true 2>/dev/null; then
      echo "These Debian packages are missing, and installing them needs root or sudo without a password:$missing" >&2
      echo "Install them and start again: apt-get install$missing" >&2
      return 1
    fi
    as_root=(sudo -n)
  fi
  echo "Installing Debian packages:$missing" >&2
  local log
  log=$(mktemp)
  if ! { "${as_root[@]}" apt-get -o DPkg::Lock::Timeout=300 update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 install -y -qq \
      --no-install-recommends $missing; } >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    rm -f "$log"
    echo "The packages could not be installed; the messages of apt-get stand above. Missing:$missing" >&2
    return 1
  fi
  rm -f "$log"
}

# build_folder <root> <preset>: <root>/build/<preset>, or one of the user's own where somebody else has built that one.
build_folder() {
  local folder=$1/build/$2
  mkdir -p "$folder" 2>/dev/null || true
  if ! [ -w "$1/build" ] || ! [ -w "$folder" ] || [ -n "$(find "$folder" -maxdepth 1 ! -writable 2>/dev/null | head -n 1)" ]; then
    folder=${XDG_CACHE_HOME:-$HOME/.cache}/ixocamglue/$(printf %s "$1" | cksum | cut -d ' ' -f 1)/$2
    echo "$1/build cannot be written; building in $folder" >&2
    mkdir -p "$folder"
  fi
  printf '%s\n' "$folder"
}

# quietly <log file> <command...>: the output goes to the file, and is shown when the command fails.
quietly() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  if ! "$@" >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    echo "Failed: $*" >&2
    return 1
  fi
}

# progress <log file> <title> <command...>: as quietly, and says meanwhile how many of how many steps ninja has done: in
# one line that counts on a terminal, elsewhere a line per tenth.
progress() {
  local log=$1 title=$2 shown=-1
  shift 2
  mkdir -p "$(dirname "$log")"
  : >"$log"
  local line done all tenth
  # The status of the pipe's first command is the build's.
  if "$@" </dev/null 2>&1 | while IFS= read -r line; do
    printf '%s\n' "$line" >>"$log"
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
    done=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
    if [ -t 2 ]; then
      printf '\r%s: %d of %d' "$title" "$done" "$all" >&2
      [ "$done" != "$all" ] || printf '\n' >&2
    elif tenth=$((done * 10 / all)) && [ "$tenth" != "$shown" ]; then
      shown=$tenth
      printf '%s: %d of %d\n' "$title" "$done" "$all" >&2
    fi
  done; then
    return 0
  fi
  [ ! -t 2 ] || printf '\n' >&2
  cat "$log" >&2
  echo "Failed: $*" >&2
  return 1
}

# tests_of <build folder> <ctest's arguments...>: the names of the tests that they choose.
tests_of() { ctest --test-dir "$1" -N "${@:2}" | sed -n 's/^ *Test *#[0-9]*: //p' | sort; }

# tested <build folder> <ctest's arguments...>: runs the tests, and those that failed once more, alone, where all of them
# run in real time: they are as late as their machine is busy. What fails without a clock has failed, and what is left out
# then has not passed.
tested() {
  local folder=$1 failed timed again out
  shift
  # An earlier one would speak for a run that has found no test.
  [[ " $* " == *" --rerun-failed "* ]] || rm -f "$folder/Testing/Temporary/LastTestsFailed.log"
  ctest --test-dir "$folder" --output-on-failure --no-tests=error "$@" && return
  failed=$(sed 's/^[0-9]*://' "$folder/Testing/Temporary/LastTestsFailed.log" 2>/dev/null | sort) || return
  timed=$(tests_of "$folder" -L '^(threaded|slow|console|linuxcnc|modbus)$')
  [ -n "$failed" ] && [ -z "$(comm -23 <(printf '%s\n' "$failed") <(printf '%s\n' "$timed"))" ] || return 1
  # By name: --rerun-failed takes numbers, which are others without this run's arguments. Each of them and no other: one
  # that is not found would come out as passed beside those that are.
  again="^($(sed 's/[][\.*+?^$|()]/\\&/g' <<<"$failed" | paste -sd '|'))\$"
  [ "$(tests_of "$folder" -R "$again")" = "$failed" ] || return 1
  echo "Once more, alone:"
  out=$folder/Testing/Temporary/LastTestsDisabled.log
  rm -f "$out"
  ctest --test-dir "$folder" --output-on-failure --no-tests=error -j1 -R "$again" || return
  [ ! -s "$out" ] || { echo "Failed, and left out the second time, where it has to pass: $(cat "$out")" && return 1; }
}
