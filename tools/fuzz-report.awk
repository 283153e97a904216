# Tells of a fuzzer's run while it goes on, in few words; if it finds something, what that is, and how to
# see it again.
#
# Reads what a program of libFuzzer prints, keeps all of it in a file, and ends with the status that
# the last line, "exit status: N", tells.
#
# ... | awk -v program=PROGRAM -v inputs=FOLDERS -v log_file=FILE -f fuzz-report.awk

{
    print >log_file
}

/^INFO: Seed: / {
    seed = $3
    next
}

# As often as the number of inputs has doubled.
/^#[0-9]+[ \t]+(INITED|pulse|DONE)/ {
    if ($1 != last) {
        print "  " substr($1, 2) " inputs, " $4 " places in the code reached"
        fflush()
    }
    last = $1
    next
}

/^stat::average_exec_per_sec/ {
    rate = $2
    next
}

/^exit status: [0-9]+$/ {
    status = $3
    next
}

/: does not hold: / || /ERROR: / || /runtime error: / || /^ALARM: / {
    if (!has_found) {
        print ""
    }
    has_found = 1
}

/LeakSanitizer: detected memory leaks/ {
    is_leak = 1
}

# At the end of a run, when leaks are looked for, there is no input any more.
/Test unit written to / && !is_leak {
    input = $NF
}

has_found && !/^(stat|artifact_prefix|Base64)/ {
    print
}

END {
    if (status == 0) {
        print "  nothing found at " rate " inputs a second, with seed " seed
    } else if (is_leak) {
        print "\nTo see which input it is:\n\n    " program " -runs=0 -detect_leaks=1 " inputs
        print "\nAll that was said is in " log_file
    } else if (input) {
        print "\nThe input is " input ". To see it again:\n\n    " program " " input
        print "\nAll that was said is in " log_file
    } else {
        print "\nThe program ended with status " status ". All that was said is in " log_file
    }
    exit status
}
