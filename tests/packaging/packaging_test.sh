#!/usr/bin/env bash
# Tests of packaging/macos: one of the functions test_NAME below, or all of them.
#   packaging_test.sh [NAME]
#
# They run as root of a user namespace, in a root folder of their own: its /opt, /Library and /bin are made for
# the test, everything else is the system's. In its /bin every command that the scripts call is the stand-in of
# stand_in.sh. Nothing of it is seen outside, or left behind.
set -euo pipefail
folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
packaging=$(cd "$folder/../../packaging/macos" && pwd)

stood_in=(cat chmod chown defaults find launchctl ln ls mkdir mv pkgutil rm rmdir shasum sleep stat sw_vers sync
  tail uname codesign lipo pkgbuild productbuild xcrun)

# Everything of / but what the scripts write to; then the stand-ins.
build_root() {
  local root=$1 entry name
  mount -t tmpfs -o mode=755 tmpfs "$root"
  mount --make-unbindable "$root"
  for entry in /*; do
    name=${entry#/}
    case $name in
      bin | opt | Library | Users | System | case) ;;
      *)
        if [ -L "$entry" ]; then
          cp -P "$entry" "$root/$name"
        elif [ -d "$entry" ]; then
          mkdir "$root/$name"
          mount --rbind "$entry" "$root/$name"
        else
          touch "$root/$name"
          mount --bind "$entry" "$root/$name"
        fi
        ;;
    esac
  done
  mkdir "$root/bin" "$root/case"
  touch "$root/made_for_a_packaging_test"
  ln -s ../usr/bin/bash ../usr/bin/sh "$root/bin"
  cp "$folder/stand_in.sh" "$root/bin/stand_in"
  for name in "${stood_in[@]}"; do
    ln -s stand_in "$root/bin/$name"
  done
}

if [ "${1:-}" != --inside ]; then
  if ! unshare --user --map-root-user --mount true 2>/dev/null; then
    echo "skipped: this system allows no user and mount namespaces"
    exit 77
  fi
  root=$(mktemp -d)
  trap 'rmdir "$root"' EXIT
  unshare --user --map-root-user --mount "${BASH_SOURCE[0]}" --inside "$root" "$@"
  exit
fi
if [ "${2:-}" != --there ]; then
  root=$2
  shift 2
  read -r _ _ users </proc/self/uid_map
  [ "$users" -eq 1 ] || exit 2 # not in the namespace
  build_root "$root"
  exec chroot "$root" "$folder/packaging_test.sh" --inside --there "$@"
fi
shift 2
[ -e /made_for_a_packaging_test ] || exit 2
# Not the stand-ins: those are for the scripts.
export PATH=/usr/bin:/usr/sbin
label=org.msp-agent.agent
agent=/opt/msp-agent
plist=/Library/LaunchDaemons/$label.plist
new_checksum=$(echo "new agent" | sha256sum | cut -d' ' -f1)

wrong() {
  echo "packaging_test: in ${current:-?}: $*" >&2
  echo "--- the script said:" >&2
  cat /case/output >&2 || true
  echo "--- it called:" >&2
  cat /case/calls >&2 || true
  exit 1
}
expect_text() { # WHAT EXPECTED ACTUAL
  [ "$2" = "$3" ] || wrong "$1: expected \"$2\", found \"$3\""
}
expect_file() { expect_text "$1" "$2" "$(<"$1")"; }
expect_none() { [[ ! -e $1 && ! -L $1 ]] || wrong "there is $1"; }

# A Mac without an agent, and a new agent to be installed on it.
new_mac() {
  # Its parts may be gone or empty from one case to the next, so a removal that fails is no matter.
  rm -rf /opt /Library /case
  mkdir -p /opt /Library/LaunchDaemons /case/new
  chmod 755 /opt
  : >/case/calls
  : >/case/output
  : >/case/acl
  : >/case/printed
  echo 11.0 >/case/version
  printf 'x86_64\narm64\n' >/case/architectures
  cp "$packaging/install.sh" "$packaging/uninstall.sh" "$packaging/$label.plist" /case/new
  echo "new agent" >/case/new/msp-agent
  echo "$new_checksum  msp-agent" >/case/new/msp-agent.sha256
}

# The same with an agent that runs and has registered.
old_agent() {
  mkdir -m 755 $agent
  echo "old agent" >$agent/msp-agent
  chmod 755 $agent/msp-agent
  echo "https://old.example/" >$agent/default_api.txt
  printf '{"api_url": "https://old.example/", "agent_id": "7"}' >$agent/config.ini
  chmod 600 $agent/config.ini
  echo "an old line" >$agent/logfile.log
  echo "old list" >$plist
  mkdir /case/job
  echo "old agent" >/case/job/program
  echo "old list" >/case/job/plist
  echo 100 >/case/job/pid
  identity=$(identity_now)
}
# With its inode, mode and times: it is not even rewritten.
identity_now() { stat -c '%i %a %s %Y %Z' $agent/config.ini && cat $agent/config.ini; }

# run SCRIPT ARGUMENTS...: sets status. In a process group of its own, which the stand-in may kill.
run() {
  status=0
  # shellcheck disable=SC2016 # for the inner shell to expand
  setsid --wait /bin/bash -c 'echo $$ >/case/script; exec "$@"' run "$@" >/case/output 2>&1 || status=$?
}
install_new() { run /case/new/install.sh "https://new.example/api"; }

runs() { # WHAT
  [ -d /case/job ] || wrong "launchd has no agent"
  [ ! -e /case/job/leaving ] || wrong "the agent is being ended"
  expect_text "what runs" "$1" "$(</case/job/program)"
}
expect_new() {
  runs "new agent"
  expect_file $agent/msp-agent "new agent"
  expect_text "the modes" "755 755 644 600 644 " \
    "$(stat -c %a $agent $agent/msp-agent $agent/default_api.txt $agent/output.log $plist | tr '\n' ' ')"
  expect_file $agent/default_api.txt "https://new.example/api"
  cmp -s $plist "$packaging/$label.plist" || wrong "$plist is not the new one"
  cmp -s /case/job/plist $plist || wrong "launchd has another property list"
}
expect_old() {
  runs "old agent"
  expect_file $agent/msp-agent "old agent"
  expect_file $agent/default_api.txt "https://old.example/"
  expect_file $plist "old list"
  expect_text "the old list" "old list" "$(</case/job/plist)"
}
expect_nothing_left_over() {
  local file
  for file in "$agent"/*.new "$agent"/*.old "$agent"/install.* /Library/LaunchDaemons/*.new /Library/LaunchDaemons/*.old; do
    expect_none "$file"
  done
}
expect_identity() { expect_text "config.ini" "$identity" "$(identity_now)"; }

# The calls, without those of print, on one line each.
calls() { grep -v '^launchctl print system' /case/calls; }

test_a_first_installation_puts_everything_in_place_and_starts_the_agent() {
  new_mac
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_nothing_left_over
  expect_none $agent/config.ini
  expect_file /case/output "install.sh: the agent is installed and runs"
  expect_text "what was given to root" "$agent $agent/msp-agent.new $plist.new $agent/default_api.txt.new " \
    "$(tr '\n' ' ' </case/given_to_root)"
}

test_the_commands_come_in_their_order() {
  new_mac
  old_agent
  install_new
  expect_text "the order" "sw_vers -productVersion
find /opt -prune -type d -user 0 ! -perm -0020 ! -perm -0002
find /opt/msp-agent -prune -type d -user 0 ! -perm -0020 ! -perm -0002
launchctl print-disabled system
rm -f /opt/msp-agent/msp-agent.new $plist.new /opt/msp-agent/default_api.txt.new\
 /opt/msp-agent/msp-agent.old $plist.old /opt/msp-agent/default_api.txt.old
chown root:wheel /opt/msp-agent
chmod -N /opt/msp-agent
chmod 0755 /opt/msp-agent
cat /case/new/msp-agent
cat /case/new/$label.plist
chmod -N /opt/msp-agent/msp-agent.new $plist.new /opt/msp-agent/default_api.txt.new
chmod 0755 /opt/msp-agent/msp-agent.new
chmod 0644 $plist.new /opt/msp-agent/default_api.txt.new
chown root:wheel /opt/msp-agent/msp-agent.new $plist.new /opt/msp-agent/default_api.txt.new
shasum -a 256 /opt/msp-agent/msp-agent.new
ln /opt/msp-agent/msp-agent /opt/msp-agent/msp-agent.old
ln $plist $plist.old
ln /opt/msp-agent/default_api.txt /opt/msp-agent/default_api.txt.old
sync
mv -f /opt/msp-agent/install.journal.new /opt/msp-agent/install.journal
launchctl bootout system/$label
sleep 1
mv -f /opt/msp-agent/msp-agent.new /opt/msp-agent/msp-agent
mv -f $plist.new $plist
mv -f /opt/msp-agent/default_api.txt.new /opt/msp-agent/default_api.txt
launchctl bootstrap system $plist
sleep 1
sleep 1
sleep 1
sleep 1
rm -f /opt/msp-agent/install.journal
rm -f /opt/msp-agent/msp-agent.old $plist.old /opt/msp-agent/default_api.txt.old" "$(calls)"
}

test_an_upgrade_replaces_the_program_and_keeps_the_identity() {
  new_mac
  old_agent
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_identity
  expect_nothing_left_over
  expect_file $agent/logfile.log "an old line"
}

test_it_can_be_run_twice() {
  new_mac
  install_new
  echo '{"agent_id": "8"}' >$agent/config.ini
  identity=$(identity_now)
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_identity
  expect_nothing_left_over
}

test_it_goes_on_when_nobody_takes_its_output() {
  new_mac
  old_agent
  # The pipe is closed before the first word.
  # shellcheck disable=SC2016 # for the inner shell to expand
  run bash -c 'set -o pipefail; { sleep 0.2; "$@" 2>&1; } | true' pipe /case/new/install.sh https://new.example/api
  expect_text status 0 "$status"
  expect_new
  expect_nothing_left_over

  # shellcheck disable=SC2016 # for the inner shell to expand
  run bash -c 'set -o pipefail; { sleep 0.2; "$@" 2>&1; } | true' pipe /case/new/uninstall.sh
  removed
  expect_identity
}

test_it_can_be_called_from_its_own_folder() {
  new_mac
  cd /case/new
  run ./install.sh https://new.example/api
  expect_text status 0 "$status"
  expect_new
  run bash install.sh https://new.example/api
  expect_text status 0 "$status"
  expect_new
  cd /
}

test_without_an_address_an_upgrade_keeps_the_old_one() {
  new_mac
  old_agent
  run /case/new/install.sh
  expect_text status 0 "$status"
  runs "new agent"
  expect_file $agent/default_api.txt "https://old.example/"
  expect_nothing_left_over
}

test_another_program_may_be_given() {
  new_mac
  mkdir /case/elsewhere
  echo "new agent" >/case/elsewhere/agent
  rm /case/new/msp-agent
  run /case/new/install.sh --program /case/elsewhere/agent https://new.example/api
  expect_text status 0 "$status"
  expect_new
}

test_it_waits_until_launchd_has_let_go_of_the_old_agent() {
  new_mac
  old_agent
  echo 20 >/case/linger
  install_new
  expect_text status 0 "$status"
  expect_new
  # Nothing is replaced before the old agent is gone: one look whether it runs, one before each second, one after.
  expect_text "looks before the first rename" 22 \
    "$(sed '/^mv .*agent.new /,$d' /case/calls | grep -c "^launchctl print system/$label")"
}

test_it_asks_again_while_launchd_still_holds_the_old_job() {
  new_mac
  old_agent
  echo 12 >/case/busy
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_text "the tries" 12 "$(grep -c '^launchctl bootstrap' /case/calls)"
}

test_that_launchd_does_not_answer_is_not_taken_for_an_agent_that_is_gone() {
  local looks
  new_mac
  old_agent
  echo "launchctl print system/$label" >/case/fail_once
  install_new
  expect_text status 1 "$status"
  expect_old
  expect_file /case/output "install.sh: launchd does not answer"
  expect_text "the changes" "" "$(grep -vE '^(sw_vers|find|launchctl print)' /case/calls || true)"

  # The next look is that before it is stopped.
  new_mac
  old_agent
  install_new
  mapfile -t looks < <(grep -n "^launchctl print system/$label" /case/calls | sed 's/:.*//')
  new_mac
  old_agent
  echo "${looks[1]}" >/case/fail_at
  echo before >/case/fail_how
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_text "the first thing launchd was told" "launchctl bootout system/$label" \
    "$(grep -m 1 -E '^(mv .*agent.new|launchctl boot)' /case/calls)"
}

