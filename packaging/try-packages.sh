#!/usr/bin/env bash
# Tries the packages as a new user would: in a bare Debian root, from installing them to removing them.
# Prints each command and what it answered, and ends at the first that does not answer as it should.
#
# usage: try-packages.sh SUITE PACKAGES
#
#   ./dev package
#   packaging/try-packages.sh bookworm build/package
set -euo pipefail
if [ $# != 2 ]; then
    echo "usage: $0 SUITE PACKAGES" >&2
    exit 2
fi
packages=$2
project=$(dirname "${BASH_SOURCE[0]}")/..
# shellcheck source=packaging/bare-root.sh
. "$project/packaging/bare-root.sh"

# answers STATUS COMMAND: what a person types, and the exit status that it must have.
answers() {
    printf '# %s\n' "$2"
    local status=0
    inside "$2" 2>&1 || status=$?
    if [ "$status" != "$1" ]; then
        printf 'exit status %s instead of %s\n' "$status" "$1" >&2
        exit 1
    fi
}

# quietly COMMAND: what the trial needs and nobody wants to read.
quietly() {
    inside "$1" >/dev/null 2>&1
}

make_bare_root "$1"
mkdir "$root/root/packages"
cp "$packages"/*_amd64.deb "$root/root/packages/"
cp -r "$project/examples/consumer" "$root/root/"
quietly 'apt-get update && apt-get install -y --no-install-recommends man-db'

answers 0 'dpkg -i packages/libpelorikutil1_*.deb packages/pelorik_*.deb | grep -v Selecting'
answers 0 'pelorik --version'
answers 0 'man pelorik | sed -n 1,24p'
answers 0 'pelorik list -r -o client.list /opt/PELORIKclient'
answers 0 'pelorik check client.list'
answers 0 'cp /opt/PELORIKclient/lib/libpelorikutil.so.1.0.0 kept && printf x >> /opt/PELORIKclient/lib/libpelorikutil.so.1.0.0'
answers 1 'pelorik check client.list'
answers 0 'mv kept /opt/PELORIKclient/lib/libpelorikutil.so.1.0.0 && chmod 644 /opt/PELORIKclient/lib/libpelorikutil.so.1.0.0'
answers 0 'pelorik check client.list'
quietly 'apt-get install -y --no-install-recommends g++ cmake make pkg-config'
answers 0 'dpkg -i packages/libpelorikutil-dev_*.deb | grep -v Selecting'
answers 0 'cmake -S consumer -B built > /dev/null && cmake --build built | tail -1'
answers 0 'printf "" > empty && built/consumer empty'
# shellcheck disable=SC2016 # the root's own shell expands it
answers 0 'g++ consumer/main.cpp $(pkg-config --cflags --libs pelorikutil) -o by-pkg-config && ./by-pkg-config empty | head -1'
answers 0 'dpkg --purge pelorik libpelorikutil-dev libpelorikutil1'
answers 2 'ls /opt/PELORIKclient /usr/bin/pelorik'
