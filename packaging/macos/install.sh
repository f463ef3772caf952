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
# again at any time: after it was killed half-way, it goes back to the old files before it begins anew. Status 0:
# the new agent runs. Otherwise it does not, and the last lines on standard error say why, and what runs instead.
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
upgrade_script=$directory/macupgrade.sh
output=$directory/output.log
journal=$directory/install.journal

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
  # The agent runs it as root. Whose a file elsewhere is, nobody watches over.
  if [ -L "$upgrade_script" ] || { [ -e "$upgrade_script" ] && [ ! -f "$upgrade_script" ]; }; then
    fail "$upgrade_script has to be a file, and no link"
  fi
}

check_input() {
  local url='^https?://[^[:space:][:cntrl:]]+$'
  [[ -f $new_program && -s $new_program ]] || fail "there is no executable at $new_program"
  [ -s "$here/$label.plist" ] || fail "there is no $label.plist beside this script"
  [[ -z $address || $address =~ $url ]] || fail "this is no http or https address: $address"
  need_address
}

need_address() {
  [ -n "$address" ] || [ -s "$address_file" ] || fail "the server's address is needed. $usage"
}

# Beside each there is FILE.new from stage() to swap(), and FILE.old from keep_old() to the end.
files=("$program" "$plist" "$address_file")
new_files=("$program.new" "$plist.new" "$address_file.new")
old_files=("$program.old" "$plist.old" "$address_file.old")
# What the first start makes. A first installation that fails takes it away again.
logs=("$output" "$directory/logfile.log")
# How things were before: of each of the files, and then of each of the logs, "present" or "absent".
states=()
was_loaded=no
was_disabled=no

# An agent that was there before may have left these with another owner or mode.
secure_rest() {
  if [ -e "$upgrade_script" ]; then
    chown root:wheel "$upgrade_script"
    chmod -N "$upgrade_script"
    chmod go-w "$upgrade_script"
  fi
  # Whoever makes a link of it wants the output elsewhere.
  if [ -f "$output" ] && [ ! -L "$output" ]; then
    chown root:wheel "$output"
    chmod -N "$output"
    chmod 0600 "$output"
  fi
}

stage() {
  local expected actual
  rm -f "${new_files[@]}" "${old_files[@]}"
  [ -d "$directory" ] || mkdir -p "$directory"
  chown root:wheel "$directory"
  # An access control list goes beyond the mode, and new files may inherit it.
  chmod -N "$directory"
  chmod 0755 "$directory"
  secure_rest

  # Not cp: the mark of a download, which keeps launchd from starting it, stays behind.
  cat "$new_program" >"$program.new"
  cat "$here/$label.plist" >"$plist.new"
  if [ -n "$address" ]; then
    printf '%s\n' "$address" >"$address_file.new"
  else
    cat "$address_file" >"$address_file.new"
  fi
  chmod -N "${new_files[@]}"
  chmod 0755 "$program.new"
  chmod 0644 "$plist.new" "$address_file.new"
  chown root:wheel "${new_files[@]}"

  if [ -e "$new_program.sha256" ]; then
    read -r expected _ <"$new_program.sha256" || true
    actual=$(shasum -a 256 "$program.new") || fail "the checksum cannot be told"
    [ "${actual%% *}" = "$expected" ] || fail "$new_program does not match $new_program.sha256"
  fi
}

keep_old() {
  local file found=()
  for file in "${files[@]}"; do
    if [ -e "$file" ]; then
      ln "$file" "$file.old"
      found+=(present)
    else
      found+=(absent)
    fi
  done
  for file in "${logs[@]}"; do
    # Those of an agent that was there are its own, also when they begin now.
    if [ -e "$program" ] || [ -e "$file" ]; then found+=(present); else found+=(absent); fi
  done
  states=("${found[@]}")
}

# While there is a journal, the old files count, and those in place are only tried.
write_journal() {
  echo "$was_loaded $was_disabled ${states[*]}" >"$journal.new"
  # After a power failure there is to be no file that is only a name.
  sync
  mv -f "$journal.new" "$journal"
}

# Puts the old files back; can be done again after it was interrupted.
restore_files() {
  local index=0 result=0 file
  for file in "${files[@]}" "${logs[@]}"; do
    if [ "${states[index]}" = absent ]; then
      rm -f "$file" || result=1
    elif [ -e "$file.old" ] && [ ! "$file" -ef "$file.old" ]; then
      mv -f "$file.old" "$file" || {
        complain "the old $file could not be put back: it is $file.old"
        result=1
      }
    fi
    index=$((index + 1))
  done
  return "$result"
}

