#!/bin/bash
# Read by the installer package's scripts: where an installation that nobody attends gets the server's address.
# The first of these that is there:
#   1. the key APIAddress of the managed preferences of org.msp-agent.agent, which a device management profile
#      sets (/Library/Managed Preferences/org.msp-agent.agent.plist)
#   2. the first line of the file api_address.txt beside the package. It counts only when it belongs to root or to
#      whom the package belongs, and nobody else may write to it: who names the server rules this Mac.
#   3. the address of an earlier installation, for which nothing is printed

owner_of() {
  local line words
  line=$(ls -ldn "$1") && read -r -a words <<<"$line" && echo "${words[2]}"
}

# find_address PACKAGE: prints the address, or nothing. Fails when there is one that may not be used.
find_address() {
  local package=$1 file address owner
  if address=$(defaults read "/Library/Managed Preferences/org.msp-agent.agent" APIAddress 2>/dev/null) &&
    [ -n "$address" ]; then
    echo "$address"
    return 0
  fi
  file=.
  [ "${package%/*}" = "$package" ] || file=${package%/*}
  file=$file/api_address.txt
  [ -e "$file" ] || [ -L "$file" ] || return 0
  owner=$(owner_of "$package") || return 1
  if [ -z "$(find "$file" -prune -type f \( -user 0 -o -user "$owner" \) ! -perm -0020 ! -perm -0002)" ]; then
    echo "$file may be written by others than the package's owner, and is not used" >&2
    return 1
  fi
  address=
  read -r address <"$file" || true
  address=${address%$'\r'}
  echo "$address"
}
