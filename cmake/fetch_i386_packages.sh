#!/usr/bin/env bash
# Fetches the i386 builds of the libraries that we link against and unpacks them below the folder $1. They are not
# installed: the machine's own packages and its list of architectures stay as they are, and the versions need not match.
# Exit status: 0 all there, 69 (EX_UNAVAILABLE) when they cannot be had.
set -euo pipefail
readonly UNAVAILABLE=69
readonly PACKAGES=(
    libssl3 libssl-dev libmimetic0v5 libmimetic-dev
    libspdlog1.10 libspdlog-dev libfmt9 libfmt-dev libtomlplusplus3 libtomlplusplus-dev
    libsqlite3-0 libsqlite3-dev libsqlitecpp-dev
    libcpp-httplib0.11 libcpp-httplib-dev libbrotli1 zlib1g
    libprometheus-cpp-core1.0 prometheus-cpp-dev
)
readonly FOLDER=$1
readonly WANTED="${PACKAGES[*]}"

[ "$(cat "$FOLDER/.complete" 2>/dev/null)" != "$WANTED" ] || exit 0

# A package list and a cache of our own, for one architecture.
apt_i386() {
    apt-get -qq \
        -o APT::Architecture=i386 -o APT::Architectures=i386 -o APT::Sandbox::User=root \
        -o Dir::State="$FOLDER/.apt/state" -o Dir::State::status=/dev/null -o Dir::Cache="$FOLDER/.apt/cache" \
        -o Acquire::Retries=3 "$@"
}

mkdir -p "$FOLDER/.apt/state/lists/partial" "$FOLDER/.apt/cache/archives/partial" "$FOLDER/.apt/packages"
cd "$FOLDER"
readonly LOG=$FOLDER/.apt/log
# A list that could not be renewed is no failure as long as the packages can be had.
apt_i386 update >"$LOG" 2>&1 || true
if ! (cd .apt/packages && apt_i386 download "${PACKAGES[@]}" >>"$LOG" 2>&1); then
    echo "The i386 packages cannot be had: $(grep -m1 '^E:' "$LOG" || tail -n1 "$LOG")" >&2
    exit "$UNAVAILABLE"
fi
for package in .apt/packages/*.deb; do
    dpkg -x "$package" .
done
# Some packages still say /lib, which is /usr/lib on an installed system.
if [ -d lib ]; then
    cp -a lib/. usr/lib/
    rm -rf lib
fi
rm -rf .apt/packages .apt/cache
printf '%s\n' "$WANTED" >.complete