test_an_agent_that_cannot_be_stopped_stays() {
  new_mac
  old_agent
  echo 1000000 >/case/linger
  install_new
  expect_text status 1 "$status"
  expect_text "what was replaced" "" "$(grep '^mv -f .*new ' /case/calls | grep -v journal || true)"
  expect_file $agent/msp-agent "old agent"
  expect_file $plist "old list"
  expect_identity
  expect_nothing_left_over
}

test_an_agent_that_launchd_refuses_makes_room_for_the_old_one() {
  new_mac
  old_agent
  echo "new agent" >/case/refuse
  install_new
  expect_text status 1 "$status"
  expect_old
  expect_identity
  expect_nothing_left_over
  expect_file /case/output "install.sh: launchd does not take the agent: Bootstrap failed: 5: Input/output error
install.sh: it failed: going back
install.sh: the old agent runs again"
}

test_an_agent_that_ends_at_once_makes_room_for_the_old_one() {
  new_mac
  old_agent
  echo "new agent" >/case/crash
  install_new
  expect_text status 1 "$status"
  expect_old
  expect_identity
  expect_nothing_left_over
  expect_file /case/output "install.sh: the agent does not stay up: last exit code = 1
install.sh: it failed: going back
install.sh: the old agent runs again"
}

test_an_agent_that_was_disabled_is_enabled_and_on_failure_disabled_again() {
  new_mac
  old_agent
  rm -r /case/job
  touch /case/disabled
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_none /case/disabled

  new_mac
  old_agent
  rm -r /case/job
  touch /case/disabled
  echo "new agent" >/case/refuse
  install_new
  expect_text status 1 "$status"
  expect_none /case/job
  expect_file $agent/msp-agent "old agent"
  [ -e /case/disabled ] || wrong "the old agent is no longer disabled"
}

