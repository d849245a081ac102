# The steps shared by ./run, ./test and .ci/run; source it with $root set to the top of the tree. Every function returns
# its status, so that callers decide what a failure means.

say() { printf '==> %s\n' "$*"; }

# quietly LOG COMMAND...: writes the output to LOG, and shows it only if the command fails.
quietly() {
    log=$1
    shift
    if "$@" >"$log" 2>&1 </dev/null; then return 0; else status=$?; fi
    sed 's/^/    /' "$log"
    say "Failed: $*"
    return $status
}

# folder_of PRESET: prints the preset's build folder.
folder_of() {
    case $1 in
    release) echo "$root/build" ;;
    *) echo "$root/build-$1" ;;
    esac
}

# build_preset PRESET [TARGET...]: configures and builds the targets; without a target those of the preset.
build_preset() {
    preset=$1
    shift
    folder=$(folder_of "$preset")
    mkdir -p "$folder" || return 1
    fresh=
    # CMake refuses the cache of a tree that was moved or copied.
    if [ -f "$folder/CMakeCache.txt" ] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$folder/CMakeCache.txt"
    then
        fresh=--fresh
    fi
    say "Building ($preset)"
    (
        cd "$root" || exit 1
        quietly "$folder/configure.log" cmake --preset "$preset" $fresh || exit 1
        # With a low priority: a test may run at the same time.
        quietly "$folder/build.log" nice cmake --build --preset "$preset" --parallel "$(nproc)" ${1:+--target "$@"}
    )
}

# test_preset PRESET [OPTION...]: runs the preset's tests; the options are ctest's. The results of all cases are written to test-results.xml and test-status
# in the build folder for tools/count-tests. The output is indented, so that no line of a test looks like the final one.
test_preset() {
    preset=$1
    shift
    folder=$(folder_of "$preset")
    mkdir -p "$folder" || return 1
    rm -f "$folder/test-results.xml" "$folder/test-status"
    say "Testing ($preset)"
    (
        cd "$root" || exit 1
        {
            status=0
            # One at a time: the guest and the programs must not be slowed past a time limit by other tests.
            # The whole output is kept, because the summaries are at its end.
            ctest --preset "$preset" "$@" --output-junit "$folder/test-results.xml" \
                --test-output-size-passed 100000000 --test-output-size-failed 100000000 </dev/null 2>&1 || status=$?
            echo $status >"$folder/test-status"
        } | sed -u 's/^/    /'
    )
    [ "$(cat "$folder/test-status" 2>/dev/null)" = 0 ]
}
