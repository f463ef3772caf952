#!/bin/bash
# Installs the agent or replaces an older one, and starts it. Run it as root:
#   install.sh [--check] [--program FILE] [ADDRESS]
#
#   ADDRESS         where the agent registers, http:// or https://. It may be left out on a Mac that has one
#                   from an earlier installation.
#   --program FILE  the executable, instead of msp-agent beside this script. Where FILE.sha256 exists, the
#                   executable has to match it.
#   --check         only look whether it can be installed: changes nothing.
#
# The new files are put beside the old ones and take their places by renaming, while the agent is stopped. The
# old ones are kept until the new agent has been running for a few seconds. Whatever fails before that puts
# the old ones back and starts the old agent again. The identity, config.ini, is never touched. It can be run
# again at any time, also after it was killed half-way. Status 0: the new agent runs. Otherwise it does not,
# and the last lines on standard error say why, and what runs instead.
#
# Written for the bash 3.2 of macOS.
set -euo pipefail
exec </dev/null
export PATH=/bin:/usr/bin:/sbin:/usr/sbin LC_ALL=C
unset SYSTEM_VERSION_COMPAT
umask 022
# An upgrade may be the stopped agent's own child: its output goes nowhere then, and that must not end it.
trap '' PIPE

label=org.msp-agent.agent
directory=/opt/msp-agent
program=$directory/msp-agent
address_file=$directory/default_api.txt
daemons=/Library/LaunchDaemons
plist=$daemons/$label.plist

say() { echo "install.sh: $*" 2>/dev/null || true; }
complain() { echo "install.sh: $*" >&2 2>/dev/null || true; }
fail() {
  complain "$*"
  exit 1
}

