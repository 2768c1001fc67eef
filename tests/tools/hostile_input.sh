#!/bin/sh
# The hidsensor process on inputs that once crashed it or ran away: each must
# end with exit status 2 (1 for a failed write) and one line on standard error.
tool="$1"
data="$2"
failures=0

check() {  # expected-status description command...
    expected=$1
    name=$2
    shift 2
    errors=$(timeout 60 "$@" 2>&1 >/dev/null)
    status=$?
    lines=$(printf '%s\n' "$errors" | wc -l)
    if [ "$status" -ne "$expected" ] || [ "$lines" -ne 1 ] || [ -z "$errors" ]; then
        echo "FAIL $name: status $status (want $expected), $lines line(s) on stderr: $(printf '%s' "$errors" | head -c 200)"
        failures=$((failures + 1))
    else
        echo "ok   $name: $errors"
    fi
}

dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
check 2 directory "$tool" inspect "$dir"
check 2 "binary /dev/zero" "$tool" inspect --binary /dev/zero
check 2 "text /dev/zero" "$tool" inspect /dev/zero
check 2 "50 MB pipe" sh -c "head -c 50000000 /dev/zero | \"$tool\" inspect --binary -"
check 2 "endless hex text" sh -c "yes '05 20 09 01' | \"$tool\" inspect -"
check 1 "full standard output" sh -c "\"$tool\" inspect \"$data\" >/dev/full"
[ "$failures" -eq 0 ]
