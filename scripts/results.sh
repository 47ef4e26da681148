# Read by scripts that run ctest: counts and names test cases from the results that one run left in a
# folder: ctest.xml, written by ctest, and one NAME.xml for each test program.

# count_cases FOLDER: prints how many cases passed, failed and were skipped. A program without XML
# counts as one case; so does the failure of one that failed none of its cases, or that crashed
# before it wrote its XML.
count_cases() {
    local results=$1 name status file
    [ -f "$results/ctest.xml" ] || { echo "0 0 0"; return; }
    programs "$results" |
        while read -r status name; do
            file=$results/$name.xml
            if [ -f "$file" ]; then
                echo "xml $status $(cases_in "$file")"
            else
                echo "plain $status 0 0 0"
            fi
        done |
        awk '{
                if ($1 == "xml") {
                    passed += $3; failed += $4; skipped += $5
                    if ($2 == "fail" && $4 == 0) failed++
                } else if ($2 == "run") passed++
                else if ($2 == "skip") skipped++
                else failed++
            }
            END { print passed + 0, failed + 0, skipped + 0 }'
}

# "STATUS NAME" of each program that ctest ran. STATUS is run, fail, skip if the program said so by its
# exit code, or notrun.
programs() {
    awk '
        function show() { if (name != "") print status, name }
        function field(key, rest) {
            rest = substr($0, index($0, " " key "=\"") + length(key) + 3)
            return substr(rest, 1, index(rest, "\"") - 1)
        }
        /<testcase / { show(); name = field("name"); status = field("status") }
        /<skipped message="SKIP_RETURN_CODE/ { status = "skip" }
        END { show() }' "$1/ctest.xml"
}

failed_programs() {
    [ ! -f "$1/ctest.xml" ] || programs "$1" | sed -n 's/^fail //p'
}

# Passed, failed and skipped cases of one GoogleTest XML file.
cases_in() {
    awk '/<testcase / {
            total++
            if (/status="notrun"/ || /result="skipped"/ || /result="suppressed"/) skipped++
            open = 1
        }
        /<failure/ && open { failed++; open = 0 }
        END { print total - failed - skipped, failed + 0, skipped + 0 }' "$1"
}

# failed_cases FOLDER PRESET: a line "PRESET: PROGRAM: SUITE.CASE" for each case that failed. Of a
# program that crashed, the case that it was running; of another program, its name alone.
failed_cases() {
    local name cases
    failed_programs "$1" | while read -r name; do
        cases=$(failed_in "$1/$name.xml")
        [ -n "$cases" ] || cases=$(last_begun "$name" "$2")
        [ -n "$cases" ] || cases="failed outside its cases"
        sed "s/^/$2: $name: /" <<<"$cases"
    done
}

# The names of the cases that failed, from one GoogleTest XML file.
failed_in() {
    [ ! -f "$1" ] || awk '
        function attribute(key) {
            if (!match($0, " " key "=\"[^\"]*\"")) return ""
            return substr($0, RSTART + length(key) + 3, RLENGTH - length(key) - 4)
        }
        /<testcase / { current = attribute("classname") "." attribute("name"); open = 1 }
        /<failure/ && open { print current; open = 0 }' "$1"
}

# The case that a program had begun and not ended when it ended itself, from ctest's log.
last_begun() {
    program_log "$1" "$2" | awk '
        /^\[ RUN      \]/ { current = $4 }
        /^\[       OK \]|^\[  FAILED  \]|^\[  SKIPPED \]/ { current = "" }
        END { if (current != "") print current " (the program ended in it)" }'
}

# What a program printed in ctest's last run.
program_log() {
    awk -v start="Testing: $1" '
        index($0, "Testing: ") { shown = substr($0, index($0, "Testing: ")) == start }
        shown' "build/$2/Testing/Temporary/LastTest.log" 2>/dev/null
}
