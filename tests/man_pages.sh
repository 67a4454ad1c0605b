#!/bin/sh
# The man pages against the sources in the folder given, and against the help of kx, the program
# given second: names every option and item that stands on one side only, and whatever man warns
# about; exit status 1 when there is any.
set -eu
cd "$1"
kx=$2

# "section key" for every tag of a page, with n for n0, n1 and so on. Of the main headings two list
# names that the code knows.
listed() {
    cut='[0-9]+$' keep=.
    case $1 in
    kx-init.1) ;;
    kx.1 | kx-*.1) cut='[=[].*' keep='^-' ;; # the values of options stand in their tags
    esac
    sed 's/\\-/-/g; s/\\fI[^ ]*"//; s/^\.SS \[\(.*\)]/.SS \1/' "doc/man/$1" | tr -d '",' |
        awk -v cut="$cut" -v keep="$keep" '
        /^\.S[HS]/ { section = /^\.SS/ || /OPTIONS|COLOURS/ ? $2 : "" }
        /^\.SS/ { print section, "" }
        tag && section { for (i = 2; i <= NF; i++) { sub(cut, "", $i); if ($i ~ keep) print section, $i } }
        { tag = $0 == ".TP" }'
}

# What the pattern finds in a file, in the form given.
found() {
    grep -oE "$2" "$1" | sed -E "s/$2/$3/"
}

# The options that the help of kx, or of a verb, lists.
options() {
    "$kx" "$@" --help | grep -oE '^ +-[^ =[]+(, --[a-z-]+)?' | tr -d ' ' | tr , '\n' |
        sed 's/^/OPTIONS /'
}

# The same as `listed`, from the code that reads what the page is about.
known() {
    case $1 in
    kxsetup.1) found setup/command_line.cpp '"(-[-?A-Za-z]+|help)"' 'OPTIONS \1' ;;
    kx-init.1) found script/kx-init '(^    |\| )(--?[a-z]+)' 'OPTIONS \2' ;;
    kx.1) options ;;
    kx-*.1) verb=${1#kx-} && options "${verb%.1}" ;;
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
verbs=$("$kx" --help | sed -n 's/^  \([a-z][a-z]*\) .*/kx-\1.1/p')
for page in kxsetup.1 kx-init.1 kx.1 $verbs kx.ini.5 kx-target.5 kx-colors.5 kx-charset.5 kx-patches.5; do
    listed "$page" | sort -u >"$work/listed"
    known "$page" | sed '/^[A-Z]/!s/^\([^ ]*\) .*/&\n\1 /' | sort -u >"$work/known"
    diff -U 0 --label "$page" --label code "$work/listed" "$work/known" || wrong=1
    MANWIDTH=80 MAN_KEEP_FORMATTING='' man --warnings -l "doc/man/$page" 2>&1 >"$work/text" | grep . && wrong=1
    grep -q 'SEE ALSO' "$work/text" || wrong=1
done
# The list of commands in kx.1, and what each one does.
"$kx" --help | sed -n 's/^  \([a-z][a-z]*\) *\(.*\)/.B \1\n\2/p' >"$work/known"
sed -n '/^\.SH COMMANDS/,/^\.SH OPTIONS/{/^\.B [a-z]*$/{p;n;p}}' doc/man/kx.1 | sed 's/\\-/-/g' |
    diff - "$work/known" || wrong=1
exit "$wrong"
