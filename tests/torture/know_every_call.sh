#!/bin/sh
# Whether every name that a library takes from elsewhere is known here:
#     know_every_call.sh NM LIBRARY WRAPPED
set -eu
known=" $3 $(grep -v '^#' "$(dirname "$0")/not-wrapped.txt" | tr '\n' ' ') "
status=0
for name in $("$1" --dynamic --undefined-only --format=posix "$2" | sed -n 's/[@ ].*U.*//p'); do
    case $known in
    *" $name "*) ;;
    *)
        echo "$name is called, but not known to the torture"
        status=1
        ;;
    esac
done
exit $status
