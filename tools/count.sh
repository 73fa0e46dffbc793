# shellcheck shell=sh
# What tools/check and tools/check-target share: runs of tests, and how many passed and failed.
passed=0
failed=0

# Runs tests with the given arguments of tests/run, and adds what their last lines count.
count() {
    status=0
    tests/run "$@" >build/tests.log 2>&1 || status=$?
    [ "$status" -eq 0 ] || cat build/tests.log
    # Status 1 tells of tests that failed; any other, of a run that broke off.
    [ "$status" -le 1 ] || exit 1
    counts=$(grep -Ex '[0-9]+ passed, [0-9]+ failed' build/tests.log)
    echo "$counts"
    # shellcheck disable=SC2086  # a list of words
    set -- $counts
    passed=$((passed + $1))
    failed=$((failed + $3))
}

# Prints the sums, and ends with status 1 if anything failed.
total() {
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
