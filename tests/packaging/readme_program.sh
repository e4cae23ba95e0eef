#!/usr/bin/env bash
# Compiles the README's program as it says, with its own flags, and runs it.
#
#     readme_program.sh SOURCE_DIRECTORY LIBRARY_DIRECTORY
set -euo pipefail
source=$1
library=$2

directory=$(mktemp -d)
trap 'rm -rf "$directory"' EXIT
awk '/^```/ { inside = $0 == "```cpp"; next } inside' "$source/README.md" >"$directory/first.cpp"
test -s "$directory/first.cpp"
g++ -std=c++11 -I"$source" "$directory/first.cpp" -L"$library" -lpelorikutil \
    -Wl,-rpath,"$library" -o "$directory/first"

# "Hello, world" by an independent program, where there is one.
printed=$("$directory/first")
case $printed in
"#GOST3411_256_2012:"*) ;;
*)
    echo "The program printed: $printed"
    exit 1
    ;;
esac
if command -v rhash >/dev/null; then
    expected=$(printf 'Hello, world' | rhash --gost12-256 -p '%{gost12-256}' -)
    test "$printed" = "#GOST3411_256_2012:$expected"
fi
