#!/bin/sh
# In the test machine: runs every wanted test of every program alone, as ctest does, except those
# that are left out, and ends with the counts.
cd /build || exit
wanted=$(cat /tests/wanted)
passed=0 skipped=0 failed=0 left_out=0 failures=

run() { # TEST COMMAND...
    name=$1
    shift
    echo "$name" | grep -q -E "$wanted" || return
    if grep -q -x -F "$name" /tests/left-out.txt; then
        left_out=$((left_out + 1))
        return
    fi
    read -r begin _ </proc/uptime
    timeout 100 "$@" >/output 2>&1 </dev/null
    status=$?
    read -r end _ </proc/uptime
    took="$(echo "$begin $end" | awk '{printf "%.1f", $2 - $1}') s"
    if [ "$status" -ne 0 ]; then
        failed=$((failed + 1)) failures="$failures $name"
        cat /output
        echo "FAILED  $name (status $status, $took)"
    elif grep -q '^\[  SKIPPED \]' /output; then
        skipped=$((skipped + 1))
        cat /output
        echo "skipped $name"
    else
        passed=$((passed + 1))
        echo "passed  $name ($took)"
    fi
}

for program in target-tests/tests/*_test; do
    for name in $("./$program" --gtest_list_tests |
        awk '/^[^ ]/ {suite = $1} /^ / {print suite $1}'); do
        run "$name" "./$program" "--gtest_filter=$name"
    done
done
for name in $(target/tests/hosts/flash_host); do
    run "$name" target/tests/hosts/flash_host "$name"
done

for name in $failures; do
    echo "failed: $name"
done
echo "$left_out left out (tests/vm/left-out.txt)"
echo "$passed tests passed, $failed failed, $skipped skipped out of $((passed + failed + skipped))"
