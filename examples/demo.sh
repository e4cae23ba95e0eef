#!/usr/bin/env bash
# Shows the tool's main job on a real directory tree: makes a hash list of it, checks it unchanged,
# then changes one file, removes one, makes one unreadable, and has the check find all three.
#
# usage: demo.sh TOOL
#
# Exits with 0 only when every step ended as it should.
set -euo pipefail

if [ $# != 1 ] || [ ! -x "$1" ]; then
    echo "usage: $0 TOOL" >&2
    exit 2
fi
umask 022
tool=$(realpath "$1")
work=$(mktemp -d)
trap 'chmod -R u+rwX "$work" && rm -rf "$work"' EXIT

# Root can read everything, so as root the last check runs as somebody else. For them the tool is put
# beside the tree: the directory that it was built in may be closed to them.
chmod 755 "$work"
mkdir "$work/bin"
cp "$tool" "$(dirname "$tool")"/libpelorikutil.so.1 "$work/bin/"
PATH=$work/bin:$PATH
unprivileged=()
if [ "$(id -u)" = 0 ]; then
    unprivileged=(setpriv --reuid=65534 --regid=65534 --clear-groups)
fi

run() {
    printf '\n$ %s\n' "$*"
    "$@"
}

# expect STATUS COMMAND...: runs it, shows its status and insists on it.
expect() {
    local expected=$1 status=0
    shift
    run "$@" || status=$?
    echo "(exit status $status)"
    if [ "$status" != "$expected" ]; then
        echo "demo: exit status $expected was expected" >&2
        exit 1
    fi
}

# expect_line TEXT: insists on a line of the last check's report that starts with TEXT.
expect_line() {
    if ! grep -q "^$1" "$work/report"; then
        echo "demo: a line was expected that starts with: $1" >&2
        exit 1
    fi
}

echo "A copy of real files to work on:"
run cp -rL /usr/include/linux "$work/tree"
cd "$work"
files=$(find tree -type f | wc -l)
echo "($files files)"

echo
echo "A hash list of them, and a check against it:"
expect 0 pelorik list -r -o tree.list tree
run head -n 3 tree.list
if [ "$(wc -l <tree.list)" != "$files" ]; then
    echo "demo: the list should have $files lines" >&2
    exit 1
fi
expect 0 pelorik check tree.list

echo
echo "One file is changed, one is removed, one is made unreadable:"
mapfile -t names < <(cut -d= -f1 tree.list | head -n 3)
echo
echo "\$ echo >> ${names[0]}"
echo >>"${names[0]}"
run rm "${names[1]}"
run chmod 000 "${names[2]}"

echo
echo "The check finds all three:"
expect 1 "${unprivileged[@]}" pelorik check tree.list
"${unprivileged[@]}" pelorik check --quiet tree.list >report || true
expect_line "File changed: ${names[0]} \[#GOST3411_256_2012:"
expect_line "Warning: File not found: ${names[1]}\.$"
expect_line "Warning: File access denied: ${names[2]}\.$"
if [ "$(wc -l <report)" != 3 ]; then
    echo "demo: three lines were expected" >&2
    exit 1
fi
echo
echo "The demo went as it should."
