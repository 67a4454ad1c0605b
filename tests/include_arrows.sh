#!/bin/sh
# Includes between the rooms point one way. Reads the #include lines below the folder given and
# names each one that the table does not have; exit status 1 when there is any.
set -eu
cd "$1"

# What each room may include beside itself. "core" stands for the records of core/, without the
# loader core/config, which ties the rooms together and has a line of its own.
table='
ini:
core: ini
ui: ini core
symfiles: ini core ui
charsets: ini ui
link: ini core ui
files: ini core ui symfiles charsets link
config: ini core ui symfiles charsets link files
fileserver: ini core ui symfiles charsets link files config
setup: ini core ui symfiles charsets link files config fileserver
tools: ini core ui symfiles charsets link files config fileserver setup
'

room_of() {
    case $1 in
    core/config | core/config.* | core/config_*) echo config ;;
    *) echo "${1%%/*}" ;;
    esac
}

files=$(find ini core ui symfiles charsets link files fileserver setup tools \
    \( -name '*.h' -o -name '*.cpp' \) 2>/dev/null) || true # a room may not be there
count=0
wrong=0
for file in $files; do
    room=$(room_of "$file")
    allowed=" $room $(printf '%s' "$table" | sed -n "s/^$room: *//p") "
    for header in $(sed -n 's/^ *# *include *"\([^"]*\)".*/\1/p' "$file"); do
        count=$((count + 1))
        case $allowed in
        *" $(room_of "$header") "*) ;;
        *)
            echo "$file: may not include \"$header\""
            wrong=1
            ;;
        esac
    done
done
if [ "$count" -eq 0 ]; then
    echo "no #include lines found below $1"
    exit 1
fi
exit "$wrong"
