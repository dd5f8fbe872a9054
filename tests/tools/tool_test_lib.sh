# tool_test_lib.sh: what the scripts that drive the vorlan program share,
# sourced after they set `tool`: a scratch folder they work in (removed at
# exit, read-only parts too), a count of failures, and running the program
# with its output in the files out and err.
py=/usr/bin/python3
dir=$(mktemp -d)
trap 'chmod -R u+w "$dir" 2>/dev/null; rm -rf "$dir"' EXIT
cd "$dir" || exit 1

failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# run EXPECTED_STATUS ARGS...: runs the tool, its output in out and err.
run() {
    expected=$1
    shift
    "$tool" "$@" >out 2>err
    status=$?
    if [ "$status" -ne "$expected" ]; then
        fail "vorlan $* exited $status, not $expected: $(head -c 300 err)"
        return 1
    fi
    return 0
}

# finish NAME: the verdict of the script.
finish() {
    [ $failures -eq 0 ] || { echo "$failures failure(s)" >&2; exit 1; }
    echo "vorlan $1: all checks passed"
}
