#!/bin/bash
# Stops the agent and removes it. Run it as root:
#   uninstall.sh [--remove-identity | --keep-identity]
#
# The identity, config.ini, is what the server knows this Mac by: an agent that is installed again with it goes
# on where this one ended. Without an option it is asked about on a terminal, and kept where there is none.
#
# Nothing is removed while the agent cannot be stopped. It can be run again. Written for the bash 3.2 of macOS.
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

# Returns when launchd has let go of the agent, which it first gives 20 seconds to end.
stop_agent() {
  local round
  for ((round = 0; round < 60; round++)); do
    launchctl print "system/$label" >/dev/null 2>&1 || return 0
    launchctl bootout "system/$label" 2>/dev/null || true
    sleep 1
  done
  return 1
}

stop_agent || fail "launchd does not let go of the running agent: nothing was removed"
# First what would start it again.
for file in "$plist" "$plist.new" "$plist.old"; do
  rm -f "$file"
done
for name in msp-agent macupgrade.sh default_api.txt; do
  for file in "$directory/$name" "$directory/$name.new" "$directory/$name.old"; do
    rm -f "$file"
  done
done
rm -f "$directory/logfile.log" "$directory/output.log"
if [ "$identity" = remove ]; then
  rm -f "$directory/config.ini"
fi
# The installer's receipt, where the agent came as a package.
if pkgutil --pkg-info "$label" >/dev/null 2>&1; then
  pkgutil --forget "$label" >/dev/null || say "the package's receipt is still there"
fi
say "the agent is removed"
if [ -e "$directory/config.ini" ]; then
  say "its identity is kept: $directory/config.ini"
elif [ -d "$directory" ]; then
  rmdir "$directory" 2>/dev/null || say "kept, because it is not empty: $directory"
fi