here=${0%/*}
[ "$here" != "$0" ] || here=.
new_program=$here/msp-agent
check_only=no
address=
usage="usage: install.sh [--check] [--program FILE] [ADDRESS]"
while [ $# -gt 0 ]; do
  case $1 in
    --check) check_only=yes ;;
    --program)
      [ $# -ge 2 ] || fail "$usage"
      new_program=$2
      shift
      ;;
    -* | '') fail "$usage" ;;
    *)
      [ -z "$address" ] || fail "$usage"
      address=$1
      ;;
  esac
  shift
done

# Whether a folder is root's and nobody else can put anything into it.
is_roots_own() {
  local found
  found=$(find "$1" -prune -type d -user 0 ! -perm -0020 ! -perm -0002) && [ -n "$found" ]
}

check_machine() {
  local version folder
  [ "$EUID" -eq 0 ] || fail "only root can install the agent: use sudo"
  version=$(sw_vers -productVersion) || fail "the version of macOS cannot be told"
  [ "${version%%.*}" -ge 11 ] 2>/dev/null || fail "macOS 11 or later is needed, this is $version"
  [ -d "$daemons" ] || fail "there is no $daemons"
  for folder in "${directory%/*}" "$directory"; do
    [ -e "$folder" ] || [ -L "$folder" ] || continue
    # Whoever can write here can give root a program to run, or the agent another server.
    is_roots_own "$folder" || fail "$folder has to be a folder of root's that nobody else may write to:" \
      "look at what is in it, then chown root:wheel and chmod 755 it"
  done
}

check_input() {
  local url='^https?://[^[:space:][:cntrl:]]+$'
  [[ -f $new_program && -s $new_program ]] || fail "there is no executable at $new_program"
  [ -s "$here/$label.plist" ] || fail "there is no $label.plist beside this script"
  if [ -n "$address" ]; then
    [[ $address =~ $url ]] || fail "this is no http or https address: $address"
  else
    [ -s "$address_file" ] || fail "the server's address is needed. $usage"
  fi
}

# Beside each there is FILE.new from stage() to swap(), and FILE.old from keep_old() to the end.
all_files=("$program" "$plist" "$address_file")
# Those that are replaced: the address only when there is a new one.
files=("$program" "$plist")
[ -z "$address" ] || files+=("$address_file")

stage() {
  local file expected actual
  for file in "${all_files[@]}"; do
    rm -f "$file.new" "$file.old"
  done
  if [ ! -d "$directory" ]; then
    mkdir -p "$directory"
    made_directory=yes
  fi
  chown root:wheel "$directory"
  chmod 0755 "$directory"

  # Not cp: the mark of a download, which keeps launchd from starting it, stays behind.
  cat "$new_program" >"$program.new"
  cat "$here/$label.plist" >"$plist.new"
  chmod 0755 "$program.new"
  chmod 0644 "$plist.new"
  if [ -n "$address" ]; then
    printf '%s\n' "$address" >"$address_file.new"
    chmod 0644 "$address_file.new"
  fi
  for file in "${files[@]}"; do
    chown root:wheel "$file.new"
  done

  if [ -e "$new_program.sha256" ]; then
    read -r expected _ <"$new_program.sha256" || true
    actual=$(shasum -a 256 "$program.new") || fail "the checksum cannot be told"
    [ "${actual%% *}" = "$expected" ] || fail "$new_program does not match $new_program.sha256"
  fi
  # After a power failure there is to be no file that is only a name.
  sync
}

keep_old() {
  local file
  for file in "${files[@]}"; do
    [ ! -e "$file" ] || ln "$file" "$file.old"
  done
}

# A new file each: to overwrite a running executable would invalidate its signature.
swap() {
  local file
  for file in "${files[@]}"; do
    mv -f "$file.new" "$file"
  done
}

is_loaded() { launchctl print "system/$label" >/dev/null 2>&1; }

# Returns when launchd has let go of the agent, which it first gives 20 seconds to end.
stop_agent() {
  local round
  for ((round = 0; round < 60; round++)); do
    is_loaded || return 0
    launchctl bootout "system/$label" 2>/dev/null || true
    sleep 1
  done
  return 1
}

# launchd may hold on to an agent that it no longer shows (errors 5 and 37), so that it is asked repeatedly.
start_agent() {
  local round answer
  for ((round = 0; round < 30; round++)); do
    if answer=$(launchctl bootstrap system "$plist" 2>&1); then
      is_up
      return
    fi
    sleep 1
  done
  complain "launchd does not take the agent: $answer"
  return 1
}

# Whether one and the same process runs for some seconds: one that ends at once is seen running, too.
is_up() {
  local round state pid last='' seen=0 pid_line=$'\n[[:space:]]*pid = ([0-9]+)'
  for ((round = 0; round < 30; round++)); do
    pid=
    if state=$(launchctl print "system/$label" 2>/dev/null) && [[ $state =~ $pid_line ]]; then
      pid=${BASH_REMATCH[1]}
    fi
    if [ -n "$pid" ] && [ "$pid" = "$last" ]; then
      seen=$((seen + 1))
    else
      seen=1
    fi
    last=$pid
    if [ -n "$pid" ] && [ "$seen" -eq 5 ]; then
      return 0
    fi
    sleep 1
  done
  complain "the agent does not stay up"
  return 1
}

was_loaded=no
was_disabled=no
made_directory=no
progress=checking # then: staging, replacing, installed

put_back() {
  local file
  # Undone as far as it goes: one step that fails is no reason to leave out the others.
  stop_agent || complain "launchd does not let go of the new agent"
  for file in "${files[@]}"; do
    if [ -e "$file.old" ]; then
      mv -f "$file.old" "$file" || complain "the old $file could not be put back: it is $file.old"
    elif [ ! -e "$file.new" ]; then
      rm -f "$file"
    fi
  done
  [ "$was_disabled" = no ] || launchctl disable "system/$label" || complain "the agent is no longer disabled"
  if [ "$was_loaded" = no ]; then
    complain "nothing was installed"
  elif start_agent || is_up; then
    complain "the old agent runs again"
  else
    complain "the old agent is back, but does not run: restart the Mac, or see launchctl print system/$label"
  fi
}

finish() {
  local status=$? file
  trap - EXIT
  trap '' HUP INT TERM
  set +e
  if [ "$progress" = replacing ]; then
    complain "it failed: going back"
    put_back
  fi
  if [ "$progress" = staging ] || [ "$progress" = replacing ]; then
    for file in "${all_files[@]}"; do
      rm -f "$file.new"
      # The same file twice, unless it could not be put back.
      [ ! "$file" -ef "$file.old" ] || rm -f "$file.old"
    done
    [ "$made_directory" = no ] || rmdir "$directory" 2>/dev/null
  fi
  exit "$status"
}

check_machine
check_input
if [ "$check_only" = yes ]; then
  exit 0
fi

trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

disabled=$(launchctl print-disabled system) || fail "launchd does not answer"
disabled_line="\"$label\" => (true|disabled)"
[[ ! $disabled =~ $disabled_line ]] || was_disabled=yes

progress=staging
stage
keep_old
! is_loaded || was_loaded=yes

progress=replacing
stop_agent || fail "launchd does not let go of the running agent"
swap
[ "$was_disabled" = no ] || launchctl enable "system/$label"
start_agent || exit 1

# There is no going back from here.
trap '' HUP INT TERM
progress=installed
for file in "${files[@]}"; do
  rm -f "$file.old" || complain "left behind: $file.old"
done
say "the agent is installed and runs"