test_what_cannot_be_installed_is_refused_before_anything_changes() {
  # What is wrong | what makes it so | the arguments | the text
  local name make arguments text before
  while IFS='|' read -r name make arguments text; do
    current="a refusal: $name"
    new_mac
    old_agent
    eval "$make"
    before=$(cd / && find opt Library -printf '%p %i %m %s %T@\n')
    # shellcheck disable=SC2086 # the words of a row
    run /case/new/install.sh $arguments
    expect_text status 1 "$status"
    expect_text output "install.sh: $text" "$(cat /case/output)"
    expect_text "what is there" "$before" "$(cd / && find opt Library -printf '%p %i %m %s %T@\n')"
    runs "old agent"
    expect_text "the changes" "" "$(grep -vE '^(sw_vers|find|launchctl print)' /case/calls || true)"
  done <<'ROWS'
the address is a file's|true|file:///etc/passwd|this is no http or https address: file:///etc/passwd
the address has no host|true|https://|this is no http or https address: https://
an unknown option|true|--force https://new.example/|usage: install.sh [--check] [--program FILE] [ADDRESS]
two addresses|true|http://a/ http://b/|usage: install.sh [--check] [--program FILE] [ADDRESS]
--program without a file|true|--program|usage: install.sh [--check] [--program FILE] [ADDRESS]
no address, now or before|rm $agent/default_api.txt||the server's address is needed. usage: install.sh [--check] [--program FILE] [ADDRESS]
no program|rm /case/new/msp-agent|http://a/|there is no executable at /case/new/msp-agent
an empty program|: >/case/new/msp-agent|http://a/|there is no executable at /case/new/msp-agent
no property list|rm /case/new/*.plist|http://a/|there is no org.msp-agent.agent.plist beside this script
macOS is too old|echo 10.15.7 >/case/version|http://a/|macOS 11 or later is needed, this is 10.15.7
the version is no number|echo new >/case/version|http://a/|macOS 11 or later is needed, this is new
others may write to the folder|chmod 775 $agent|http://a/|/opt/msp-agent has to be a folder of root's that nobody else may write to: look at what is in it, then chown root:wheel and chmod 755 it
others may write to the folder above|chmod 757 /opt|http://a/|/opt has to be a folder of root's that nobody else may write to: look at what is in it, then chown root:wheel and chmod 755 it
the upgrade script is a link|ln -s /case/x $agent/macupgrade.sh|http://a/|/opt/msp-agent/macupgrade.sh has to be a file, and no link
the upgrade script is a folder|mkdir $agent/macupgrade.sh|http://a/|/opt/msp-agent/macupgrade.sh has to be a file, and no link
the folder is a link|mv $agent /opt/x; ln -s x $agent|http://a/|/opt/msp-agent has to be a folder of root's that nobody else may write to: look at what is in it, then chown root:wheel and chmod 755 it
ROWS
}

test_a_check_changes_nothing() {
  new_mac
  old_agent
  run /case/new/install.sh --check http://a/
  expect_text status 0 "$status"
  expect_old
  expect_text "the calls" "" "$(grep -vE '^(sw_vers|find) ' /case/calls || true)"
}

test_a_spoilt_program_is_not_installed() {
  new_mac
  old_agent
  echo "new agent, spoilt" >/case/new/msp-agent
  install_new
  expect_text status 1 "$status"
  expect_old
  expect_nothing_left_over
  expect_file /case/output "install.sh: /case/new/msp-agent does not match /case/new/msp-agent.sha256
install.sh: nothing was installed"
  expect_text "what launchd was told" "" "$(grep -E 'bootout|bootstrap' /case/calls || true)"
}

# steps FIRST: sets numbers to those of the calls that have been made, from that one on. Of a wait, which is the
# same two calls again and again, only the first rounds.
steps() {
  local all number
  mapfile -t -O 1 all </case/calls
  numbers=()
  for ((number = $1; number <= ${#all[@]}; number++)); do
    if [ "$number" -le 4 ] || [ "${all[number]}" != "${all[number - 2]}" ] ||
      [ "${all[number]}" != "${all[number - 4]}" ]; then
      numbers+=("$number")
    fi
  done
}

# each_failure_of SCRIPT-FUNCTION HOW SETUP CHECK [LAST]: SETUP and the function without a failure, for its steps; then
# again and again, with the first command failing, then the second, and so on; after each the CHECK, which is told
# the call that failed. With a LAST that is as far as it goes.
each_failure_of() {
  local number numbers failed
  new_mac
  "$3"
  "$1"
  expect_text status 0 "$status"
  steps 1
  for number in "${numbers[@]}"; do
    new_mac
    "$3"
    echo "$number" >/case/fail_at
    echo "$2" >/case/fail_how
    "$1"
    failed=$(sed -n "${number}p" /case/calls)
    current="the failure ($2) of call $number, $failed"
    "$4" "$failed"
    [ "$failed" != "${5:-}" ] || break
  done
  [ "$number" -gt 12 ] || wrong "there were only $number steps"
}

# each_failure HOW SETUP CHECK: of an installation.
each_failure() { each_failure_of install_new "$@"; }

# Where the step can be done without, or was tried again, the new agent runs; otherwise the old one does.
old_or_new() {
  expect_identity
  case $1 in
    # These are done again, or tell of nothing.
    "launchctl print system/"* | "launchctl boot"* | sleep* | "defaults "*) expected=either ;;
    # What could not be removed is left behind: the new agent runs already.
    "rm -f $agent/msp-agent.old "*) expected=either ;;
    *) expected=old ;;
  esac
  [ -s /case/output ] || wrong "it said nothing"
  if [ "$status" -eq 0 ]; then
    [ $expected = either ] || wrong "the failure had no consequence"
    expect_new
  else
    expect_old
  fi
  case $1 in
    "rm -f "*) ;;
    *) expect_nothing_left_over ;;
  esac
}

test_a_failure_at_any_step_leaves_the_old_agent_running() {
  each_failure before old_agent old_or_new
}

test_a_step_that_was_done_but_reported_as_failed_leaves_one_agent_running() {
  each_failure after old_agent old_or_new
}

nothing_or_new() {
  expect_none $agent/config.ini
  if [ "$status" -eq 0 ]; then
    expect_new
    return
  fi
  expect_none /case/job
  expect_none $agent/msp-agent
  expect_none $agent/default_api.txt
  expect_none $plist
  case $1 in
    "rm -f "*) ;;
    *) expect_none $agent ;;
  esac
  expect_none $plist.new
}

test_a_failure_at_any_step_of_a_first_installation_leaves_nothing() {
  each_failure before true nothing_or_new
}

old_unless_installed() {
  expect_identity
  case $1 in
    "rm -f $agent/msp-agent.old "*) # the last step
      expect_text status 0 "$status"
      expect_new
      ;;
    *)
      expect_text status 143 "$status"
      expect_old
      ;;
  esac
  expect_nothing_left_over
}

test_a_signal_at_any_step_leaves_the_old_agent_running() {
  each_failure terminate old_agent old_unless_installed
}

# each_failure_on_the_way_back HOW STATUS CHECK: the last step before the new files count fails, and then one
# command on the way back.
each_failure_on_the_way_back() {
  local number numbers failed
  to_and_back() {
    new_mac
    old_agent
    echo "rm -f $agent/install.journal" >/case/fail_once
    echo "$1" >/case/fail_at
    echo "$2" >/case/fail_how
    install_new
  }
  to_and_back 0 "$1"
  # Without another failure: the way back begins when the new agent has been seen to run.
  expect_text status 1 "$status"
  expect_old
  number=$(grep -n -m 1 "^rm -f $agent/install.journal" /case/calls)
  steps $((${number%%:*} + 1))
  [ "${#numbers[@]}" -gt 12 ] || wrong "the way back has only ${#numbers[@]} steps"
  for number in "${numbers[@]}"; do
    to_and_back "$number" "$1"
    failed=$(sed -n "${number}p" /case/calls)
    current="the failure ($1) of call $number on the way back, $failed"
    expect_text status "$2" "$status"
    expect_identity
    "$3" "$failed"
  done
}

old_as_far_as_it_goes() {
  local words
  read -r -a words <<<"$1"
  case $1 in
    "mv -f $agent/msp-agent.old "*) # all that could be done without the program
      expect_file $agent/msp-agent.old "old agent"
      expect_file $plist "old list"
      expect_file $agent/default_api.txt "https://old.example/"
      a_failing_run # which has still to go back
      expect_old
      ;;
    "mv -f "*)
      runs "old agent"
      expect_file $agent/msp-agent "old agent"
      [ -s "${words[2]}" ] || wrong "the old ${words[3]} is lost"
      a_failing_run
      expect_old
      ;;
    *) expect_old ;;
  esac
}

test_a_failure_on_the_way_back_does_not_end_it() {
  each_failure_on_the_way_back before 1 old_as_far_as_it_goes
}

old_again() {
  expect_old
  expect_nothing_left_over
}

test_a_signal_on_the_way_back_does_not_end_it() {
  each_failure_on_the_way_back terminate 1 old_again
}

# A second run fails, too, when its first new file is in place.
a_failing_run() {
  rm -f /case/fail_at /case/fail_how
  echo "mv -f $plist.new $plist" >/case/fail_once
  install_new
  expect_text "status of the second run" 1 "$status"
  expect_nothing_left_over
}
# The files are all there after a power failure, and what was last seen to work is never lost.
old_until_the_new_is_proved() {
  expect_identity
  grep -qE '^(old|new) agent$' "$agent/msp-agent" || wrong "there is no program"
  [ -s "$plist" ] || wrong "there is no property list"
  [ -s "$agent/default_api.txt" ] || wrong "there is no address"
  a_failing_run
  case $1 in
    "rm -f $agent/msp-agent.old "*) expect_new ;; # the last step
    *) expect_old ;;
  esac
  expect_identity
}

test_after_a_power_failure_at_any_step_it_goes_back_to_what_worked() {
  each_failure kill old_agent old_until_the_new_is_proved
}

old_after_another_failure() {
  a_failing_run
  expect_old
  expect_identity
}

test_after_a_power_failure_on_the_way_back_it_goes_back_again() {
  each_failure_on_the_way_back kill 137 old_after_another_failure
}

nothing_until_the_new_is_proved() {
  # As after the start of the Mac: launchd takes what is there.
  if [ -e $plist ] && [ -e $agent/msp-agent ] && [ ! -e /case/job ]; then
    mkdir /case/job
    echo "new agent" >/case/job/program
    echo 300 >/case/job/pid
    : >/case/job/plist
  fi
  a_failing_run
  case $1 in
    "rm -f $agent/msp-agent.old "*) expect_new ;;
    *)
      expect_none /case/job
      expect_none $agent
      expect_none $plist
      ;;
  esac
}

test_after_a_power_failure_a_first_installation_that_fails_leaves_nothing() {
  each_failure kill true nothing_until_the_new_is_proved
}

# killed_at CALL: an installation that is killed there.
killed_at() {
  echo "$1" >/case/fail_once
  echo kill >/case/fail_how
  install_new
  expect_text "status of the one that was killed" 137 "$status"
  rm /case/fail_how
}

test_the_address_of_an_interrupted_first_installation_does_not_count() {
  new_mac
  killed_at "launchctl bootstrap system $plist"
  expect_file $agent/default_api.txt "https://new.example/api"
  run /case/new/install.sh
  expect_text status 1 "$status"
  expect_file /case/output "install.sh: the last installation was interrupted: its files make room for the old ones
install.sh: the server's address is needed. usage: install.sh [--check] [--program FILE] [ADDRESS]
install.sh: it failed: going back
install.sh: nothing was installed"
  expect_none $agent
  expect_none $plist
}

test_an_interrupted_installation_remembers_that_the_agent_was_disabled() {
  new_mac
  old_agent
  rm -r /case/job
  touch /case/disabled
  killed_at "launchctl bootstrap system $plist"
  expect_none /case/disabled
  a_failing_run
  expect_none /case/job
  expect_file $agent/msp-agent "old agent"
  [ -e /case/disabled ] || wrong "the old agent is no longer disabled"
  install_new
  expect_text "status of the last run" 0 "$status"
  expect_new
  expect_nothing_left_over
}

test_a_journal_that_cannot_be_read_stops_the_installation() {
  local content
  for content in "" "yes no present"; do
    new_mac
    old_agent
    echo "$content" >$agent/install.journal
    echo "older agent" >$agent/msp-agent.old
    install_new
    expect_text status 1 "$status"
    expect_file /case/output "install.sh: /opt/msp-agent/install.journal cannot be read: see whether each FILE.old is\
 there, then remove it"
    expect_old
    expect_file $agent/install.journal "$content"
    expect_file $agent/msp-agent.old "older agent"
  done
}

test_a_first_installation_that_does_not_stay_up_leaves_only_its_words() {
  new_mac
  echo "new agent" >/case/crash
  printf 'one\ntwo\nthree\nfour\nfive\nsix\n' >/case/printed
  install_new
  expect_text status 1 "$status"
  expect_none $agent
  expect_none $plist
  expect_none /case/job
  expect_file /case/output "install.sh: the agent does not stay up: last exit code = 1
install.sh: it failed: going back
install.sh: the end of /opt/msp-agent/output.log:
two
three
four
five
six
install.sh: nothing was installed"
}

test_a_first_installation_that_fails_leaves_what_was_there() {
  new_mac
  mkdir $agent
  echo '{"agent_id": "9"}' >$agent/config.ini
  echo "an old line" >$agent/logfile.log
  identity=$(identity_now)
  echo "new agent" >/case/crash
  install_new
  expect_text status 1 "$status"
  expect_identity
  expect_text "what is left" "config.ini
logfile.log" "$(ls -A $agent)"
}

not_undone="install.sh: not everything could be undone: look at the lines above, then run this script again"

test_an_old_agent_that_did_not_run_and_is_not_put_back_is_told() {
  new_mac
  old_agent
  rm -r /case/job
  echo "new agent" >/case/refuse
  echo "mv -f $agent/msp-agent.old $agent/msp-agent" >/case/fail_once
  install_new
  expect_text status 1 "$status"
  expect_file /case/output "install.sh: launchd does not take the agent: Bootstrap failed: 5: Input/output error
install.sh: it failed: going back
install.sh: the old $agent/msp-agent could not be put back: it is $agent/msp-agent.old
$not_undone"
  expect_file $agent/msp-agent.old "old agent"
  expect_file $plist "old list"
  a_failing_run # which has still to go back
  expect_text "the last line of the second run" "install.sh: nothing was installed" "$(tail -n 1 /case/output)"
  expect_none /case/job
  expect_file $agent/msp-agent "old agent"
  expect_identity
}

test_a_first_installation_that_cannot_be_taken_away_is_told() {
  new_mac
  echo "new agent" >/case/refuse
  echo "rm -f $agent/msp-agent" >/case/fail_once
  install_new
  expect_text status 1 "$status"
  expect_file /case/output "install.sh: launchd does not take the agent: Bootstrap failed: 5: Input/output error
install.sh: it failed: going back
$not_undone"
  expect_file $agent/msp-agent "new agent"
  expect_none $plist
  a_failing_run
  expect_text "the last line of the second run" "install.sh: nothing was installed" "$(tail -n 1 /case/output)"
  expect_none $agent
}

test_a_first_installation_whose_agent_cannot_be_stopped_is_told() {
  new_mac
  echo "new agent" >/case/crash
  echo 1000000 >/case/linger
  install_new
  expect_text status 1 "$status"
  expect_file /case/output "install.sh: the agent does not stay up: last exit code = 1
install.sh: it failed: going back
install.sh: launchd does not let go of the new agent
$not_undone"
  expect_none $agent/msp-agent
  expect_none $plist
  # Until launchd has let go of it, as after a restart.
  rm -r /case/job
  rm /case/linger
  a_failing_run
  expect_text "the last line of the second run" "install.sh: nothing was installed" "$(tail -n 1 /case/output)"
  expect_none /case/job
  expect_none $agent
}

# modes_of NAME...: of files in the agent's folder, with what was given to root among them.
modes_of() {
  local name
  for name in "$@"; do
    printf '%s %s %s, ' "$name" "$(stat -c %a "$agent/$name")" \
      "$(grep -qxE "$agent/$name(.new)?" /case/given_to_root && echo root)"
  done
}

test_files_that_others_could_write_to_are_root_s_alone_afterwards() {
  local address mode
  for address in "" "https://new.example/api"; do
    for mode in 777 775 700; do
      current="with the address \"$address\" and mode $mode"
      new_mac
      old_agent
      echo "do it" >$agent/macupgrade.sh
      echo "a word" >$agent/output.log
      chmod "$mode" $agent/macupgrade.sh
      chmod 666 $agent/default_api.txt $agent/output.log
      chmod 700 $agent/msp-agent
      # New files inherit the folder's.
      printf '%s\n' $agent $agent/{macupgrade.sh,output.log,{msp-agent,default_api.txt}.new} $plist.new >/case/acl
      run /case/new/install.sh ${address:+"$address"}
      expect_text status 0 "$status"
      runs "new agent"
      case $mode in
        700) ;;
        *) mode=755 ;;
      esac
      expect_text "whose they are" \
        "msp-agent 755 root, default_api.txt 644 root, output.log 600 root, macupgrade.sh $mode root, " \
        "$(modes_of msp-agent default_api.txt output.log macupgrade.sh)"
      expect_text "the access control lists" "" "$(</case/acl)"
      expect_file $agent/macupgrade.sh "do it"
      expect_file $agent/output.log "a word"
      expect_file $agent/default_api.txt "${address:-https://old.example/}"
      expect_identity
    done
  done
}

test_output_that_goes_elsewhere_goes_there() {
  new_mac
  old_agent
  echo mine >/case/elsewhere
  chmod 664 /case/elsewhere
  ln -s /case/elsewhere $agent/output.log
  install_new
  expect_text status 0 "$status"
  expect_text "the mode" 664 "$(stat -c %a /case/elsewhere)"
}

removed() {
  expect_text status 0 "$status"
  expect_none /case/job
  expect_none $plist
  expect_none $agent/msp-agent
  expect_none $agent/default_api.txt
  expect_none $agent/logfile.log
}

test_without_a_terminal_an_uninstallation_keeps_the_identity() {
  new_mac
  old_agent
  run /case/new/uninstall.sh </dev/null
  removed
  expect_identity
  expect_text "what is left" "config.ini" "$(ls -A $agent)"
  expect_file /case/output "uninstall.sh: the agent is removed
uninstall.sh: its identity is kept: /opt/msp-agent/config.ini"
}

test_an_uninstallation_does_with_the_identity_what_the_option_says() {
  new_mac
  old_agent
  run /case/new/uninstall.sh --keep-identity
  removed
  expect_identity

  new_mac
  old_agent
  run /case/new/uninstall.sh --remove-identity
  removed
  expect_none $agent
  expect_file /case/output "uninstall.sh: the agent is removed"
}

test_on_a_terminal_an_uninstallation_asks_for_the_identity() {
  local answer
  for answer in y yes n "" maybe; do
    current="the answer \"$answer\""
    new_mac
    old_agent
    status=0
    echo "$answer" |
      script --quiet --return --command /case/new/uninstall.sh /dev/null >/case/output 2>&1 || status=$?
    removed
    grep -q 'Remove the identity in /opt/msp-agent/config.ini, too? \[y/N\]' /case/output || wrong "it did not ask"
    case $answer in
      y | yes) expect_none $agent ;;
      *) expect_identity ;;
    esac
  done
}

test_an_uninstallation_removes_nothing_while_the_agent_cannot_be_stopped() {
  new_mac
  old_agent
  echo 1000000 >/case/linger
  run /case/new/uninstall.sh --remove-identity
  expect_text status 1 "$status"
  expect_file $agent/msp-agent "old agent"
  expect_file $plist "old list"
  expect_identity
}

remove_keeping() { run /case/new/uninstall.sh --keep-identity; }
remove_all() { run /case/new/uninstall.sh --remove-identity; }
much_to_remove() {
  old_agent
  touch /case/receipt /case/disabled
  echo "do it" >$agent/macupgrade.sh
  : >$agent/install.journal
  echo "older agent" >$agent/msp-agent.old
}
removed_or_told() {
  case $1 in
    # These are done again, tell of nothing, or leave an empty folder.
    "launchctl print system/"* | "launchctl bootout"* | sleep* | "pkgutil --pkg-info"* | rmdir*)
      removed
      ;;
    *)
      expect_text status 1 "$status"
      expect_text "the last line" "run this again" "$(tail -n 1 /case/output | grep -o 'run this again$')"
      ;;
  esac
}
kept_and_removed_or_told() {
  removed_or_told "$1"
  expect_identity
  rm -f /case/fail_at
  remove_keeping
  removed
  expect_identity
  expect_text "what is left" "config.ini" "$(ls -A $agent)"
  expect_none /case/disabled
}
all_removed_or_told() {
  removed_or_told "$1"
  # The last thing that goes.
  if [ "$status" -ne 0 ]; then expect_identity; fi
  rm -f /case/fail_at
  remove_all
  removed
  expect_none $agent
  expect_none /case/disabled
}

test_a_failure_at_any_step_of_an_uninstallation_is_told_and_keeps_the_identity() {
  each_failure_of remove_keeping before much_to_remove kept_and_removed_or_told
  each_failure_of remove_keeping after much_to_remove kept_and_removed_or_told
}

test_a_failure_at_any_step_of_an_uninstallation_with_the_identity_is_told() {
  each_failure_of remove_all before much_to_remove all_removed_or_told
}

test_an_uninstallation_leaves_the_agent_neither_disabled_nor_enabled() {
  new_mac
  old_agent
  rm -r /case/job
  touch /case/disabled
  remove_keeping
  removed
  expect_none /case/disabled

  new_mac
  old_agent
  remove_keeping
  removed
  # That would leave a note of its own.
  expect_text "what launchd was told" "" "$(grep "^launchctl enable" /case/calls || true)"
}

test_an_uninstallation_can_be_run_twice_and_forgets_the_receipt() {
  new_mac
  old_agent
  touch /case/receipt
  run /case/new/uninstall.sh --remove-identity
  removed
  expect_none /case/receipt
  run /case/new/uninstall.sh --remove-identity
  removed
  expect_text "what the agent was told" 1 "$(grep -c bootout /case/calls)"
}

test_an_uninstallation_leaves_what_it_does_not_know() {
  new_mac
  old_agent
  echo mine >$agent/notes
  run /case/new/uninstall.sh --remove-identity
  removed
  expect_text "what is left" "notes" "$(ls -A $agent)"
  run /case/new/uninstall.sh --purge
  expect_text status 1 "$status"
  expect_file /case/output "uninstall.sh: usage: uninstall.sh [--remove-identity | --keep-identity]"
}

test_after_an_uninstallation_the_kept_identity_is_used_again() {
  new_mac
  old_agent
  run /case/new/uninstall.sh --keep-identity
  install_new
  expect_text status 0 "$status"
  expect_new
  expect_identity
}

# What the package carries among its scripts, and a package beside which the address may be.
packaged() {
  cp "$packaging/package/"* /case/new
  mkdir /case/downloads
  : >/case/downloads/agent.pkg
}
installer() { # SCRIPT
  run "/case/new/$1" /case/downloads/agent.pkg / /
}

test_a_package_takes_the_address_from_the_managed_preferences() {
  new_mac
  packaged
  echo "https://new.example/api" >/case/defaults
  echo "https://wrong.example/" >/case/downloads/api_address.txt
  installer preinstall
  expect_text status 0 "$status"
  expect_none $agent
  installer postinstall
  expect_text status 0 "$status"
  expect_new
  grep -q '^defaults read /Library/Managed Preferences/org.msp-agent.agent APIAddress$' /case/calls ||
    wrong "it did not look into the managed preferences"
}

test_a_package_takes_the_address_from_the_file_beside_it() {
  new_mac
  packaged
  printf 'https://new.example/api\r\n' >/case/downloads/api_address.txt
  installer preinstall
  expect_text status 0 "$status"
  installer postinstall
  expect_text status 0 "$status"
  expect_new
}

test_a_package_upgrades_with_the_address_of_before() {
  new_mac
  old_agent
  packaged
  installer preinstall
  expect_text status 0 "$status"
  installer postinstall
  expect_text status 0 "$status"
  runs "new agent"
  expect_file $agent/default_api.txt "https://old.example/"
  expect_identity
}

test_a_package_refuses_what_it_cannot_install() {
  local name make text
  while IFS='|' read -r name make text; do
    current="a package: $name"
    new_mac
    packaged
    echo "https://new.example/api" >/case/downloads/api_address.txt
    eval "$make"
    installer preinstall
    expect_text status 1 "$status"
    expect_text output "$text" "$(cat /case/output)"
    expect_none $agent
  done <<'ROWS'
everybody may write the address|chmod 646 /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the group may write the address|chmod 664 /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is not root's|touch /case/foreign|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is a link|mv /case/downloads/api_address.txt /case/x; ln -s ../x /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is a link to nothing|ln -sf ../none /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is a folder|rm /case/downloads/api_address.txt; mkdir /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is a pipe|rm /case/downloads/api_address.txt; mkfifo /case/downloads/api_address.txt|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is another file once it is open|echo "https://other.example/" >/case/swapped|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the address is a link once it is open|cp /case/downloads/api_address.txt /case/x; ln -s /case/x /case/swapped|/case/downloads/api_address.txt is not used: it has to be a file, and no link, of root's that nobody else may write to
the managed preferences name no address|mkdir "/Library/Managed Preferences"; : >"/Library/Managed Preferences/$label.plist"|the managed preferences have no APIAddress that could be read: /Library/Managed Preferences/org.msp-agent.agent.plist
no address|rm /case/downloads/api_address.txt|install.sh: the server's address is needed. usage: install.sh [--check] [--program FILE] [ADDRESS]
an address of no use|echo elsewhere >/case/downloads/api_address.txt|install.sh: this is no http or https address: elsewhere
macOS is too old|echo 10.15 >/case/version|install.sh: macOS 11 or later is needed, this is 10.15
ROWS
  current="a package: another volume"
  run /case/new/preinstall /case/downloads/agent.pkg / /Volumes/Other
  expect_text status 1 "$status"
  expect_file /case/output "the agent can only be installed on the volume that this Mac runs from"
}

# Both of the package's scripts, as the installer runs them.
install_package() {
  installer preinstall
  [ "$status" -ne 0 ] || installer postinstall
}
packaged_upgrade() {
  old_agent
  packaged
  echo "https://new.example/api" >/case/downloads/api_address.txt
}

test_a_failure_at_any_step_of_a_package_leaves_the_old_agent_running() {
  # What comes then is the same without a package.
  each_failure_of install_package before packaged_upgrade old_or_new "launchctl print-disabled system"
}
build() { # OUTPUT FOLDER
  umask "$2"
  TZ=$3 "$packaging/build-pkg" --program /case/new/msp-agent --output "$1" >/case/output
}

test_the_archive_holds_the_files_and_is_the_same_every_time() {
  local version archive name
  new_mac
  version=$(sed -n 's/.*kAgentVersion\[\] = "\(.*\)".*/\1/p' "$packaging/../../src/agent/msp_agent.cpp")
  name=msp-agent-$version-macos
  archive=/case/one/$name.tar.gz
  (build /case/one 022 UTC)
  expect_file /case/output "$archive"
  expect_text "the content" "drwxr-xr-x 0/0 $name/
-rwxr-xr-x 0/0 $name/install.sh
-rwxr-xr-x 0/0 $name/msp-agent
-rw-r--r-- 0/0 $name/msp-agent.sha256
-rw-r--r-- 0/0 $name/org.msp-agent.agent.plist
-rwxr-xr-x 0/0 $name/uninstall.sh" "$(tar -tvzf "$archive" | awk '{print $1, $2, $6}')"

  chmod 600 /case/new/msp-agent
  touch -d '2031-02-03' /case/new/msp-agent
  (build /case/two 077 Asia/Tokyo)
  cmp "$archive" "/case/two/$name.tar.gz" || wrong "the second archive is another one"

  tar -xzf "$archive" -C /case
  run "/case/$name/install.sh" https://new.example/api
  expect_text status 0 "$status"
  expect_new
}

