#!/bin/sh
# Includes between the rooms point one way. Reads the #include lines below the folder given and
# names each one that the table does not have; exit status 1 when there is any, or none to read.
set -eu
cd "$1"
grep -rsE --include='*.h' --include='*.cpp' '^ *# *include *"' \
    ini core ui symfiles charsets link files fileserver setup tools | awk -F '[:"]' '
BEGIN { # what each room may include beside itself
    may["core"] = "ini"
    may["ui"] = "ini core"
    may["symfiles"] = "ini core ui"
    may["charsets"] = "ini ui"
    may["link"] = "ini core ui"
    may["files"] = "ini core ui symfiles charsets link"
    may["config"] = may["files"] " files"
    may["fileserver"] = may["config"] " config"
    may["setup"] = may["fileserver"] " fileserver"
    may["tools"] = may["setup"] " setup"
}
# "core" are the records of core/; the loader, which ties the rooms together, is "config".
function room(path) {
    return path ~ /^core\/config[._]/ ? "config" : substr(path, 1, index(path, "/") - 1)
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
