# shellcheck shell=bash disable=SC2034
# What the scripts of this folder and .ci/run share. To be sourced by bash from the project's root.

say() {
    printf '%s\n' "$*" >&2
}

die() {
    say "error: $*"
    exit 1
}

# Packages that build the program, and those that the tests and the checks need beside them.
build_packages=(g++ cmake ninja-build pkg-config libncurses-dev libcli11-dev nlohmann-json3-dev)
test_packages=(libgtest-dev libgmock-dev libvterm-dev ncurses-term cc65 cc1541 cbmconvert jq
    dpkg-dev file fakeroot man-db strace zsh fish)
check_packages=(clang-format clang-tidy shellcheck)
bench_packages=(libbenchmark-dev libinih-dev libsimpleini-dev)
fuzz_packages=(clang libclang-rt-14-dev)
valgrind_packages=(valgrind bsdutils)

# Runs a command; what it prints is shown only when it fails.
quietly() {
    local log status=0
    log=$(mktemp)
    "$@" >"$log" 2>&1 || status=$?
    [ "$status" -eq 0 ] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}

# Installs what is missing of the packages named, from Debian.
need_packages() {
    local missing=() package as_root=()
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null)" != 'install ok installed' ]; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "these packages are missing, and there is neither root nor sudo to install them: ${missing[*]}"
        as_root=(sudo)
    fi
    command -v apt-get >/dev/null || die "these packages are missing, and this system has no apt-get: ${missing[*]}"
    say "installing from Debian's packages: ${missing[*]}"
    # A list that could not be refreshed is no failure yet: the packages may be had all the same.
    "${as_root[@]}" apt-get update -qq >/dev/null 2>&1 || true
    quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
        --no-install-recommends "${missing[@]}" || die "could not install: ${missing[*]}"
}

# Configures and builds a preset.
build_preset() {
    say "building ($1 preset; the first time takes some minutes)"
    quietly cmake --preset "$1" && quietly cmake --build --preset "$1" ||
        die "the $1 preset could not be built"
}
