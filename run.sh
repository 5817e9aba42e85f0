#!/usr/bin/env bash
# Starts the switchboard in the foreground, straight from a fresh checkout; Ctrl-C stops it.
#
#   ./run.sh                     an ordinary user starts the own switchboard; root starts the system switchboard for
#                                every ordinary account of the machine
#   ./run.sh --users 1000 1001   arguments are handed to the service as they are
#   ./run.sh demo                builds the examples too and shows the service at work (scripts/demo)
#   ./run.sh --help
#
# Missing Debian packages are installed when root runs this, and the programs are built as the preset release. When
# build/ belongs to somebody else, the programs that are there are started and it is said.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
bin=build/release/bin

usage() { sed -n '2,11s/^# \{0,1\}//p' "${BASH_SOURCE[0]}"; }
say() { printf 'run.sh: %s\n' "$*" >&2; }

# prepare TARGET...: builds the targets, or settles for the programs of somebody else's build folder.
prepare() {
    if [ ! -w build/release ] && [ -x $bin/switchboard ] && [ -x $bin/switchboardctl ]; then
        say "build/release belongs to $(stat --format %U build/release): starting the programs that are there"
        local newer
        newer=$(find Platform Common switchboard client tools \( -name '*.cpp' -o -name '*.h' \) \
            ! -name '*Test.cpp' -newer $bin/switchboard -newer $bin/switchboardctl -print -quit)
        [ -z "$newer" ] || say "they are older than $newer; have them built again by whoever owns the folder"
        return
    fi
    scripts/install-packages build
    [ -x $bin/switchboard ] || say "building; the first time takes a few minutes"
    scripts/build --quiet --programs-only release "$@"
}

# login_defs NAME DEFAULT: a number of the machine's account policy.
login_defs() {
    { cat /etc/login.defs 2> /dev/null || true; } |
        awk -v name="$1" -v value="$2" '$1 == name { value = $2 } END { print value }'
}

# The user ids of the ordinary accounts, one a line.
ordinary_users() {
    getent passwd | awk -F: -v min="$(login_defs UID_MIN 1000)" -v max="$(login_defs UID_MAX 60000)" \
        '$3 >= min && $3 <= max { print $3 }' | sort -nu
}

case ${1:-} in
    -h | --help) usage && exit 0 ;;
    demo)
        shift
        prepare switchboard switchboardctl examples
        exec scripts/demo "$@"
        ;;
esac

prepare switchboard switchboardctl
user=$(id --user --real)
if [ "$user" -eq 0 ]; then
    service=com.sevrin.switchboard
    scope=' --system'
    if [ $# -eq 0 ]; then
        mapfile -t users < <(ordinary_users)
        if [ ${#users[@]} -eq 0 ]; then
            # The service refuses an empty list. The id that the first account will get makes it serve root now and
            # that account as soon as it exists.
            users=("$(login_defs UID_MIN 1000)")
            say "this machine has no ordinary account: serving root, and the first account (user id ${users[0]})" \
                "once there is one. Create it with: useradd --create-home NAME"
        fi
        set -- --users "${users[@]}"
    fi
else
    service=com.sevrin.switchboard.$user
    scope=
fi

cat << TEXT
Starting $service; Ctrl-C stops it. To try from another terminal:

    $PWD/$bin/switchboardctl publish$scope com.example.clock
    $PWD/$bin/switchboardctl query$scope com.example.clock
    $PWD/$bin/switchboardctl monitor$scope

TEXT
exec $bin/switchboard "$@"
