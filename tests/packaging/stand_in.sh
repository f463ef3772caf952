#!/bin/bash
# Stands in for one command, by the name it is called by: notes the call, fails where the case wants it to, and
# otherwise does what the Mac's command does, to the case's files only. Of the case's folder, /case:
#   calls                    every call, one line each
#   fail_at, fail_how        the number of the call that fails: before it did anything, after it did it, or
#                            by killing the script as a power failure would (before, after, kill, terminate)
#   fail_once                a call that fails likewise, the first time
#   job/                     the agent as launchd has it: pid, program (its content), plist, and leaving: the
#                            seconds until it is gone after a bootout
#   given_to_root            the files and folders that were
#   linger, busy             seconds that a bootout takes, and that launchd refuses a bootstrap after it
#   disabled                 exists while the agent is disabled
#   refuse, crash            what the program's content begins with that launchd refuses, or that ends at once
#   foreign, swapped         exists when what stat looks at is somebody else's; what is put into the place of
#                            the file with the address as soon as that is open
#   defaults, receipt        the managed address; whether there is an installer's receipt
#   acl                      the files and folders with an access control list, one line each
#   printed                  what the agent prints when it starts
#   unsigned                 exists when there is no notarisation to staple
#   architectures            those of the executable that is to be packed
set -euo pipefail
PATH=/usr/bin
name=${0##*/}
cd /case
label=org.msp-agent.agent
line="$name $*"
echo "${line% }" >>calls

how=
if [ -e fail_at ]; then
  mapfile -t calls <calls
  read -r number <fail_at
  [ "${#calls[@]}" != "$number" ] || how=$(<fail_how)
fi
if [ -e fail_once ] && [ "${line% }" = "$(<fail_once)" ]; then
  rm fail_once
  how=before
  [ -e fail_at ] || [ ! -e fail_how ] || how=$(<fail_how)
fi
case $how in
  before) exit 1 ;;
  kill) kill -9 0 ;;
  terminate) kill -TERM "$(<script)" ;;
esac

# counter FILE: sets value. Without another process, like most of this: the tests call it thousands of times.
counter() {
  value=0
  [ ! -e "$1" ] || read -r value <"$1"
}

launchctl() {
  local pid program
  case "$*" in
    "print system/$label")
      if [ ! -d job ]; then
        echo "Could not find service \"$label\" in domain for system" >&2
        return 113
      fi
      # A process that ends at once has another number each time that it is looked for.
      if [ -e crash ] && [ "$(<crash)" = "$(<job/program)" ]; then echo $(($(<job/pid) + 1)) >job/pid; fi
      read -r pid <job/pid
      printf 'system/%s = {\n\tactive count = 1\n\tpath = /Library/LaunchDaemons/%s.plist\n' "$label" "$label"
      printf '\ttype = LaunchDaemon\n\tstate = running\n\n\tprogram = /opt/msp-agent/msp-agent\n'
      printf '\truns = 1\n\tpid = %s\n\timmediate reason = speculative\n' "$pid"
      [ ! -e crash ] || printf '\tlast exit code = 1\n'
      printf '}\n'
      ;;
    "bootout system/$label")
      if [ ! -d job ]; then
        echo "Boot-out failed: 3: No such process" >&2
        return 3
      fi
      if [ -e job/leaving ]; then
        echo "Boot-out failed: 36: Operation now in progress" >&2
        return 36
      fi
      counter linger
      echo "$value" >job/leaving
      leave
      ;;
    "bootstrap system /Library/LaunchDaemons/$label.plist")
      if [ -d job ]; then
        echo "Bootstrap failed: 37: Operation already in progress" >&2
        return 37
      fi
      counter busy
      program=$(cat /opt/msp-agent/msp-agent)
      if [ "$value" -gt 0 ] || [ "$program" = "$(cat refuse 2>/dev/null)" ] || [ -e disabled ]; then
        echo "Bootstrap failed: 5: Input/output error" >&2
        return 5
      fi
      [ -x /opt/msp-agent/msp-agent ] || return 5
      # The first by launchd, which makes it readable for everybody; the second by the agent.
      cat printed >>/opt/msp-agent/output.log
      touch /opt/msp-agent/logfile.log
      mkdir job
      echo "$program" >job/program
      cat "/Library/LaunchDaemons/$label.plist" >job/plist
      echo 200 >job/pid
      ;;
    "print-disabled system")
      printf '\tdisabled services = {\n\t\t"com.example.other" => disabled\n'
      [ ! -e disabled ] || printf '\t\t"%s" => disabled\n' "$label"
      printf '\t}\n'
      ;;
    "enable system/$label") rm -f disabled ;;
    "disable system/$label") touch disabled ;;
    *)
      echo "Unrecognized subcommand: $*" >&2
      return 64
      ;;
  esac
}

# A job that was told to end is gone when its seconds are over.
leave() {
  counter job/leaving
  if [ "$value" = 0 ]; then rm -r job; fi
}

case $name in
  launchctl) launchctl "$@" || exit ;;
  sleep)
    counter busy
    if [ -e job/leaving ]; then
      echo $(($(<job/leaving) - $1)) >job/leaving
      leave
    elif [ "$value" -gt 0 ]; then
      echo $((value - $1)) >busy
    fi
    ;;
  chown)
    # Only root of the outside could do it: noted instead.
    shift
    printf '%s\n' "$@" >>given_to_root
    ;;
  sync) ;;
  chmod)
    if [ "$1" = -N ]; then
      shift
      if [ -s acl ]; then
        printf '%s\n' "$@" >plain
        grep -vxF -f plain acl >acl.left || true
        mv acl.left acl
      fi
    else
      (cd "$OLDPWD" && /usr/bin/chmod "$@") || exit
    fi
    ;;
  stat)
    # Without a file, that of the standard input.
    [ "$1 $2" = "-f %d %i %u %Sp" ] || exit
    uid=%u
    [ ! -e foreign ] || uid=501
    if [ $# -eq 2 ]; then
      /usr/bin/stat -L -c "%d %i $uid %A" /proc/self/fd/0
      [ ! -e swapped ] || mv swapped downloads/api_address.txt
    else
      /usr/bin/stat -c "%d %i $uid %A" "$3" || exit
    fi
    ;;
  sw_vers) cat version ;;
  defaults) cat defaults 2>/dev/null || exit 1 ;;
  pkgutil)
    [ -e receipt ] || exit 1
    [ "$1" != --forget ] || rm receipt
    ;;
  uname) echo Darwin ;;
  lipo)
    # lipo FILE -verify_arch ARCHITECTURES...: says nothing, only its status does.
    [ "$2" = -verify_arch ] || exit
    shift 2
    for architecture in "$@"; do
      grep -qxF -e "$architecture" architectures || exit
    done
    ;;
  codesign) echo signed >>"${!#}" ;;
  pkgbuild | productbuild)
    # The scripts that a package is given.
    [ "$name" != pkgbuild ] || ls -A "$5" >scripts
    echo "$name" >"${!#}"
    ;;
  xcrun) [ "$1" != stapler ] || [ ! -e unsigned ] || exit 65 ;;
  *)
    cd "$OLDPWD"
    [ -n "$how" ] || exec "/usr/bin/$name" "$@"
    "/usr/bin/$name" "$@" || exit
    ;;
esac
[ "$how" != after ] || exit 1