# On a Mac, as far as its tools' stand-ins tell.
on_a_mac() { run env PATH=/bin:/usr/bin "$packaging/build-pkg" --program /case/new/msp-agent --output /case/out "$@"; }

test_on_a_mac_a_package_is_built_signed_and_notarised() {
  local version
  new_mac
  version=$(sed -n 's/.*kAgentVersion\[\] = "\(.*\)".*/\1/p' "$packaging/../../src/agent/msp_agent.cpp")
  on_a_mac --sign-program "Program (A)" --sign "Package (A)" --notarize admin
  expect_text status 0 "$status"
  expect_file /case/output "/case/out/msp-agent-$version.pkg"
  expect_text "what is there" "msp-agent-$version.pkg" "$(ls -A /case/out)"
  expect_file /case/scripts "find-address.sh
install.sh
msp-agent
msp-agent.sha256
org.msp-agent.agent.plist
postinstall
preinstall
uninstall.sh"
  # The folder's name is another one each time. The checksum comes after the signature, which changes the file.
  expect_text "the order" "lipo /case/new/msp-agent -verify_arch arm64 x86_64
codesign --force --options runtime --timestamp --identifier org.msp-agent.agent\
 --sign Program (A) WORK/scripts/msp-agent
shasum -a 256 msp-agent
pkgbuild --quiet --root WORK/payload --scripts WORK/scripts --identifier org.msp-agent.agent\
 --version $version --install-location / WORK/agent.pkg
productbuild --quiet --distribution $packaging/package/distribution.xml --package-path WORK\
 --identifier org.msp-agent.agent --version $version --sign Package (A) --timestamp WORK/product.pkg
xcrun notarytool submit --wait --keychain-profile admin WORK/product.pkg
xcrun stapler staple WORK/product.pkg" \
    "$(grep -E '^(lipo|codesign|shasum|pkgbuild|productbuild|xcrun)' /case/calls |
      sed 's,/[^ ]*/msp-agent-package\.[^/ ]*,WORK,g')"
}

