# Tells of a run of tests while it goes on, in few words: a line for a hundred tests, each failure with
# all that the test said, and in the end what was skipped, for which reason, and the numbers.
#
# Reads what "ctest --verbose" or a program of GoogleTest prints, keeps all of it in a file, and ends
# with the status that the last line, "exit status: N", tells.
#
# ... | awk -v log_file=FILE -f test-report.awk

function count(what) {
    ++number[what]
    total = number["passed"] + number["failed"] + number["skipped"]
    if (total % 100 == 0) {
        tell(total " tests" (number["failed"] ? ", " number["failed"] " failed" : ""))
    }
}

function tell(text) {
    print text
    fflush()
}

function fail(name, said) {
    failures = failures "  " name "\n"
    tell("\n" said "FAILED: " name "\n")
    count("failed")
}

# The reason of what was skipped stands below a line that ends with "Skipped".
function skip(name, said) {
    sub(/^.*Skipped\n/, "", said)
    gsub(/\n+$/, "", said)
    gsub(/\n/, " ", said)
    skips = skips "  " name ": " said "\n"
    count("skipped")
}

{
    print >log_file
    source = ""
    line = $0
    if (line ~ /^test [0-9]+$/) {
        under_ctest = 1
    }
    if (under_ctest && match(line, /^[0-9]+: ?/)) {
        source = line
        sub(/:.*/, "", source)
        line = substr(line, RLENGTH + 1)
    }
}

# ---- What a program of GoogleTest says -----------------------------------------------------------

line ~ /^\[==========\]/ {
    # Behind the last test the names come once more.
    is_over[source] = line ~ / ran\./
    said[source] = ""
    next
}

line ~ /^\[ RUN      \]/ || line ~ /^\[-+\]/ {
    running[source] = line ~ /RUN/ ? ", in " substr(line, 14) : ""
    said[source] = ""
    next
}

line ~ /^\[(       OK|  FAILED|  SKIPPED) +\]/ {
    if (is_over[source]) {
        next
    }
    is_program[source] = 1
    running[source] = ""
    result = substr(line, 1, 12)
    name = substr(line, 14)
    sub(/ \([0-9]+ ms\)$/, "", name)
    if (result ~ /OK/) {
        count("passed")
    } else if (result ~ /SKIPPED/) {
        skip(name, said[source])
    } else {
        fail(name, said[source])
    }
    said[source] = ""
    next
}

# ---- What CTest says -----------------------------------------------------------------------------

source == "" && line ~ /^ *[0-9]+\/[0-9]+ +Test +#[0-9]+: / {
    source = line
    sub(/^[^#]*#/, "", source)
    sub(/:.*/, "", source)
    name = line
    sub(/^[^#]*#[0-9]+: /, "", name)
    result = name
    sub(/ .*/, "", name)
    sub(/^[^ ]+ [. ]*/, "", result)
    gsub(/ +/, " ", result)
    if (result ~ /^Passed/) {
        if (!is_program[source]) {
            count("passed")
        }
    } else if (result ~ /^\*+Skipped/) {
        skip(name, said[source])
    } else if (!is_program[source] || !is_over[source]) {
        # Otherwise it has told already which of its tests failed.
        sub(/^\*+/, "", result)
        fail(name " (" result ")" running[source], said[source])
    }
    delete said[source]
    next
}

source == "" && line ~ /^exit status: [0-9]+$/ {
    status = substr(line, 14)
    next
}

{
    said[source] = said[source] line "\n"
}

END {
    if (status != 0 && !under_ctest && !is_over[""]) {
        fail("the program ended with status " status running[""], said[""])
    }
    if (skips) {
        printf "\nSkipped:\n%s", skips
    }
    if (failures) {
        printf "\nFailed:\n%s", failures
    }
    if (status != 0) {
        printf "\nAll that was said is in %s\n", log_file
    }
    printf "\n%d passed, %d failed, %d skipped\n", number["passed"], number["failed"],
        number["skipped"]
    exit status
}
