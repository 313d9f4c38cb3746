# Counts what test runners report, so that a run of several ends in one line. Sourced.

passed=0
failed=0

# tally_ctest LOG: adds ctest's closing line.
tally_ctest() {
  local line total bad
  line=$(grep -E 'tests passed, [0-9]+ tests failed out of [0-9]+' "$1" | tail -n 1)
  total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
  bad=$(sed -E 's/.*, ([0-9]+) tests failed.*/\1/' <<<"$line")
  if [ -z "$line" ] || [ "$total" -eq 0 ]; then failed=$((failed + 1)); return; fi
  passed=$((passed + total - bad))
  failed=$((failed + bad))
}

# tally_unittest LOG: adds the closing lines of a Python unittest run.
tally_unittest() {
  local ran bad
  ran=$(sed -nE 's/^Ran ([0-9]+) tests? in .*/\1/p' "$1" | tail -n 1)
  bad=$(grep -cE '^(FAIL|ERROR): ' "$1" || true)
  if [ -z "$ran" ] || [ "$ran" -eq 0 ]; then failed=$((failed + 1)); return; fi
  passed=$((passed + ran - bad))
  failed=$((failed + bad))
}

# tally_command STATUS: one check that either holds or not.
tally_command() {
  if [ "$1" -eq 0 ]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}
