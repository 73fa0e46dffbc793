# shellcheck shell=sh
# Functions of tools/check and tools/check-target: run tests, and count how many passed and failed.
passed=0
failed=0

# Runs tests/run with the given arguments, and adds the counts of its last line.
count() {
    status=0
    tests/run "$@" >build/tests.log 2>&1 || status=$?
    [ "$status" -eq 0 ] || cat build/tests.log
    # Status 1: some tests failed. A higher status: the run was not completed.
    [ "$status" -le 1 ] || exit 1
    counts=$(grep -Ex '[0-9]+ passed, [0-9]+ failed' build/tests.log)
    echo "$counts"
    # shellcheck disable=SC2086  # a list of words
    set -- $counts
    passed=$((passed + $1))
    failed=$((failed + $3))
}

# Prints the totals. Gives status 1 if anything failed.
total() {
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ]
}
