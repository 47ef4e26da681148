# For debian.sh beside it: a bare Debian 12 in which commands run, without changing the machine. The caller
# has set `root` (the project), and runs in a mount and process namespace of its own from enter_bare on.
#
# Two systems are made by debootstrap and kept as archives below build/bare: one with nothing but what
# every Debian has, and one with compilers besides.

bare_cache=$root/build/bare
bare=$bare_cache/system

# Prints why no such system can be made here, or nothing.
why_not_bare() {
    local program
    [ "$(id -u)" = 0 ] || { echo "only root can make a bare Debian"; return; }
    for program in apt-get debootstrap unshare chroot; do
        command -v $program >/dev/null || { echo "the program '$program' is missing"; return; }
    done
    unshare --mount --pid --fork true 2>/dev/null ||
        { echo "this machine allows no namespaces of mounts and processes"; return; }
    [ -n "$(debian_mirror)" ] || { echo "apt has no mirror of Debian 12"; return; }
    reach_mirror || echo "the Debian mirror $(debian_mirror) cannot be reached"
}

# The one that apt uses here.
debian_mirror() {
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT) $(ORIGIN)' \
        'Created-By: Packages' | awk '$2 == "bookworm" && $3 == "main" && $4 == "Debian" {
            sub(/\/$/, "", $1); print $1; exit }'
}

reach_mirror() {
    local file
    file=$(mktemp -u)
    /usr/lib/apt/apt-helper download-file "$(debian_mirror)/dists/bookworm/Release" "$file" \
        >/dev/null 2>&1
    local code=$?
    rm -f "$file"
    return $code
}

# Lets apt find the mirror as it does outside: keys, sources, proxies and all else that is configured.
copy_apt_configuration() {
    local part
    for part in apt.conf apt.conf.d auth.conf auth.conf.d keyrings preferences preferences.d \
        sources.list sources.list.d trusted.gpg trusted.gpg.d; do
        rm -rf "$bare/etc/apt/$part"
        [ ! -e "/etc/apt/$part" ] || cp -aL "/etc/apt/$part" "$bare/etc/apt/"
    done
    [ ! -d /usr/share/keyrings ] || cp -aL /usr/share/keyrings "$bare/usr/share/"
    cp -L /etc/resolv.conf /etc/hosts "$bare/etc/"
}

remove_bare() { rm -rf --one-file-system "$bare"; }

# A mirror with https needs certificates. Services are not to be started.
make_minimal() {
    local more=()
    [[ $(debian_mirror) != https:* ]] || more=(--include=ca-certificates)
    debootstrap --variant=minbase "${more[@]}" bookworm "$bare" "$(debian_mirror)" || return
    printf '#!/bin/sh\nexit 101\n' >"$bare/usr/sbin/policy-rc.d"
    chmod 755 "$bare/usr/sbin/policy-rc.d"
    chroot "$bare" useradd --create-home --shell /bin/bash tester
}

make_developer() {
    tar -xf "$bare_cache/minimal.tar" -C "$bare" || return
    enter_bare
    in_bare apt-get update && in_bare apt-get install --yes --no-install-recommends \
        gcc libc6-dev cmake make pkg-config
}

# make_archive minimal|developer: unless it is there.
make_archive() {
    local archive=$bare_cache/$1.tar log=$root/build/logs/bare-$1.log
    [ ! -e "$archive" ] || return 0
    remove_bare
    mkdir -p "$bare"
    "make_$1" >"$log" 2>&1 </dev/null || {
        tail -n 10 "$log" >&2
        echo "bare_debian: making the system '$1' failed; see $log" >&2
        return 1
    }
    rm -rf "$bare/var/cache/apt/archives"/*.deb
    tar -cf "$archive.new" --one-file-system -C "$bare" . && mv "$archive.new" "$archive"
}

enter_bare() {
    copy_apt_configuration
    mountpoint -q "$bare/proc" || mount -t proc proc "$bare/proc"
    mountpoint -q "$bare/sys" || { mount --bind /sys "$bare/sys" && mount -o remount,bind,ro "$bare/sys"; }
    mountpoint -q "$bare/dev" || mount --rbind /dev "$bare/dev"
}

leave_bare() {
    local folder
    for folder in dev sys proc; do
        ! mountpoint -q "$bare/$folder" || umount -R "$bare/$folder"
    done
}

# fresh_bare minimal|developer: unpacks the system as if it had just been installed.
fresh_bare() {
    leave_bare
    remove_bare
    mkdir -p "$bare"
    tar -xf "$bare_cache/$1.tar" -C "$bare" && enter_bare && in_bare apt-get update >/dev/null
}

in_bare() {
    chroot "$bare" env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
        HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive "$@" </dev/null
}
as_user() {
    in_bare setpriv --reuid=tester --regid=tester --init-groups env HOME=/home/tester USER=tester "$@"
}

# Every file with its kind, mode, owner and contents, except what apt and dpkg keep for themselves.
list_of_files() {
    (cd "$bare" && find . -xdev \( -path ./var/lib/apt -o -path ./var/lib/dpkg -o -path ./var/cache \
        -o -path ./var/log -o -path ./tmp -o -path ./home -o -path ./root \) -prune -o \
        -printf '%p %y %m %U:%G %l ' \( -type f -exec sha256sum {} \; -o -printf '\n' \)) |
        sed 's/ \([0-9a-f]\{64\}\)  .*/ \1/' | sort
}
