# The checks of the test bed's shell scripts (sourced): each prints "ok" or
# "FAIL" with what went wrong and counts the failures.
failures=0
check() {  # DESCRIPTION COMMAND... : runs the command, which must succeed
  description=$1
  shift
  if out=$("$@" 2>&1); then
    echo "ok    $description"
  else
    echo "FAIL  $description: $out"
    failures=$((failures + 1))
  fi
}
expect() {  # DESCRIPTION TEXT COMMAND... : the output must hold TEXT
  description=$1 text=$2
  shift 2
  out=$("$@" 2>&1)
  case "$out" in
    *"$text"*) echo "ok    $description" ;;
    *) echo "FAIL  $description: wanted '$text' in: $out"; failures=$((failures + 1)) ;;
  esac
}
