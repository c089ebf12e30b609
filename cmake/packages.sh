# SPDX-License-Identifier: MIT
#
# Sourced by ./run, ./test and tools: installs the Debian packages that are missing, by name, and builds a preset.
# shellcheck shell=sh disable=SC2034

# What building and running needs, what the tests need on top, what those of many cameras need, what the target's half of the
# tests needs, and what fuzzing needs.
build_packages="g++ cmake ninja-build libfuse3-dev libgtest-dev libgmock-dev"
test_packages="$build_packages make libinih-dev libbenchmark-dev mandoc python3-matplotlib chromium chromium-driver python3-selenium lintian pkg-config valgrind strace jq python3-jsonschema prometheus tmux"
fleet_packages="ansible-core openssh-server iproute2 prometheus prometheus-node-exporter"
target_packages="g++-arm-linux-gnueabi googletest qemu-user musl-dev:armel qemu-system-arm cpio"
fuzz_packages="clang libclang-rt-dev"
# Not installed but unpacked, for the target: a kernel to emulate, a shell on it, and what camSim serves nodes with.
unpacked_packages="linux-image-rpi busybox-static libfuse3-3"
unpacked=build/arm-linux-gnueabi
lint_packages="clang clang-format clang-tidy cppcheck shellcheck pyflakes3 black"
coverage_packages="gcovr"
bench_packages="$test_packages $target_packages i2c-tools gpiod"

say() { printf '%s\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# own_build: the folder build/ is there and everything in it that a build writes can be written, or one line says what to do.
own_build() {
    mkdir -p build 2>/dev/null || :
    # shellcheck disable=SC2185
    locked=$([ -d build ] && find build -maxdepth 2 ! -type l ! -writable -print -quit || echo .)
    [ -z "$locked" ] || {
        say "$PWD: $locked cannot be written by $(id -un): make the tree yours (chown -R), or work in a copy of it"
        exit 1
    }
}

# lock NAME FD: one process at a time; the lock ends with the descriptor.
lock() {
    eval "exec $2>build/.$1.lock"
    flock -n "$2" || {
        say "Waiting until another $1 in this tree has ended"
        flock "$2"
    }
}

# install_missing PACKAGE[:ARCHITECTURE]...
install_missing() {
    lock install 7
    # Those that others only suggest are known, too: as not-installed.
    installed=$(dpkg-query -W -f '${db:Status-Status} /${Package}/${Package}:${Architecture}/\n' "$@" 2>/dev/null | grep '^installed ' || true)
    missing=""
    for package in "$@"; do
        case "$installed" in
        */"$package"/*) ;;
        *) missing="$missing $package" ;;
        esac
    done
    [ -n "$missing" ] || {
        exec 7>&-
        return 0
    }
    [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || {
        say "Packages are missing, and there is no sudo. As root: apt-get install$missing"
        exit 1
    }
    say "Installing:$missing"
    case "$missing" in
    *:armel*) as_root dpkg --add-architecture armel ;;
    esac
    # Servers among them are for the tests, which start them themselves.
    policy=/usr/sbin/policy-rc.d
    if [ -e $policy ]; then policy=""; else printf '#!/bin/sh\nexit 101\n' | as_root install -m 755 /dev/stdin $policy; fi
    # shellcheck disable=SC2086
    {
        as_root apt-get update -q &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
    } >build/install.log 2>&1 || installing=failed
    [ -z "$policy" ] || as_root rm -f $policy
    [ -z "${installing:-}" ] || {
        cat build/install.log >&2
        return 1
    }
    exec 7>&-
}

# unpack_missing: the unpacked packages are there, each of them for armel.
unpack_missing() {
    [ "$(cat $unpacked/packages 2>/dev/null)" != "$unpacked_packages" ] || return 0
    say "Unpacking: $unpacked_packages"
    rm -rf $unpacked
    mkdir -p $unpacked
    (
        cd $unpacked
        download() {
            # The kernel's own package bears its version.
            kernel=$(apt-cache depends linux-image-rpi:armel | sed -n 's/.*Depends: \(linux-image-[^: ]*\).*/\1/p' | head -n 1)
            # shellcheck disable=SC2046
            apt-get download -q $(echo "$unpacked_packages" | sed "s/linux-image-rpi/$kernel/; s/ \|$/:armel /g")
        }
        download || { as_root apt-get update -q && download; }
        for package in *.deb; do dpkg -x "$package" .; done
        rm ./*.deb
        find lib/modules -name '*.ko' ! -path '*/fuse/*' -delete
        echo "$unpacked_packages" >packages
    ) >build/unpack.log 2>&1 || {
        cat build/unpack.log >&2
        return 1
    }
}

# build PRESET TARGET...: configures when that was not done yet, or not here, or not as the presets say now; builds what
# changed. One build at a time.
build() {
    preset=$1
    shift
    lock build 9
    cache=build/$preset/CMakeCache.txt
    if [ -f "$cache" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" "$cache"; then
        say "Removing what was built elsewhere: $preset"
        rm -rf "build/$preset"
    fi
    if [ ! -f "build/$preset/build.ninja" ] || [ -n "$(find CMakePresets.json -newer "$cache")" ]; then
        say "Configuring: $preset"
        cmake --preset "$preset" >/dev/null 9>&-
    fi
    say "Building: $preset"
    cmake --build "build/$preset" --target "$@" >"build/$preset/build.log" 9>&- || {
        cat "build/$preset/build.log" >&2
        return 1
    }
    exec 9>&-
}
