#!/usr/bin/env bash
# Tries the sources as a new user would: runs subcommands of `./dev` in a bare Debian root, on a clean copy of
# the commit at hand. Changes that are not committed are not tried.
#
# usage: try-in-bare-root.sh SUITE [SUBCOMMAND]...
#
# SUITE is a release of Debian, bookworm (12) or trixie (13), from this machine's own apt sources. Without
# subcommands, demo and test are run.
set -euo pipefail
if [ $# = 0 ]; then
    echo "usage: $0 SUITE [SUBCOMMAND]..." >&2
    exit 2
fi
suite=$1
subcommands=("${@:2}")
[ $# -gt 1 ] || subcommands=(demo test)
project=$(dirname "${BASH_SOURCE[0]}")/..
# shellcheck source=packaging/bare-root.sh
. "$project/packaging/bare-root.sh"

make_bare_root "$suite"
mkdir "$root/root/pelorikutil"
git -C "$project" archive HEAD | tar -x -C "$root/root/pelorikutil"
for subcommand in "${subcommands[@]}"; do
    printf '# ./dev %s\n' "$subcommand"
    inside "cd pelorikutil && ./dev $subcommand"
done
echo "$suite: each of these passed: ${subcommands[*]}"
