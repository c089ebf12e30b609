# SPDX-License-Identifier: MIT
#
# Sourced by ./run and ./test: installs the Debian packages that are missing, by name.

# What building and running needs, and what the tests need on top.
build_packages="g++ cmake ninja-build"
test_packages="$build_packages libgtest-dev libgmock-dev libinih-dev libbenchmark-dev python3 mandoc gnuplot-nox
    g++-arm-linux-gnueabi googletest qemu-user"

say() { printf '%s\n' "$*" >&2; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# install_missing PACKAGE...
install_missing() {
    missing=""
    for package in "$@"; do
        case "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" in
        installed) ;;
        *) missing="$missing $package" ;;
        esac
    done
    [ -n "$missing" ] || return 0
    say "Installing:$missing"
    as_root apt-get update -q >/dev/null
    # shellcheck disable=SC2086
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends $missing >/dev/null
}

# build PRESET [CMAKE OPTION...]: configures when that was not done yet, and builds what changed.
build() {
    preset=$1
    shift
    if [ ! -f "build/$preset/build.ninja" ] || [ $# -gt 0 ]; then
        say "Configuring: $preset"
        cmake --preset "$preset" "$@" >/dev/null
    fi
    say "Building: $preset"
    cmake --build "build/$preset" >"build/$preset/build.log" || {
        cat "build/$preset/build.log" >&2
        return 1
    }
}
