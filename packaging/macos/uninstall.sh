#!/bin/bash
# Stops the agent and removes it. Run it as root:
#   uninstall.sh [--remove-identity | --keep-identity]
#
# The identity, config.ini, is what the server knows this Mac by: an agent that is installed again with it goes
# on where this one ended. Without an option it is asked about on a terminal, and kept where there is none.
#
# Nothing is removed while the agent cannot be stopped. Status 0: all of it is gone. Otherwise the last line on
# standard error says what is not, and it can be run again. The identity goes last.
#
# Written for the bash 3.2 of macOS.
set -euo pipefail
export PATH=/bin:/usr/bin:/sbin:/usr/sbin LC_ALL=C
# The script may be the stopped agent's own child: its output goes nowhere then, and that must not end it.
trap '' PIPE

label=org.msp-agent.agent
directory=/opt/msp-agent
plist=/Library/LaunchDaemons/$label.plist

say() { echo "uninstall.sh: $*" 2>/dev/null || true; }
fail() {
  echo "uninstall.sh: $*" >&2 2>/dev/null || true
  exit 1
}

identity=ask
case "$#:${1:-}" in
  0:) ;;
  1:--remove-identity) identity=remove ;;
  1:--keep-identity) identity=keep ;;
  *) fail "usage: uninstall.sh [--remove-identity | --keep-identity]" ;;
esac
[ "$EUID" -eq 0 ] || fail "only root can remove the agent: use sudo"

if [ "$identity" = ask ]; then
  identity=keep
  if [ -t 0 ] && [ -e "$directory/config.ini" ]; then
    answer=
    read -r -p "Remove the identity in $directory/config.ini, too? [y/N] " answer || true
    case $answer in
      y | Y | yes | Yes | YES) identity=remove ;;
    esac
  fi
fi
exec </dev/null

# Status 0: launchd has the agent, 1: it has not, 2: it does not say.
is_loaded() {
  local answer status=0
  answer=$(launchctl print "system/$label" 2>&1) || status=$?
  [ "$status" -ne 0 ] || return 0
  [ "$status" -ne 113 ] && [[ $answer != *"Could not find"* ]] || return 1
  return 2
}

# Returns when launchd has let go of the agent, which it first gives 20 seconds to end.
stop_agent() {
  local round loaded
  for ((round = 0; round < 60; round++)); do
    loaded=0
    is_loaded || loaded=$?
    [ "$loaded" -ne 1 ] || return 0
    launchctl bootout "system/$label" 2>/dev/null || true
    sleep 1
  done
  return 1
}

# Of each FILE what an interrupted installation may have left beside it, too.
remove() {
  local file
  for file in "$@"; do
    rm -f "$file" "$file.new" "$file.old" || fail "$file could not be removed: the agent is stopped, run this again"
  done
}

stop_agent || fail "launchd does not let go of the running agent: nothing was removed"
# First what would start it again.
remove "$plist"
# Otherwise launchd would hold it against an agent that is installed by other means later.
disabled=$(launchctl print-disabled system) || fail "launchd does not answer: run this again"
disabled_line="\"$label\" => (true|disabled)"
if [[ $disabled =~ $disabled_line ]]; then
  launchctl enable "system/$label" || fail "launchd does not forget that the agent was disabled: run this again"
fi
remove "$directory/install.journal" "$directory/msp-agent" "$directory/macupgrade.sh" \
  "$directory/default_api.txt" "$directory/logfile.log" "$directory/output.log"
# The installer's receipt, where the agent came as a package.
if pkgutil --pkg-info "$label" >/dev/null 2>&1; then
  pkgutil --forget "$label" >/dev/null || fail "the package's receipt is still there: run this again"
fi
if [ "$identity" = remove ]; then
  rm -f "$directory/config.ini" || fail "$directory/config.ini could not be removed: run this again"
fi
say "the agent is removed"
if [ -e "$directory/config.ini" ]; then
  say "its identity is kept: $directory/config.ini"
elif [ -d "$directory" ]; then
  rmdir "$directory" 2>/dev/null || say "kept, because it is not empty: $directory"
fi
