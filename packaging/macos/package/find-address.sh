#!/bin/bash
# Read by the installer package's scripts: where an installation that nobody attends gets the server's address.
# The first of these that is there:
#   1. the key APIAddress of the managed preferences of org.msp-agent.agent, which a device management profile
#      sets (/Library/Managed Preferences/org.msp-agent.agent.plist)
#   2. the first line of the file api_address.txt beside the package. It counts only when it is a file of root's
#      that nobody else may write to: who names the server rules this Mac.
#   3. the address of an earlier installation, for which nothing is printed

# first_line_of_roots FILE: the first line of the standard input, which has been opened as FILE. Fails unless it is
# root's own. What was opened is looked at, so that nobody can put another file there in between.
first_line_of_roots() {
  local opened named words mode line=
  opened=$(stat -f '%d %i %u %Sp') || return 1
  # That of a link itself, which is another file then.
  named=$(stat -f '%d %i %u %Sp' "$1") || return 1
  [ "$opened" = "$named" ] || return 1
  read -r -a words <<<"$opened"
  mode=${words[3]}
  [ "${words[2]}" = 0 ] && [[ $mode = -????-??-* ]] || return 1
  read -r line || true
  echo "${line%$'\r'}"
}

# find_address PACKAGE: prints the address, or nothing. Fails when there is one that may not be used.
find_address() {
  local package=$1 managed="/Library/Managed Preferences/org.msp-agent.agent" file address
  if address=$(defaults read "$managed" APIAddress 2>/dev/null) && [ -n "$address" ]; then
    echo "$address"
    return 0
  fi
  if [ -e "$managed.plist" ]; then
    echo "the managed preferences have no APIAddress that could be read: $managed.plist" >&2
    return 1
  fi
  file=.
  [ "${package%/*}" = "$package" ] || file=${package%/*}
  file=$file/api_address.txt
  [ -e "$file" ] || [ -L "$file" ] || return 0
  # shellcheck disable=SC2094 # nothing is written
  # To open a pipe could take forever.
  if [ ! -f "$file" ] || ! first_line_of_roots "$file" <"$file"; then
    echo "$file is not used: it has to be a file, and no link, of root's that nobody else may write to" >&2
    return 1
  fi
}
