# Shared by the scripts of this folder (sourced, not run): where the project lies, how its presets are built, how a
# job's result is counted.
set -u -o pipefail

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
readonly project_root
results_dir=$project_root/build/results
processors=$(nproc)
readonly results_dir processors

export CTEST_OUTPUT_ON_FAILURE=1
# Test builds go through ccache where it is installed; packages never do (scripts/package clears this).
if [ -z "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && command -v ccache >/dev/null; then
  export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
  # Clones of the project in other folders find each other's objects.
  export CCACHE_BASEDIR=$project_root CCACHE_NOHASHDIR=1
  # Nothing here uses __TIME__; without this, files with a precompiled header are never found.
  export CCACHE_SLOPPINESS=pch_defines,time_macros
fi

# show_usage: the head of the running script, and its jobs if it has some.
show_usage() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
  [ -z "${all_jobs+set}" ] || printf '\njobs: %s\n' "$(known_jobs)"
}

# refuse WHAT...: ends the script, which cannot be called like that.
refuse() {
  printf '%s\n' "$*" >&2
  show_usage >&2
  exit 2
}

# answer_help "OPTION..." WORD...: shows the usage and ends where the script's words ask for it; an option that is none of
# these, a list in one word, is refused. Every script calls it before it does anything.
answer_help() {
  local options=" $1 " word
  shift
  for word in "$@"; do
    case $word in
      -h | --help)
        show_usage
        exit 0
        ;;
    esac
  done
  for word in "$@"; do
    case $word in
      -*) [[ $options == *" $word "* ]] || refuse "unknown option '$word'" ;;
    esac
  done
}

say() { printf '\n== %s\n' "$*"; }
fail() {
  printf '%s\n' "$*" >&2
  exit 1
}

# build_preset PRESET [TARGET...]: configures and builds a preset; the whole of it, or the named targets. A compiler can
# wait; tests that run beside it have patience of milliseconds to show.
build_preset() {
  local preset=$1
  shift
  (cd "$project_root" && cmake --preset "$preset" -Wno-dev >"$results_dir/$preset.configure.log" 2>&1) || {
    cat "$results_dir/$preset.configure.log"
    return 1
  }
  if [ $# -gt 0 ]; then
    nice -n 19 cmake --build "$project_root/build/$preset" -j "$processors" --target "$@" -- --quiet
  else
    nice -n 19 cmake --build "$project_root/build/$preset" -j "$processors" -- --quiet
  fi
}

# record JOB PASSED FAILED: one line per job, added up by report_totals.
record() { printf '%s %d %d\n' "$1" "$2" "$3" >>"$results_dir/counts"; }

# run_ctest JOB PRESET [CTEST ARGUMENT...]: runs a built preset's tests and records the counts. A run without tests and
# a test that is skipped, disabled or not run are failures. Many tests wait most of their time, so more run at once than
# there are processors.
run_ctest() {
  local job=$1 preset=$2
  shift 2
  local xml=$results_dir/$job.xml build=$project_root/build/$preset
  rm -rf "$xml" "$build/test-reports"
  (cd "$build" &&
    ctest --no-tests=error --timeout 300 -j $((processors * 2)) --output-junit "$xml" "$@") |
    grep -vE '^ +Start +[0-9]+: |  Passed  '
  local code=${PIPESTATUS[0]}
  local passed=0 failed=0
  if [ -s "$xml" ]; then
    read -r passed failed < <("$project_root/scripts/count_tests.py" "$xml" "$build") || failed=1
  fi
  if [ "$passed" -eq 0 ] || { [ $code -ne 0 ] && [ "$failed" -eq 0 ]; }; then
    failed=$((failed + 1))
  fi
  record "$job" "$passed" "$failed"
  [ "$failed" -eq 0 ]
}

# What depends on no compiler, the dev job tests: the dissector, the page in a browser, builds in other projects, surveys
# of controllers that differ.
compiled_tests=(--label-exclude "dissector|browser|embedding|survey")
# Of where memory was taken, the nearest frame is told: more takes a tenth of the tests' time. A failed test run by hand
# tells all.
readonly asan_options=detect_stack_use_after_return=1:strict_string_checks=1:malloc_context_size=1

# run_suite JOB PRESET [CTEST ARGUMENT...]: builds a preset and runs its tests; a build that fails counts as one failure.
run_suite() {
  local job=$1 preset=$2
  shift 2
  build_preset "$preset" || { build_failed "$job" && return 1; }
  run_ctest "$job" "$preset" "$@"
}

# build_failed JOB: counts it.
build_failed() {
  printf '%s: the build failed\n' "$1"
  record "$1" 0 1
}

# run_jobs JOB...: calls job_JOB for each, or build_JOB, where there is one, and test_JOB. Tests wait more than they work:
# those of one job run while the next is built. What they say comes at the end.
run_jobs() {
  local job
  mkdir -p "$results_dir"
  : >"$results_dir/counts"
  local -a tested=()
  local -A tests_of=()
  for job in "$@"; do
    say "$job"
    local name=${job//-/_} start=$SECONDS
    if declare -F "job_$name" >/dev/null; then
      "job_$name" </dev/null
      printf '%s took %d s\n' "$job" $((SECONDS - start))
      continue
    fi
    if declare -F "build_$name" >/dev/null; then
      ("build_$name" </dev/null && report_time "$job" built "$start") || {
        build_failed "$job"
        continue
      }
    fi
    test_in_background "$job" &
    tests_of[$job]=$!
    tested+=("$job")
  done
  wait
  for job in "${tested[@]}"; do
    say "tests of $job"
    cat "$results_dir/$job.test.log"
  done
}

test_in_background() {
  local start=$SECONDS
  {
    "test_${1//-/_}" 2>&1 </dev/null
    report_time "$1" tested "$start"
  } >"$results_dir/$1.test.log"
}

# report_time JOB DONE START: how long it took since START, and the processor time of all that this shell has waited for.
report_time() {
  local processor
  times >"$results_dir/$1.$2.times"
  processor=$(awk -F'[ms ]+' 'NR == 2 { printf "%d", $1 * 60 + $2 + $3 * 60 + $4 }' "$results_dir/$1.$2.times")
  printf '%s was %s in %d s, %d s of processor time\n' "$1" "$2" $((SECONDS - $3)) "$processor"
}

# wait_for_tests JOB...: for those of these that this run of jobs has begun.
wait_for_tests() {
  local job
  for job in "$@"; do
    [ -z "${tests_of[$job]:-}" ] || wait "${tests_of[$job]}"
  done
}

# known_jobs: those of a run without arguments, and those that only run by name.
known_jobs() { printf '%s\n' "${all_jobs[*]}${named_jobs[*]:+ ${named_jobs[*]}}"; }

# refuse_unknown_jobs WORD...: before anything is set up.
refuse_unknown_jobs() {
  local job
  for job in "$@"; do
    [[ $job != *" "* && " $(known_jobs) " == *" $job "* ]] || refuse "unknown job '$job'"
  done
}

# report_totals: a line per job, then "N passed, N failed" alone on the last line; false when anything failed.
report_totals() {
  local job passed failed all_passed=0 all_failed=0
  say "results"
  while read -r job passed failed; do
    printf '%-16s %5d passed %5d failed\n' "$job" "$passed" "$failed"
    all_passed=$((all_passed + passed))
    all_failed=$((all_failed + failed))
  done <"$results_dir/counts"
  printf '%d passed, %d failed\n' "$all_passed" "$all_failed"
  [ "$all_failed" -eq 0 ] && [ "$all_passed" -gt 0 ]
}
