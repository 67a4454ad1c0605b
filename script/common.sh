# What script/run, script/test and .ci/run share. To be sourced by bash from the project's root.

say() {
    printf '%s\n' "$*" >&2
}

die() {
    say "error: $*"
    exit 1
}

# Packages that build the program, and those that the tests and the checks need beside them.
build_packages=(g++ cmake ninja-build pkg-config libncurses-dev)
test_packages=(libgtest-dev libgmock-dev libvterm-dev ncurses-term)
check_packages=(clang-format clang-tidy)
bench_packages=(libbenchmark-dev libinih-dev libsimpleini-dev)

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
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq \
        --no-install-recommends "${missing[@]}" >/dev/null || die "could not install: ${missing[*]}"
}

# Configures and builds a preset; what the tools print is shown only when they fail.
build_preset() {
    local preset=$1 log
    log=$(mktemp)
    say "building ($preset preset; the first time takes some minutes)"
    if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        die "the $preset preset could not be built"
    fi
    rm -f "$log"
}
