# shellcheck shell=bash
# A bare Debian system in a directory, for the scripts beside this file that source it. Needs root, debootstrap
# and the lists of `apt-get update`.

root=

# debian_sources: prints URI, code name and component of each source of Debian that this machine's apt
# is configured with.
debian_sources() {
    # shellcheck disable=SC2016 # apt expands it
    apt-get indextargets --format '$(REPO_URI) $(CODENAME) $(COMPONENT) $(ORIGIN)' \
        'Created-By: Packages' | sed -n 's/ Debian$//p'
}

# own_suite: prints the code name of this machine's release.
own_suite() (
    # shellcheck source=/dev/null
    . /etc/os-release
    echo "$VERSION_CODENAME"
)

# sources_list SUITE: prints this machine's sources of Debian, with its own suite replaced by SUITE.
sources_list() {
    local own uri name component
    own=$(own_suite)
    while read -r uri name component; do
        if [[ $name == "$own"* ]]; then
            printf 'deb %s %s %s\n' "$uri" "$1${name#"$own"}" "$component"
        fi
    done < <(debian_sources)
}

# mirror SUITE: prints the URI from which SUITE itself comes.
mirror() {
    sources_list "$1" | awk -v suite="$1" '$3 == suite && $4 == "main" { print $2; exit }'
}

# configure_apt SUITE: gives the root this machine's sources, proxies and timeouts.
configure_apt() {
    sources_list "$1" >"$root/etc/apt/sources.list"
    apt-config dump | grep '^Acquire::' | grep -v '^Acquire::IndexTargets' >"$root/etc/apt/apt.conf.d/90machine"
    cp /etc/hosts /etc/resolv.conf "$root/etc/"
    local certificates=/etc/ssl/certs/ca-certificates.crt
    if [ -e "$certificates" ]; then
        mkdir -p "$root/etc/ssl/certs"
        cp "$certificates" "$root$certificates"
    fi
}

# make_bare_root SUITE: makes the root, which is removed when the script ends.
make_bare_root() {
    local from
    from=$(mirror "$1")
    if [ -z "$from" ]; then
        echo "$0: apt has no lists of Debian's packages: run 'apt-get update'" >&2
        exit 1
    fi
    root=$(mktemp -d "/var/tmp/bare-$1-XXXXXX")
    trap 'rm -rf --one-file-system "$root"' EXIT
    chmod 755 "$root"
    eval "$(apt-config shell http_proxy Acquire::http::Proxy)"
    http_proxy=${http_proxy:-} debootstrap --variant=minbase "$1" "$root" "$from" >"$root.log" 2>&1 || {
        cat "$root.log" >&2
        rm "$root.log"
        exit 1
    }
    rm "$root.log"
    configure_apt "$1"
}

# inside COMMAND: what a person types in the root, as root in /root. Its mounts and processes end with it.
inside() {
    # shellcheck disable=SC2016 # the inner shell expands it
    unshare --mount --pid --fork --kill-child sh -c '
        mount -t proc proc "$1/proc" &&
        mount -t devpts -o newinstance,ptmxmode=0666,gid=5 devpts "$1/dev/pts" &&
        exec chroot "$1" /usr/bin/env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
            HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive MANPAGER=cat MANWIDTH=80 \
            sh -c "cd /root && $2"' sh "$root" "$1"
}
