#!/bin/bash
# Every command that changes files, with each system call on them failing once, and the command
# killed at each: what was there is whole afterwards, the old or the new, nothing else lies about,
# and a failure is told. Argument: the build folder of programs without sanitizers.
set -u
build=$(cd "$1" && pwd) source=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/kxfaults.XXXXXX")
trap 'rm -rf "$work"' EXIT
PATH=$build:$PATH
if ! strace -o "$work/log" true 2>/dev/null; then
    echo "skipped: tracing is not allowed here"
    exit 77
fi

fail() { # WHAT
    echo "$command, $fault: $1"
    sed 's/^/    /' "$own/said" | head -n 5
    wrong=$((wrong + 1))
}

fresh() { # the directory as it is before the command
    rm -rf "$dir"
    cp -a "$work/before" "$dir"
}

# What the directory holds: names, and the content of the file that the command is about.
names() { ls -A "$dir"; }
content() { md5sum <"$dir/$target"; } 2>/dev/null

trace() { # INJECTION: runs the command with it; its status
    local paths=() path
    for path in "/$target" "/.$target.kxnew" "${reads[@]/#//}" ''; do
        paths+=(-P "$dir$path")
    done
    (cd "$dir" && KXPATH=$dir/ timeout 20 strace -f -qq -o "$own/log" "${paths[@]}" -e "$1" \
        "${program[@]}" >"$own/said" 2>&1 </dev/null)
} 2>/dev/null # the shell's own word of what was killed

judge() { # STATUS
    local now
    now=$(content)
    [ "$now" = "$old" ] || [ "$now" = "$new" ] || fail "$target is neither the old one nor the new"
    if [ "$1" -eq 137 ]; then # killed: what is left behind goes with the next run
        trace trace=none
        now=$(content)
    elif [ "$1" -ne 0 ] && [ ! -s "$own/said" ]; then
        fail "it ended with $1 without a word"
    elif [ "$1" -eq 0 ] && [ "$now" != "$new" ]; then
        [ "$failure" != status ] || fail "it failed with status 0"
        [ "$failure" != told ] || grep -qE 'No space|Input/output|Interrupted' "$own/said" ||
            fail "it is not told"
    fi
    [ "$(names)" = "$names_old" ] || [ "$(names)" = "$names_new" ] || fail "litter: $(names)"
}

# Runs the command with each call failing in turn, in a directory of its own; most of the time is
# spent waiting, so that all commands go at once. `target` is the file that it writes, `reads` are
# others that it opens. `failure` is how one shows: by the status, told in a line, or not at all, as
# the program has it.
faults() { # COMMAND...
    own=$work/$BASHPID dir=$work/$BASHPID/d runs=0 wrong=0
    mkdir "$own"
    command=$* program=("$@") fault=none
    fresh
    old=$(content) names_old=$(names)
    trace trace=none || fail "status $?"
    new=$(content) names_new=$(names)
    for call in openat read write fsync rename unlink ftruncate close; do
        for how in error=ENOSPC error=EIO error=EINTR signal=KILL; do
            for ((n = 1; n < 100; n++)); do
                fault="$call $how at $n"
                fresh
                trace "inject=$call:$how:when=$n"
                status=$?
                grep -q -e INJECTED -e 'killed by SIGKILL' "$own/log" || break
                judge "$status"
                runs=$((runs + 1))
            done
        done
    done
    echo "$runs runs, $wrong wrong: $command"
    [ "$wrong" -eq 0 ]
}

cp -R "$source/base" "$work/before" && cd "$work/before" || exit 1
head -c 3000 /dev/zero | tr '\0' x >one.prg
printf '\1\10\356\40\320\140' >code.prg
echo 'what was saved before' >saved
kx -q mkfs disc.d64 one.prg
failure=status

target=disc.d64 reads=(code.prg)
faults kx put disc.d64 code.prg &
reads=()
faults kx rm disc.d64 ONE &
faults kx mkfs -f disc.d64 &
target=new.d64
faults kx mkfs new.d64 &
target=ONE.prg reads=(disc.d64)
faults kx get disc.d64 ONE &
target=out.prg reads=(code.prg)
faults kx patch code.prg -o out.prg --patches patches/c64.ini --name no_flicker &
failure=told target=saved reads=() # a file of 300 bytes by the running program, over an old one
faults kx fake --request 'save SAVED 300' -- kx serve --once . &
failure=none
for target in kx.ini kxtest.ini; do
    faults script -qec "$build/kxsetup </dev/null" /dev/null &
done

status=0
for job in $(jobs -p); do
    wait "$job" || status=1
done
exit "$status"