test_on_a_mac_a_package_need_not_be_signed() {
  new_mac
  on_a_mac
  expect_text status 0 "$status"
  expect_text "the signatures" "" "$(grep -E '^(codesign|xcrun)|--sign' /case/calls || true)"
}

test_on_a_mac_a_program_of_one_architecture_is_not_packed() {
  local architecture
  for architecture in arm64 x86_64; do
    current="a program for $architecture"
    new_mac
    echo "$architecture" >/case/architectures
    on_a_mac --sign-program A --sign B --notarize admin
    expect_text status 1 "$status"
    expect_file /case/output "build-pkg: this is no executable for both arm64 and x86_64: /case/new/msp-agent"
    expect_text "what is there" "" "$(ls -A /case/out)"
    expect_text "what was signed or packed" "" "$(grep -E '^(codesign|pkgbuild|productbuild|xcrun)' /case/calls || true)"
  done
}

test_on_a_mac_a_package_that_is_not_notarised_is_not_left() {
  new_mac
  touch /case/unsigned
  on_a_mac --sign-program A --sign B --notarize admin
  expect_text status 65 "$status"
  expect_text "what is there" "" "$(ls -A /case/out)"

  on_a_mac --sign B --notarize admin
  expect_text status 1 "$status"
  expect_file /case/output "build-pkg: --notarize takes --sign-program and --sign"
}

