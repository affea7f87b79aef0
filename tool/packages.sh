# packages.sh: which Debian packages the project builds, runs and tests with, and their installation.
# Sourced by demo and check; works as root, or through sudo where there is one. Asks nothing.

# what both releases share
common_packages="cmake ninja-build ccache pkg-config git
    paraview paraview-dev python3-paraview python3-numpy
    libtbb-dev libboost-dev libgtest-dev libpcre2-dev libbenchmark-dev libhdf5-dev ncompress
    libutfcpp-dev libdouble-conversion-dev liblz4-dev libopenmpi-dev openmpi-bin
    xvfb xauth libgl1-mesa-dri locales"

packages_bookworm="g++ make clang-14 libclang-rt-14-dev $common_packages"

# Debian 11: CMake looks up more of ParaView's own dependencies there
packages_bullseye="g++ make $common_packages
    libxml2-dev libpdal-dev libgdal-dev libavcodec-dev libavformat-dev libavutil-dev libswscale-dev libgl2ps-dev
    libjsoncpp-dev liblzma-dev libnetcdf-dev libpng-dev libjpeg-dev libtiff-dev libexpat1-dev libfreetype-dev
    libglew-dev libogg-dev libtheora-dev libsqlite3-dev libproj-dev libcgns-dev libprotobuf-dev protobuf-compiler
    libqt5x11extras5-dev qttools5-dev qtbase5-dev libqt5svg5-dev python3-dev libxt-dev"

say() { printf '\n== %s\n' "$*"; }

as_root() { if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi; }

# install_packages NAME...: those that are missing
install_packages() {
    local missing=() p
    for p in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$p" 2>/dev/null)" = installed ] || missing+=("$p")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${#missing[@]} packages: ${missing[*]}"
    as_root apt-get update -q
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# ccache keeps builds warm, those of a fresh clone in the same place too
use_ccache() {
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CCACHE_NOHASHDIR=1
}
