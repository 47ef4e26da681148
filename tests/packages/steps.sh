# For the scripts beside it: each calls `step` for what it shows, and ends with `end_of_steps`.

passed=0 failed=0

# step WHAT COMMAND...: its output is shown only if it fails.
step() {
    local what=$1 output
    shift
    if output=$("$@" 2>&1); then
        passed=$((passed + 1))
        echo "ok: $what"
        return
    fi
    failed=$((failed + 1))
    echo "FAILED: $what"
    tail -n 30 <<<"$output" | sed 's/^/    /'
}

end_of_steps() {
    echo "$passed passed, $failed failed"
    [ $failed = 0 ] && [ $passed -gt 0 ]
    exit
}
