#!/bin/sh
# What people install works where they put it: kxsetup, kx-init, completion, and the library in a
# program of their own; and goes again. Arguments: build folder, C++ compiler, its flags, and "prefix"
# for a tree that is moved after its installation or "package" for the Debian packages in a root of
# their own.
set -eu
build=$1 cxx=$2 flags=$3 kind=$4
source=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kx install.XXXXXX")
trap 'chmod -R u+w "$work" && rm -rf "$work"' EXIT
cd "$work"

fail() {
    echo "FAILED: $*"
    exit 1
}

if [ "$kind" = prefix ]; then
    cmake --install "$build" --prefix "$work/first" >/dev/null
    cp -R first stage
    cmake --build "$build" --target uninstall >log 2>&1 || fail "uninstall: $(cat log)"
    [ ! -e first ] || fail "left behind: $(find first)"
else
    (cd "$build" && cpack -B "$work" && cpack --config CPackSourceConfig.cmake -B "$work") >log 2>&1 ||
        fail "cpack: $(cat log)"
    tar tf kx-*.tar.xz | sed 's|[^/]*/||' | sort >log
    (cd "$source" && git ls-files 2>/dev/null) | sort | comm -13 log - >missing
    [ -s log ] && [ ! -s missing ] || fail "the sources lack $(head -3 missing)"
    mkdir -p root/var/lib/dpkg/updates root/var/lib/dpkg/info
    touch root/var/lib/dpkg/status
    PATH=$PATH:/usr/sbin:/sbin fakeroot dpkg --root="$work/root" --log=/dev/null --force-depends \
        -i kx_*.deb libkx-dev_*.deb >log 2>&1 || fail "dpkg: $(cat log)"
    dpkg-deb -f kx_*.deb Depends | grep -q libncursesw6 || fail "kx does not depend on libncursesw6"
    dpkg-deb -f libkx-dev_*.deb Depends | grep -q libncurses-dev || fail "nor libkx-dev on its -dev"
    strays=$(find root -mindepth 1 -maxdepth 1 ! -name usr ! -name var)
    [ -z "$strays" ] || fail "the packages have $strays"
    mv root/usr stage
fi

# kx-init, through a link, with read-only files to copy, into a path that a shell would take apart.
export XDG_DATA_HOME="$work/it's \$HOME"
base=$XDG_DATA_HOME/kx
chmod -R a-w stage/share/kx
ln -s stage/bin/kx-init init
refused() { # TEXT COMMAND...
    text=$1 status=0
    shift
    "$@" >log 2>&1 || status=$?
    [ "$status $(wc -l <log)" = "1 1" ] && grep -qF -e "$text" log || fail "$*: $status $(cat log)"
}
refused "'--froce'" ./init --froce
XDG_DATA_HOME="$work/stage/share" refused itself ./init --force
mkdir fake
printf '#!/bin/sh\nmkdir "$4"\nexit 1\n' >fake/cp && chmod +x fake/cp
! PATH="$work/fake:$PATH" ./init >log 2>&1 && rmdir "$XDG_DATA_HOME" || fail "a failed copy stays"
eval "$(./init)"
[ "$KXPATH" = "$base" ] || fail "KXPATH is $KXPATH"
diff -r stage/share/kx "$base"
[ -z "$(find "$base" ! -perm -u=w)" ] || fail "the copy is read-only"
env -u KXPATH stage/bin/kxsetup --show-targets 2>&1 | grep -q '^none' || fail "it finds no base directory"
echo mine >"$base/kx.ini"
refused exists ./init
./init --force >log 2>&1 && ./init --force >log 2>&1 || fail "$(cat log)"
[ "$(cat "$base.bak/kx.ini")" = mine ] || fail "the backup is not what was there"
[ "$(ls "$XDG_DATA_HOME" | tr '\n' ' ')" = "kx kx.bak kx.bak.1 " ] || fail "$(ls "$XDG_DATA_HOME")"

# The library in a program of the user's own.
mkdir examples
cat "$source/README.md" "$source/doc/library.md" | awk '
    /^    (\/\/|#) [A-Za-z]*\.(cpp|txt)$/ { file = "examples/" $2 }
    !/^(    |$)/ { file = "" }
    file { print substr($0, 5) >file }'
{ cmake -G Ninja -S examples -B out -DCMAKE_PREFIX_PATH="$work/stage" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="$flags" && cmake --build out; } >log 2>&1 || fail "find_package: $(cat log)"
export PKG_CONFIG_PATH="$work/stage/lib/pkgconfig"
for example in examples/*.cpp; do
    eval "$cxx $flags -std=c++20 $example $(pkg-config --cflags --libs kx) -o ${example%.cpp}" ||
        fail "$example"
done
printf '\000\300\140' >game.prg
for program in out/start examples/start; do
    stage/bin/kx fake --log -- sh -c './$0 game.prg $KX_PORT' $program >log 2>&1 &&
        grep -q 'run .* 41 4B' log || fail "$program: $(cat log)"
done
stage/bin/kxsetup --version 2>&1 | grep '^KXSETUP v0.1 '

# Completion: what kx says of the place where the last word stands, in each shell; files where it
# says nothing.
export PATH="$work/stage/bin:$PATH"
completed() { # SHELL WORD...
    case $1 in
    bash) bash -c '. stage/share/bash-completion/completions/"$1"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
        _kx kx "${COMP_WORDS[COMP_CWORD]#\"}" "${COMP_WORDS[COMP_CWORD - 1]}"; printf "%s\n" "${COMPREPLY[@]}"' "$@" ;;
    zsh) zsh -fc '_describe() { print -l -- $lines }; _files() { ls -d $words[CURRENT]* }
        words=("$@") CURRENT=$#; . stage/share/zsh/*/_kx' "$@" ;;
    fish) HOME=$work XDG_CONFIG_HOME='' fish -c 'set -e argv[1]
        source stage/share/fish/vendor_completions.d/$argv[1].fish; complete -C "$argv"' "$@" ;;
    esac | tr '\t\n' ':,'
}
kx mkfs -q 'a disc.d64' && kx put -q 'a disc.d64' game.prg -N "a game"
for shell in bash zsh fish; do
    found="$(completed $shell kx get a\\\ disc.d64 '')$(completed $shell kxsetup -t non)"
    found="$found$(completed $shell kx put a\\\ disc.d64 game)"
    case $shell/$found in
    bash/'A\ GAME,none,,' | zsh/A\ GAME:PRG,*none,*game.prg, | fish/A\ GAME:PRG,none,game.prg,) ;;
    *) fail "$shell completes: $found" ;;
    esac
done
[ "$(completed bash kx get 'a\ disc.d64' '"a')" = 'A GAME,' ] || fail "bash completes in open quotes"
