#!/usr/bin/env bash
# paraview59.sh: builds and tests in a Debian 11 root, which has ParaView 5.9.0.
# A library built on a newer system does not load there (newer libstdc++ and TBB), so the build is done inside.
#
# The root is made when it is missing and kept outside the checkout, in $MARIVANE_ROOT59 or the user's cache
# folder; a broken one is made anew. Needs root rights (chroot). The sources are copied in, not mounted.
set -euo pipefail
cd "$(dirname "$0")/.."
. tool/packages.sh

root=${MARIVANE_ROOT59:-${XDG_CACHE_HOME:-$HOME/.cache}/marivane/paraview-5.9}

# the mirror that this system's own package sources name
mirror() {
    local m
    m=$(sed -n 's/^URIs:[[:space:]]*\([^[:space:]]*\).*/\1/p; s/^deb[[:space:]]\+\(\[[^]]*\][[:space:]]*\)\?\([a-z]*:[^[:space:]]*\)[[:space:]].*/\2/p' \
        /etc/apt/sources.list /etc/apt/sources.list.d/*.sources /etc/apt/sources.list.d/*.list 2>/dev/null |
        grep '/debian/*$' | head -n 1)
    [ -n "$m" ] || { echo "no Debian mirror found in this system's package sources" >&2; exit 1; }
    printf '%s\n' "$m"
}

in_root() { as_root chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive "$@"; }

if [ ! -e "$root/.complete" ]; then
    install_packages debootstrap ca-certificates
    say "making a Debian 11 root in $root"
    as_root rm -rf --one-file-system "$root"
    as_root mkdir -p "$root"
    as_root debootstrap --variant=minbase --include=ca-certificates bullseye "$root" "$(mirror)"
    as_root cp /etc/resolv.conf /etc/hosts "$root/etc/"
    [ -e /etc/apt/apt.conf.d/00proxy ] && as_root cp /etc/apt/apt.conf.d/00proxy "$root/etc/apt/apt.conf.d/"
    in_root apt-get update -q
    # shellcheck disable=SC2086
    in_root apt-get install -y -q --no-install-recommends $packages_bullseye
    as_root touch "$root/.complete"
fi
# shellcheck disable=SC2086
missing=$(for p in $packages_bullseye; do
    [ "$(as_root dpkg-query --admindir="$root/var/lib/dpkg" -W -f '${db:Status-Status}' "$p" 2>/dev/null)" = installed ] ||
        echo "$p"; done)
if [ -n "$missing" ]; then
    in_root apt-get update -q
    # shellcheck disable=SC2086
    in_root apt-get install -y -q --no-install-recommends $missing
fi

say "copying the sources into the root"
sources=$root/src/marivane
as_root mkdir -p "$root/src/next"
git ls-files -z --cached --others --exclude-standard | while IFS= read -r -d '' f; do
    [ -e "$f" ] && printf '%s\0' "$f"
done | tar --null -T - -cf - | as_root tar -xf - -C "$root/src/next"
# keep the time stamps of what did not change, so that the build inside stays warm
as_root mkdir -p "$sources"
(cd "$root/src/next" && find . -type f -print0) | while IFS= read -r -d '' f; do
    if ! as_root cmp -s "$root/src/next/$f" "$sources/$f"; then
        as_root mkdir -p "$sources/$(dirname "$f")"
        as_root cp -p "$root/src/next/$f" "$sources/$f"
    fi
done
(cd "$sources" && find . -path ./build -prune -o -type f -print0) | while IFS= read -r -d '' f; do
    [ -e "$root/src/next/$f" ] || as_root rm -f "$sources/$f"
done
as_root rm -rf "$root/src/next"
# a real run to test with, when there is one: test/CMakeLists.txt tells where
as_root rm -rf "$root/src/realRun"
for run in "${RDB_REAL_RUN:-}" ../*/data/disk; do
    [ -n "$run" ] && [ -e "$run/expected.npz" ] || continue
    as_root cp -r "$run" "$root/src/realRun"
    break
done

say "building and testing inside, on ParaView 5.9.0"
in_root bash -ec '
    mount -t proc proc /proc 2>/dev/null || true
    cd /src/marivane
    . tool/packages.sh
    use_ccache
    cmake -S . -B build/paraview59 -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DRDB_WERROR=ON -DRDB_EXPORT_ALL=ON \
        -DRDB_REAL_RUN=/src/realRun
    cmake --build build/paraview59
    cd build/paraview59
    status=0
    ctest --output-on-failure -j 2 || status=$?
    umount /proc 2>/dev/null || true
    exit $status'
