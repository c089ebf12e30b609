# SPDX-License-Identifier: MIT
#
# Sourced by ./run, ./test and tools: installs the Debian packages that are missing, by name, and builds a preset.
# shellcheck shell=sh disable=SC2034

# What building and running needs, what the tests need on top, and what the target's half of the tests needs.
build_packages="g++ cmake ninja-build libgtest-dev libgmock-dev"
test_packages="$build_packages make libinih-dev libbenchmark-dev mandoc gnuplot-nox lintian pkg-config"
target_packages="g++-arm-linux-gnueabi googletest qemu-user musl-dev:armel"
lint_packages="clang clang-format clang-tidy cppcheck shellcheck"
coverage_packages="gcovr"

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
    installed=$(dpkg-query -W -f '/${Package}/${Package}:${Architecture}/${db:Status-Status}\n' "$@" 2>/dev/null || true)
    missing=""
    for package in "$@"; do
        case "$installed" in
        */"$package"/*installed*) ;;
        *) missing="$missing $package" ;;
        esac
    done
    [ -n "$missing" ] || return 0
    [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null || {
        say "Packages are missing, and there is no sudo. As root: apt-get install$missing"
        exit 1
    }
    say "Installing:$missing"
    case "$missing" in
    *:armel*) as_root dpkg --add-architecture armel ;;
    esac
    # shellcheck disable=SC2086
    {
        as_root apt-get update -q &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
    } >build/install.log 2>&1 || {
        cat build/install.log >&2
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
