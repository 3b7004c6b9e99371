# shellcheck shell=bash
# The commands that the README promises, as they stand there. Sourced, in the checkout's folder: sets first_command, which builds
# the packages, and COMMANDS with the others, one a line.
mapfile -t commands < <(awk '/^## / { inside = $0 == "## From a clone to a mirror" } inside && /^    [^ #]/ { print substr($0, 5) }' README.md)
((${#commands[@]} == 6)) || { echo "the README has ${#commands[@]} commands, not six" >&2; exit 1; }
first_command=${commands[0]%%#*}
COMMANDS=$(printf '%s\n' "${commands[@]:1}")
export COMMANDS