test_packing_says_what_is_wrong() {
  local arguments text
  new_mac
  while IFS='|' read -r arguments text; do
    current="build-pkg $arguments"
    # shellcheck disable=SC2086 # the words of a row
    run "$packaging/build-pkg" $arguments --output /case/out
    expect_text status 1 "$status"
    expect_file /case/output "build-pkg: $text"
    expect_none /case/out
  done <<'ROWS'
--program /case/none|there is no executable at /case/none
--program /case/new/msp-agent --sign Somebody|only a Mac can sign and notarise
--program /case/new/msp-agent --notarize somebody|only a Mac can sign and notarise
--fast yes|unknown: --fast (the head of this script says what there is)
ROWS
}

test_the_property_list_says_how_launchd_is_to_run_the_agent() {
  new_mac
  python3 - "$packaging/$label.plist" <<'PYTHON' >/case/output 2>&1 || wrong "the property list is another one"
import plistlib, sys
expected = {
    "Label": "org.msp-agent.agent",
    "ProgramArguments": ["/opt/msp-agent/msp-agent"],
    "RunAtLoad": True,
    "KeepAlive": True,
    "ThrottleInterval": 10,
    "ProcessType": "Background",
    "AbandonProcessGroup": True,
    "SoftResourceLimits": {"NumberOfFiles": 10240},
    "HardResourceLimits": {"NumberOfFiles": 10240},
    "EnvironmentVariables": {"HOME": "/var/root", "PATH": "/usr/bin:/bin:/usr/sbin:/sbin"},
    "WorkingDirectory": "/opt/msp-agent",
    "StandardOutPath": "/opt/msp-agent/output.log",
    "StandardErrorPath": "/opt/msp-agent/output.log",
}
found = plistlib.load(open(sys.argv[1], "rb"))
assert found == expected, found
PYTHON
}

if [ $# -gt 0 ]; then
  tests=("test_$1")
  [ "$(type -t "${tests[0]}")" = function ] || { echo "packaging_test: there is no test $1" >&2; exit 1; }
else
  mapfile -t tests < <(declare -F | sed -n 's/^declare -f \(test_.*\)/\1/p')
fi
for current in "${tests[@]}"; do
  "$current"
done
echo "packaging_test: ${#tests[@]} passed"
