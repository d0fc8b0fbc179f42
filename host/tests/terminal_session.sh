#!/usr/bin/env bash
# Drives an interactive zentor session in a real terminal through tmux, as
# a person would type: Ctrl-C abandons a line and keeps the variables, a
# misspelled function gets a suggestion, Ctrl-D and :quit end with the
# status of the last statement, an open bracket, string or for block goes
# on after the continuation prompt. With line editing built in, also the
# up arrow, the history a second session finds, and Tab.
#
#   terminal_session.sh ZENTOR
#
# Exits with 77, which CTest counts as skipped, where tmux is missing.
set -euo pipefail
zentor=$1

if ! command -v tmux >/dev/null; then
  echo "skipped: tmux is not installed"
  exit 77
fi

work=$(mktemp -d)
session=zentor-session-$$
# A server of our own: its socket is in our folder, and no tmux.conf.
tmuxc() { tmux -S "$work/tmux.socket" -f /dev/null "$@"; }
cleanup() {
  tmuxc kill-server 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

editor=$("$zentor" --no-json --version | sed -n '1s/.*(line editing: \(.*\))$/\1/p')
echo "line editing: ${editor:-unknown}"

# A session with its history in our folder. The shell around zentor
# writes its exit status to a file once it ends.
start() {
  rm -f "$work/status"
  tmuxc new-session -d -s "$session" -x 120 -y 40 \
    "env HOME='$work' '$zentor' --no-json --module libzentor_testmod.so; echo \$? >'$work/status'"
}

screen() { tmuxc capture-pane -p -J -t "$session" -S - | sed 's/[[:space:]]*$//'; }
type_text() { tmuxc send-keys -t "$session" -l "$1"; }
keys() { tmuxc send-keys -t "$session" "$@"; }

# wait_for WHAT CHECK ARGS...: waits, for at most ten seconds, until CHECK
# (reading the screen on its standard input) holds; fails with the screen
# otherwise.
wait_for() {
  local what=$1 deadline=$((SECONDS + 10))
  shift
  while ((SECONDS < deadline)); do
    if "$@" < <(screen); then return 0; fi
    sleep 0.02
  done
  echo "FAIL: $what; the screen was:"
  screen | sed 's/^/  | /'
  exit 1
}

# The last line that is not blank.
last_line() { grep -v '^$' | tail -n 1; }
# N prompts so far, and the cursor at an empty one.
prompts() {
  local text
  text=$(cat)
  [ "$(grep -c '^zentor>' <<<"$text")" = "$1" ] && [ "$(last_line <<<"$text")" = "zentor>" ]
}
line_is() { [ "$(last_line)" = "$1" ]; }
has_line() { grep -qxF -- "$1"; }
count_is() { [ "$(grep -cxF -- "$2")" = "$1" ]; }

# Waits for zentor to end and checks its exit status.
wait_end() {
  local deadline=$((SECONDS + 10))
  while [ ! -s "$work/status" ] && ((SECONDS < deadline)); do sleep 0.02; done
  local status
  status=$(cat "$work/status" 2>/dev/null || echo "none: zentor did not end")
  [ "$status" = "$1" ] || {
    echo "FAIL: zentor ended with status $status, not $1"
    exit 1
  }
}

# Types a line and waits for the prompt after it.
prompt_count=1
enter() {
  type_text "$1"
  keys Enter
  prompt_count=$((prompt_count + 1))
  wait_for "the prompt after: $1" prompts "$prompt_count"
}

start
wait_for "the first prompt" prompts 1
enter "let x = 41"

echo "Ctrl-C in the middle of a line and on an empty one"
type_text "let x = 1"
wait_for "the typed line" line_is "zentor> let x = 1"
# With line editing the cursor can stand inside the line; ^C still shows
# at its end.
if [ "$editor" = libedit ]; then keys Left Left; fi
keys C-c
prompt_count=$((prompt_count + 1))
wait_for "a fresh prompt after Ctrl-C" prompts "$prompt_count"
wait_for "^C after the abandoned line" has_line "zentor> let x = 1^C"
keys C-c
prompt_count=$((prompt_count + 1))
wait_for "a fresh prompt after Ctrl-C on an empty line" prompts "$prompt_count"

echo "the variable survives, the abandoned line did not run"
enter "print x"
wait_for "x still 41" has_line "41"

echo "a misspelled function gets a suggestion"
enter "Test.Stauts(1)"
wait_for "the suggestion" has_line \
  "! script error at line 3: unknown function Test.Stauts; did you mean Test.Status?"

if [ "$editor" = libedit ]; then
  echo "the up arrow brings back earlier lines"
  keys Up
  wait_for "the last line again" line_is "zentor> Test.Stauts(1)"
  keys Up
  wait_for "the line before it" line_is "zentor> print x"
  keys Enter
  prompt_count=$((prompt_count + 1))
  wait_for "the prompt after the recalled line" prompts "$prompt_count"
  wait_for "x printed twice" count_is 2 "41"

  echo "Tab completes a function name"
  type_text "Test.Sta"
  keys Tab
  wait_for "the completed name" line_is "zentor> Test.Status"
  enter "(0)"
  wait_for "the completed call ran" has_line "no value"
else
  echo "skipped: the up arrow, history and Tab (built without line editing)"
  enter "print x"
fi

echo "Ctrl-D after a good last statement ends with status 0, earlier mistakes aside"
keys C-d
wait_end 0

if [ "$editor" = libedit ]; then
  echo "a second session finds the history of the first"
  start
  wait_for "the first prompt of the second session" prompts 1
  keys Up
  wait_for "the last line of the first session" line_is "zentor> Test.Status(0)"
  keys C-u
  prompt_count=1
  enter "nope"
  echo "Ctrl-D after a failed last statement ends with status 1"
  keys C-d
  wait_end 1
fi

echo "a line that leaves a bracket or a string open goes on after the continuation prompt"
start
prompt_count=1
wait_for "the first prompt of the third session" prompts 1
# Types a line that leaves the statement open.
more() {
  type_text "$1"
  keys Enter
  wait_for "the continuation prompt after: $1" line_is "....>"
}
more "let v = numbers[1,"
enter "  2]"
enter "print v"
wait_for "the vector, read from two lines" has_line "numbers[1,2]"
more "let s = \"a"
enter "b\""
enter "s"
wait_for "the string, with the line break in it" has_line '"a\nb"'

echo "a for block runs once its end is typed"
more "for i in 1 .. 2"
more "echo Host.Concat(\"round \", i)"
enter "end"
wait_for "both rounds" has_line "round 2"

echo "Ctrl-C on a continuation line abandons the whole statement"
more "let w = strings[\"a\","
keys C-c
prompt_count=$((prompt_count + 1))
wait_for "a fresh prompt after Ctrl-C" prompts "$prompt_count"
wait_for "^C on the continuation line" has_line "....> ^C"
enter "print w"
wait_for "w was never set" has_line "! script error at line 11: unknown variable w"

if [ "$editor" = libedit ]; then
  echo "Tab completes a command with the blank its argument needs"
  type_text ":fu"
  keys Tab
  type_text "Test.Status"
  enter ""
  wait_for "the overloads of Test.Status" has_line \
    "Test.Status (NUMBER) -> NUMBER : zentor_testmod_Status [zentor_testmod]"
fi

echo ":quit after a failed last statement ends with status 1, as Ctrl-D does"
enter "nope"
type_text ":quit"
keys Enter
wait_end 1

echo "terminal session: all checks passed"
