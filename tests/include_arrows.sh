#!/bin/sh
# Includes between the rooms point one way. Reads the #include lines below the folder given and
# names each one that the table does not have; exit status 1 when there is any, or none to read.
set -eu
cd "$1"
grep -rsE --include='*.h' --include='*.cpp' '^ *# *include *"' \
    util ini core ui symfiles charsets link files fileserver session setup tools | awk -F '[:"]' '
BEGIN { # what each room may include beside itself
    may["util"] = ""
    may["ini"] = "util"
    may["core"] = "util ini"
    may["ui"] = "util ini"
    may["symfiles"] = "util ini core ui"
    may["charsets"] = "util ini ui"
    may["link"] = "util ini core ui"
    may["files"] = "util ini core ui symfiles charsets link"
    may["core/config"] = may["files"] " files"
    may["fileserver"] = may["core/config"] " core/config"
    may["session"] = may["fileserver"] " fileserver"
    may["setup"] = may["session"] " session"
    may["tools"] = may["setup"] " setup"
}
function room(path) {
    sub("/[^/]*$", "", path)
    return path
}
index(" " room($1) " " may[room($1)] " ", " " room($3) " ") == 0 {
    print $1 ": may not include \"" $3 "\""
    wrong = 1
}
END {
    if (NR == 0)
        print "no #include lines found"
    exit wrong || NR == 0
}'
