#!/bin/sh
# Talks to a running controller (`ixocut serve`) with curl and nothing else.
#
#     ixocut_client.sh status
#     ixocut_client.sh run PROCEDURE [PARAMS]     PARAMS as JSON: '{"x": 100, "y": 50}'; Ctrl-C stops it
#     ixocut_client.sh stop
#
# IXOCUT_URL ("http://127.0.0.1:8620", or the path of the controller's Unix socket), IXOCUT_TOKEN (on the socket the
# controller's own user needs none). Software is not the emergency stop.
set -eu

url=${IXOCUT_URL:-http://127.0.0.1:8620}
lease=

ask() { # ask METHOD PATH [BODY]: the answer; what is refused goes to the error output
  method=$1 path=$2 body=${3:-}
  set -- --silent --show-error --request "$method" --write-out '\n%{http_code}'
  case $url in
    http*) set -- "$@" "$url/api/v1$path" ;;
    *) set -- "$@" --unix-socket "$url" "http://localhost/api/v1$path" ;;
  esac
  [ -z "${IXOCUT_TOKEN:-}" ] || set -- "$@" --header "Authorization: Bearer $IXOCUT_TOKEN"
  [ -z "$lease" ] || set -- "$@" --header "Lease: $lease"
  # With a key of its own a command begins once, however often curl sends it.
  [ "$method" = GET ] || set -- "$@" --retry 3 --header "Idempotency-Key: $$-$(date +%s%N)" \
    --header 'Content-Type: application/json' --data "${body:-{\}}"
  answer=$(curl "$@")
  code=${answer##*
}
  answer=${answer%
*}
  if [ "$code" -ge 400 ]; then
    printf 'refused: %s\n' "$(member detail "$answer")" >&2
    return 1
  fi
  printf '%s\n' "$answer"
}

# member NAME JSON: the first value of this name, a text or a number
member() { printf '%s' "$2" | grep -o "\"$1\":\(\"[^\"]*\"\|[^,}\"]*\)" | head -n 1 | cut -d: -f2- | tr -d '"'; }

give_back() {
  [ -z "$lease" ] || ask DELETE /lease >/dev/null || true
}

run() { # run PROCEDURE PARAMS: starts it and follows it to its end
  lease=$(member lease "$(ask POST /lease)")
  trap give_back EXIT
  trap 'ask POST /stop >/dev/null' INT TERM # needs nothing, and gets through
  id=$(member id "$(ask POST /runs "{\"procedure\": \"$1\", \"params\": ${2:-{\}}}")")
  outcome=null
  while [ "$outcome" = null ]; do
    sleep 0.2 || true
    ask POST /lease/heartbeat >/dev/null
    report=$(ask GET "/runs/$id")
    outcome=$(member outcome "$report")
  done
  member words "$report"
  [ "$outcome" = success ]
}

case ${1:-} in
  status) ask GET /status ;;
  stop) ask POST /stop ;;
  run) run "${2:?which procedure}" "${3:-}" ;;
  *)
    sed -n '2,9s/^# \{0,1\}//p' "$0" >&2
    exit 2
    ;;
esac
