#!/bin/sh
# The whole way of a message on this machine: two mail servers, the driver, kvhost, and a check of what arrived.
#
#   demo.sh BIN WORK   BIN holds kvhost, kvsink and libkvsmtpdriver.so; WORK receives mails, log and report
#
# Ends with 0 when every outcome and every received mail is the expected one.
set -eu

if [ $# -ne 2 ]; then
    echo "usage: demo.sh BIN WORK" >&2
    exit 2
fi
bin=$(cd "$1" && pwd)
mkdir -p "$2"
work=$(cd "$2" && pwd)
examples=$(cd "$(dirname "$0")" && pwd)
KVHOST_DEMO_PASSWORD=correct-horse-battery
export KVHOST_DEMO_PASSWORD
servers=

stop_servers() {
    for server in $servers; do
        kill "$server" 2>/dev/null || true
        wait "$server" 2>/dev/null || true
    done
    servers=
}
trap stop_servers EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

fail() {
    echo "demo: $1" >&2
    exit 1
}

# start_server NAME OPTION...: a mail server on a free port, which it writes to NAME.port.
start_server() {
    name=$1
    shift
    rm -rf "$work/received/$name" "$work/$name.port"
    mkdir -p "$work/received/$name"
    "$bin/kvsink" --listen 127.0.0.1:0 --port-file "$work/$name.port" --maildir "$work/received/$name" \
        --refuse nobody@refused.example "$@" >"$work/$name.log" 2>&1 &
    servers="$servers $!"
}

# wait_for_port NAME: waits up to 10 s for the port of a server.
wait_for_port() {
    tries=100
    while [ ! -s "$work/$1.port" ]; do
        tries=$((tries - 1))
        if [ $tries -eq 0 ]; then
            cat "$work/$1.log" >&2
            fail "the mail server \"$1\" did not start"
        fi
        sleep 0.1
    done
}

mkdir -p "$work/tls"
start_server alarms --self-signed "$work/tls" --require-tls --require-auth \
    --user alarms --password "$KVHOST_DEMO_PASSWORD"
start_server pager
wait_for_port alarms
wait_for_port pager

sed -e "s|@ALARMS_PORT@|$(cat "$work/alarms.port")|" -e "s|@PAGER_PORT@|$(cat "$work/pager.port")|" \
    -e "s|@ALARMS_CA_FILE@|$work/tls/ca.pem|" "$examples/kvhost.toml" >"$work/kvhost.toml"

# One recipient is refused on purpose, so the status of a run that went as expected is 1.
rm -f "$work/kvhost.log" "$work/report.json"
status=0
"$bin/kvhost" send --driver "$bin/libkvsmtpdriver.so" --config "$work/kvhost.toml" --timeout 120 \
    --json-file "$work/report.json" "$examples/jobs.jsonl" || status=$?
[ $status -eq 1 ] || fail "kvhost ended with $status, expected 1 (one recipient is refused)"

stop_servers
python3 "$examples/check_demo.py" "$examples" "$work"
echo
echo "received mails: $work/received/alarms and $work/received/pager"
echo "log:            $work/kvhost.log"
echo "report:         $work/report.json"
