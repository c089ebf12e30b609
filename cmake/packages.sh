# SPDX-License-Identifier: MIT
#
# Sourced by ./run and ./test: installs the Debian packages that are missing, by name, and builds a preset.

# What building and running needs, what the tests need on top, and what the target's half of the tests needs.
build_packages="g++ cmake ninja-build libgtest-dev libgmock-dev"
test_packages="$build_packages libinih-dev libbenchmark-dev mandoc gnuplot-nox lintian pkg-config"
target_packages="g++-arm-linux-gnueabi googletest qemu-user musl-dev:armel"

say() { printf '%s\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
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
    say "Installing:$missing"
    case "$missing" in
    *:armel*) as_root dpkg --add-architecture armel ;;
    esac
    mkdir -p build
    # shellcheck disable=SC2086
    {
        as_root apt-get update -q &&
            as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing
    } >build/install.log 2>&1 || {
        cat build/install.log >&2
        return 1
    }
}

# build PRESET TARGET...: configures when that was not done yet, and builds what changed.
build() {
    preset=$1
    shift
    if [ ! -f "build/$preset/build.ninja" ]; then
        say "Configuring: $preset"
        cmake --preset "$preset" >/dev/null
    fi
    say "Building: $preset"
    cmake --build "build/$preset" --target "$@" >"build/$preset/build.log" || {
        cat "build/$preset/build.log" >&2
        return 1
    }
}
