#!/bin/bash
# results_test.sh ROOT: scripts/results.sh counts and names what fixed results say, and soak.sh ends
# non-zero with the names of the cases that failed. It takes no processor away here.
set -uo pipefail

cd "$1" || exit 1
. scripts/results.sh
preset=soak-script-test
results=$PWD/build/$preset/results
scratch=$(mktemp -d)
trap 'rm -rf "$scratch" "$PWD/build/$preset"' EXIT
failures=0

expect() {
    [ "$2" = "$3" ] && echo "ok: $1" && return
    failures=$((failures + 1))
    printf 'FAILED: %s\n--- expected\n%s\n--- found\n%s\n' "$1" "$2" "$3"
}

# write_results: seven programs' worth of results. One passed, with a skipped
# case; one failed two cases; one crashed in its second case; one failed after its cases; one has no
# XML; one was skipped; one was not found.
write_results() {
    local log=$PWD/build/$preset/Testing/Temporary/LastTest.log
    mkdir -p "$results" "${log%/*}"
    cat >"$results/good.xml" <<'XML'
<testcase name="Walks" status="run" result="completed" time="0" classname="Good" />
<testcase name="Runs" status="run" result="skipped" time="0" classname="Good">
</testcase>
XML
    cat >"$results/bad.xml" <<'XML'
<testcase name="One" file="f" status="run" result="completed" time="0" classname="Bad">
<failure message="no"></failure>
<failure message="again"></failure>
</testcase>
<testcase name="Two" file="f" status="run" result="completed" time="0" classname="Bad" />
<testcase name="Three" file="f" status="run" result="completed" time="0" classname="Bad">
<failure message="no"></failure>
</testcase>
XML
    cat >"$results/leaky.xml" <<'XML'
<testcase name="Ends" file="f" status="run" result="completed" time="0" classname="Leaky" />
XML
    cat >"$results/ctest.xml" <<'XML'
	<testcase name="good" classname="good" time="1" status="run">
	<testcase name="bad" classname="bad" time="1" status="fail">
	<testcase name="crashed" classname="crashed" time="1" status="fail">
	<testcase name="leaky" classname="leaky" time="1" status="fail">
	<testcase name="script" classname="script" time="1" status="run">
	<testcase name="unfit" classname="unfit" time="1" status="notrun">
		<skipped message="SKIP_RETURN_CODE=77"/>
	<testcase name="absent" classname="absent" time="0" status="notrun">
		<skipped message="Unable to find executable"/>
XML
    cat >"$log" <<'LOG'
1/5 Testing: crashed
[ RUN      ] Crash.First
[       OK ] Crash.First (0 ms)
[ RUN      ] Crash.Second
2/5 Testing: leaky
[ RUN      ] Leaky.Ends
[       OK ] Leaky.Ends (0 ms)
LOG
}

write_results
expect "cases are counted" "4 5 2" "$(count_cases "$results")"
expect "cases that failed are named" "p: bad: Bad.One
p: bad: Bad.Three
p: crashed: Crash.Second (the program ended in it)
p: leaky: failed outside its cases" "$(failed_cases "$results" $preset | sed "s/^$preset/p/")"
expect "nothing is counted without results" "0 0 0" "$(count_cases "$scratch")"

# soak.sh with a ctest that leaves these results, or good ones alone.
mkdir "$scratch/bin"
cat >"$scratch/bin/ctest" <<'SCRIPT'
#!/bin/bash
cp -r "$SCRATCH/results/." "$RESULTS/"
SCRIPT
chmod +x "$scratch/bin/ctest"
soak() {
    SCRATCH=$scratch RESULTS=$results SOAK_BUILD=no SOAK_PROCESSORS= SOAK_FOLDER=$scratch/soak \
        PATH=$scratch/bin:$PATH scripts/soak.sh "$@" >"$scratch/out" 2>&1
    echo $?
}
cp -r "$results" "$scratch/results"
expect "a failure ends soak.sh with 1" 1 "$(soak 2 $preset)"
expect "failures are counted by case" "2 $preset: bad: Bad.One" \
    "$(sed -n 's/^ *\([0-9]* .*Bad.One\)/\1/p' "$scratch/out" | tail -n 1)"
sed -i '/fail/d; /absent/d' "$scratch/results/ctest.xml"
expect "no failure ends it with 0" 0 "$(soak 1 $preset)"
rm "$scratch/results/ctest.xml"
expect "a round without results is a failure" 1 "$(soak 1 $preset)"
expect "it needs a number of rounds" 2 "$(soak none)"
exit $((failures > 0))