# An installation that was killed half-way may have left files that never were seen to work.
recover() {
  local words=()
  [ -e "$journal" ] || return 0
  read -r -a words <"$journal" || true
  [ ${#words[@]} -eq 7 ] || fail "$journal cannot be read: see whether each FILE.old is there, then remove it"
  say "the last installation was interrupted: its files make room for the old ones"
  was_loaded=${words[0]}
  was_disabled=${words[1]}
  states=("${words[@]:2}")
  progress=replacing
  restore_files || exit 1
  need_address
}

# A new file each: to overwrite a running executable would invalidate its signature.
swap() {
  local file
  for file in "${files[@]}"; do
    mv -f "$file.new" "$file"
  done
}

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
  local round state='' pid last='' seen=0 pid_line=$'\n[[:space:]]*pid = ([0-9]+)'
  local end_line=$'\n[[:space:]]*(last (exit code|terminating signal) = [^\n]+)'
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
  [[ $state =~ $end_line ]] || true
  complain "the agent does not stay up${BASH_REMATCH[1]:+: ${BASH_REMATCH[1]}}"
  return 1
}

# Before a first installation takes away what launchd and the agent have written.
show_output() {
  [ "${states[0]}" = absent ] && [ -s "$output" ] || return 0
  complain "the end of $output:"
  tail -n 5 "$output" >&2
}

progress=checking # then: staging, replacing, installed

put_back() {
  local whole=yes
  # Undone as far as it goes: one step that fails is no reason to leave out the others.
  stop_agent || {
    complain "launchd does not let go of the new agent"
    # Where an agent ran, the look whether one runs tells more.
    [ "$was_loaded" = yes ] || whole=no
  }
  show_output
  restore_files || whole=no
  [ "$was_disabled" = no ] || launchctl disable "system/$label" || complain "the agent is no longer disabled"
  if [ "$was_loaded" = no ] && [ "$whole" = no ]; then
    complain "not everything could be undone: look at the lines above, then run this script again"
  elif [ "$was_loaded" = no ]; then
    complain "nothing was installed"
  elif start_agent || is_up; then
    complain "the old agent runs again"
  else
    complain "the old agent is back, but does not run: restart the Mac, or see launchctl print system/$label"
    whole=no
  fi
  # Otherwise the next installation has still to go back.
  [ "$whole" = no ] || rm -f "$journal"
}

finish() {
  local status=$? file
  trap - EXIT
  trap '' HUP INT TERM
  set +e
  case $progress in
    staging)
      complain "nothing was installed"
      rm -f "$journal"
      ;;
    replacing)
      complain "it failed: going back"
      put_back
      ;;
    *) exit "$status" ;;
  esac
  rm -f "${new_files[@]}" "$journal.new"
  for file in "${files[@]}"; do
    # The same file twice, unless it could not be put back.
    [ ! "$file" -ef "$file.old" ] || rm -f "$file.old"
  done
  # When nothing is in it, this installation made it, or it was of no use.
  rmdir "$directory" 2>/dev/null
  exit "$status"
}

check_machine
check_input
if [ "$check_only" = yes ]; then
  exit 0
fi

disabled=$(launchctl print-disabled system) || fail "launchd does not answer"
disabled_line="\"$label\" => (true|disabled)"
[[ ! $disabled =~ $disabled_line ]] || was_disabled=yes
loaded=0
is_loaded || loaded=$?
case $loaded in
  0) was_loaded=yes ;;
  2) fail "launchd does not answer" ;;
esac

trap finish EXIT
trap 'exit 129' HUP
trap 'exit 130' INT
trap 'exit 143' TERM

recover
[ "$progress" = replacing ] || progress=staging
stage
keep_old
write_journal

progress=replacing
stop_agent || fail "launchd does not let go of the running agent"
swap
# launchd would make it readable for everybody.
[ -e "$output" ] || (umask 077 && : >>"$output")
[ "$was_disabled" = no ] || launchctl enable "system/$label"
start_agent || exit 1
# From here on the new files count.
rm -f "$journal"

progress=installed
trap '' HUP INT TERM
rm -f "${old_files[@]}" || complain "left behind: what ends in .old in $directory and $daemons"
say "the agent is installed and runs"
