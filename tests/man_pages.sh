#!/bin/sh
# The man pages against the sources in the folder given: names every option and item that stands on
# one side only, and whatever man warns about; exit status 1 when there is any.
set -eu
cd "$1"

# "section key" for every tag of a page, with n for n0, n1 and so on. Of the main headings two list
# names that the code knows.
listed() {
    sed 's/\\-/-/g; s/\\fI[^ ]*"//; s/^\.SS \[\(.*\)]/.SS \1/' "doc/man/$1" | tr -d '",' | awk '
        /^\.S[HS]/ { section = /^\.SS/ || /OPTIONS|COLOURS/ ? $2 : "" }
        /^\.SS/ { print section, "" }
        tag && section { for (i = 2; i <= NF; i++) { if (section != "OPTIONS") sub(/[0-9]+$/, "", $i); print section, $i } }
        { tag = $0 == ".TP" }'
}

# What the pattern finds in a file, in the form given.
found() {
    grep -oE "$2" "$1" | sed -E "s/$2/$3/"
}

# The options of a verb's table.
options() {
    found "$1" '\{"(-[-,A-Za-z0-9]+)"' 'OPTIONS \1' | sed 's/,/\nOPTIONS /'
}

# The same as `listed`, from the code that reads what the page is about.
known() {
    case $1 in
    kxsetup.1) found setup/command_line.cpp '"(-[-?A-Za-z]+|help)"' 'OPTIONS \1' ;;
    kx-init.1) found script/kx-init '(^    |\| )(--?[a-z]+)' 'OPTIONS \2' ;;
    kx.1) options tools/verbs.cpp ;;
    kx-*.1) verb=${1#kx-} && options "tools/verb_${verb%.1}.cpp" ;;
    kx.ini.5)
        for section in $(found setup/main_menu.cpp 'make_list\("\w+", "(\w+)"\)' '\1'); do
            found setup/main_menu.cpp 'section, "(\w+)"' "$section \\1"
        done
        found charsets/charset.cpp '\{"(\w+)", CHARSET' 'charsets \1' ;;
    kx-target.5)
        found core/config/config.cpp '\{"(\w+)", (nullptr|"(\w+)")\}' '\1 \3'
        found core/config/config.cpp '(target_|\W)doc, "(\w+)", "(\w+)"' '\2 \3'
        found core/config/config.cpp 'get_array\(\w+, "(\w+)"' '\1 n' ;;
    kx-colors.5)
        found ui/col.cpp '^    "(\w+)", "(\w+)",' 'colors \1\ncolors \2'
        found ui/col.cpp '\{"(\w+)", [0-9]+, [0-9]+\}' 'COLOURS \1' ;;
    kx-charset.5) found charsets/charset.cpp 'load_table\(.*"(\w+)"\)' '\1 n' ;;
    kx-patches.5)
        found link/patch.cpp 'msg_items_count\(doc, "(patches_auto)"' '\1 num'
        found link/patch.cpp '"(patches_auto)", (std::string\()?"(\w+)"' '\1 \3'
        found link/patch.cpp '(section, |read\()"(\w+)"(\)|, [mp]len)' '\\fINAME\\fP \2' ;;
    esac
    case $1 in
    kx-target.5 | kx-colors.5 | kx-charset.5)
        found setup/main_menu.cpp 'doc, \w+, "(config)", "(\w+)"' '\1 \2' ;;
    esac
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong=0
for page in $(cd doc/man && ls *.1) kx.ini.5 kx-target.5 kx-colors.5 kx-charset.5 kx-patches.5; do
    listed "$page" | sort -u >"$work/listed"
    known "$page" | sed '/^[A-Z]/!s/^\([^ ]*\) .*/&\n\1 /' | sort -u >"$work/known"
    diff -U 0 --label "$page" --label code "$work/listed" "$work/known" || wrong=1
    man --warnings -l "doc/man/$page" 2>&1 >"$work/text" | grep . && wrong=1
    grep -q 'SEE ALSO' "$work/text" || wrong=1
done
exit "$wrong"
