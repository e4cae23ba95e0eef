#!/usr/bin/env bash
# g++'s own analysis (-fanalyzer) of the library's sources. Fails on any finding that
# quality/analyzer-suppressions.txt does not name, and on a name there that is no finding any more.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# The findings in one source, each as "SOURCE WARNING".
findings_in() {
    local flags=()
    case $1 in
    *_avx512.cpp) flags=(-mavx512f -mavx512bw -mavx512vl -mavx512vbmi -mgfni) ;;
    esac
    local said
    if ! said=$(g++ -std=c++20 -O1 -fanalyzer "${flags[@]}" -I. -c "$1" -o /dev/null 2>&1); then
        printf '%s\n' "$said" >&2
        exit 1
    fi
    grep -o '\[-Wanalyzer[^]]*\]' <<<"$said" | tr -d '[]' | sort -u | sed "s#^#$1 #" || true
}
export -f findings_in

mapfile -t sources < <(ls digest/*.cpp checker/*.cpp text/*.cpp config/*.cpp system/*.cpp)
found=$(printf '%s\n' "${sources[@]}" | xargs -P "$(nproc)" -I{} bash -c 'findings_in {}' | sort)
allowed=$(grep -v '^#\|^$' quality/analyzer-suppressions.txt | sort)
if [ "$found" != "$allowed" ]; then
    echo "g++ -fanalyzer finds what it should not (>), or no longer what is suppressed (<):"
    diff <(echo "$allowed") <(echo "$found") | grep '^[<>]'
    exit 1
fi
echo "g++ -fanalyzer: ${#sources[@]} sources, nothing found but what is suppressed"
