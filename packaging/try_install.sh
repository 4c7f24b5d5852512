#!/usr/bin/env bash
# Installs the packages in a fresh Debian 12 below a folder, sends a job as an unprivileged user, removes and purges.
#
#   try_install.sh PACKAGES WORK   PACKAGES holds the .deb files; WORK receives the root of the trial
#
# As root. Exit status: 0 all as it is to be, 69 (EX_UNAVAILABLE) when no fresh Debian can be had here.
set -euo pipefail
readonly UNAVAILABLE=69

if [ $# -ne 2 ]; then
    echo "usage: try_install.sh PACKAGES WORK" >&2
    exit 2
fi
# Mounts and processes of the trial end with it, however it ends.
if [ -z "${KV_TRIAL_IS_APART:-}" ]; then
    KV_TRIAL_IS_APART=yes exec unshare --mount --pid --fork --kill-child -- "$0" "$@"
fi
here=$(cd "$(dirname "$0")" && pwd)
packages=$(cd "$1" && pwd)
mkdir -p "$2"
work=$(cd "$2" && pwd)
readonly here packages work base=$work/base root=$work/root
readonly OURS=(libkvsmtpdriver kvhost kvsmtp-tools libkvsmtp-dev)

say() { echo "trial: $*"; }
fail() {
    echo "trial: $*" >&2
    exit 1
}
unavailable() {
    echo "trial: $*" >&2
    exit "$UNAVAILABLE"
}

# Each of these programs becomes the next one, so that what runs in the background has the process id of the last.
readonly INSIDE=(chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive)
readonly AS_KVHOST=("${INSIDE[@]}" setpriv --reuid kvhost --regid kvhost --init-groups --)
inside() { "${INSIDE[@]}" "$@"; }
as_kvhost() { "${AS_KVHOST[@]}" "$@"; }

# The fresh system is made once and copied for each trial.
make_base() {
    [ ! -e "$base/.complete" ] || return 0
    command -v debootstrap >/dev/null || unavailable "debootstrap is not there"
    rm -rf "$base"
    say "making a Debian 12 in $base"
    debootstrap --variant=minbase bookworm "$base" >"$work/debootstrap.log" 2>&1 ||
        unavailable "debootstrap failed: $(tail -n1 "$work/debootstrap.log")"
    # Services are not started in here.
    printf '#!/bin/sh\nexit 101\n' >"$base/usr/sbin/policy-rc.d"
    chmod 755 "$base/usr/sbin/policy-rc.d"
    touch "$base/.complete"
}

begin() {
    rm -rf "$root"
    cp -a "$base" "$root"
    mount -t proc proc "$root/proc"
    mkdir "$root/packages"
    cp "$packages"/*.deb "$root/packages"
    cp /etc/resolv.conf "$root/etc/resolv.conf"
}

files_of_ours() {
    local name
    for name in "${OURS[@]}"; do
        (cd "$root" && echo packages/"$name"_*.deb)
    done
}

# What apt would fetch for our packages, and nothing of ours: dpkg itself then has to find everything there.
install_dependencies() {
    local file depends
    for file in $(files_of_ours); do
        depends=$(dpkg-deb -f "$root/$file" Depends | tr ',' '\n' | grep -v '^ *\(libkvsmtp\|kvhost\)' | paste -sd,)
        [ -z "$depends" ] || echo "$depends"
    done | paste -sd, >"$work/depends"
    say "dependencies: $(cat "$work/depends")"
    inside apt-get update -qq >"$work/apt.log" 2>&1 || unavailable "no package lists: $(tail -n1 "$work/apt.log")"
    inside apt-get satisfy -y -qq --no-install-recommends "$(cat "$work/depends")" >>"$work/apt.log" 2>&1 ||
        unavailable "the dependencies cannot be had: $(grep -m1 '^E:' "$work/apt.log")"
}

# Files, accounts and groups of the system, without what every installation leaves behind.
picture() {
    (cd "$root" && find . -xdev \( -path ./proc -o -path ./run -o -path ./tmp -o -path ./packages -o -path ./var/lib/dpkg -o -path ./var/cache \
        -o -path ./var/log -o -path ./var/lib/apt -o -name ld.so.cache -o -name '*-' \) -prune -o -print | sort)
    (cd "$root" && find var/log -name '*kvhost*')
    cut -d: -f1 "$root/etc/passwd" "$root/etc/group"
}

mode_is() {
    local found
    found=$(inside stat -c '%a %U:%G' "$2")
    [ "$found" = "$1" ] || fail "$2 is $found, expected $1"
}

install_ours() {
    local files
    read -ra files <<<"$(files_of_ours | tr '\n' ' ')"
    inside dpkg -i "${files[@]/#//}" >"$work/dpkg.log" 2>&1 || fail "dpkg -i failed: $(cat "$work/dpkg.log")"
}

check_files() {
    mode_is "750 root:kvhost" /etc/kvhost
    mode_is "640 root:kvhost" /etc/kvhost/kvhost.toml
    mode_is "750 kvhost:kvhost" /var/lib/kvhost
    mode_is "750 kvhost:kvhost" /var/log/kvhost
    mode_is "644 root:root" /lib/systemd/system/kvhost.service
    inside dpkg --verify "${OURS[@]}" | grep -v '/usr/share/doc/' && fail "files differ from their packages"
    inside dpkg-query -W -f='${Conffiles}\n' kvhost | grep -q /etc/kvhost/kvhost.toml ||
        fail "kvhost.toml is no conffile"
    [ ! -e "$root/etc/systemd/system/multi-user.target.wants/kvhost.service" ] || fail "the service is enabled"
    inside ldd /usr/bin/kvhost /usr/bin/kvsink "$(inside sh -c 'echo /usr/lib/*/libkvsmtpdriver.so')" |
        grep 'not found' && fail "a library is missing"
    inside getent passwd kvhost | grep -q ':/var/lib/kvhost:/usr/sbin/nologin$' || fail "the user kvhost is wrong"
}

wait_for() {
    local tries=300
    until "$@"; do
        tries=$((tries - 1))
        [ $tries -gt 0 ] || return 1
        sleep 0.1
    done
}

start_sink() {
    inside install -d -o kvhost -g kvhost /tmp/mails
    "${AS_KVHOST[@]}" kvsink --listen 127.0.0.1:0 --port-file /tmp/mails/port --maildir /tmp/mails >"$work/kvsink.log" 2>&1 &
    sink=$!
    wait_for test -s "$root/tmp/mails/port" || fail "kvsink did not start: $(cat "$work/kvsink.log")"
}

mails_are() { [ "$(find "$root/tmp/mails" -name '*.eml' | wc -l)" -eq "$1" ]; }

configure_carrier() {
    cat >>"$root/etc/kvhost/kvhost.toml" <<TOML
[carrier.relay]
server = "127.0.0.1"
port = $(cat "$root/tmp/mails/port")
security = "clear"
sender = "trial@example.org"
TOML
}

# One job without the store: the driver is found by its bare name.
send_one() {
    echo '{"id":"first","carrier":"relay","recipient":"ops@example.org","subject":"Trial","text":"One."}' |
        as_kvhost kvhost send --config /etc/kvhost/kvhost.toml - >"$work/send.log" 2>&1 ||
        fail "kvhost send: $(cat "$work/send.log")"
    mails_are 1 || fail "the mail did not arrive"
}

is_delivered() { as_kvhost kvhost list --json | grep -q '"delivered"'; }

# What root puts into the store the service could not read.
root_is_refused() {
    local status=0
    inside kvhost submit --carrier relay --to ops@example.org --text "By root." >"$work/root.log" 2>&1 || status=$?
    [ $status -eq 3 ] || fail "kvhost submit by root ended with $status: $(cat "$work/root.log")"
    grep -q 'runuser -u kvhost -- kvhost' "$work/root.log" || fail "root is not told what to do: $(cat "$work/root.log")"
    [ ! -e "$root/var/lib/kvhost/store" ] || fail "root made a store"
}

# One job through the store and the running host.
run_one() {
    local host status=0
    as_kvhost kvhost config check || fail "the packaged configuration is refused"
    echo '{"id":"second","carrier":"relay","recipient":"ops@example.org","subject":"Trial","text":"Two."}' |
        as_kvhost kvhost submit --jsonl - || fail "kvhost submit"
    "${AS_KVHOST[@]}" kvhost run >"$work/run.log" 2>&1 &
    host=$!
    wait_for is_delivered || fail "the job was not delivered: $(as_kvhost kvhost list; cat "$work/run.log")"
    mails_are 2 || fail "the second mail did not arrive"
    kill -TERM "$host"
    wait "$host" || status=$?
    [ $status -eq 0 ] || fail "kvhost run ended with $status: $(cat "$work/run.log")"
    as_kvhost kvhost list
}

make_base
begin
install_dependencies
picture >"$work/before"
install_ours
check_files
say "installed: $(inside dpkg-query -W "${OURS[@]}" | tr '\t\n' '  ')"
as_kvhost kvhost --version
start_sink
configure_carrier
send_one
root_is_refused
run_one
say "a job was sent, and one was taken, kept and delivered"

inside dpkg -r "${OURS[@]}" >>"$work/dpkg.log" 2>&1 || fail "dpkg -r failed: $(tail "$work/dpkg.log")"
[ -e "$root/var/lib/kvhost/store/jobs.db" ] || fail "removing the packages took the jobs"
[ -e "$root/etc/kvhost/kvhost.toml" ] || fail "removing the packages took the configuration"
install_ours
is_delivered || fail "the jobs are not known after the packages were installed again"
grep -q '^\[carrier.relay\]' "$root/etc/kvhost/kvhost.toml" || fail "installing again replaced the configuration"
say "jobs and configuration outlived remove and install"

kill "$sink"
wait "$sink" || fail "kvsink ended with $?"
inside dpkg -P "${OURS[@]}" >>"$work/dpkg.log" 2>&1 || fail "dpkg -P failed: $(tail "$work/dpkg.log")"
grep -i 'warning' "$work/dpkg.log" && fail "dpkg warned"
picture >"$work/after"
diff "$work/before" "$work/after" || fail "these are left after the purge"
say "nothing is left after the purge"
