#!/bin/bash
# What no product code may call: a shell, but in the one file that runs fixed commands, and library functions
# that know no bound. Formats are literals, which the compiler checks of every function that it knows to
# take one, so each of ours says that it does. Prints the lines that break this, and fails if there are any.
set -eu
cd "$(dirname "$0")/.."

product='common protocol camera media config server app hosts recorder'
server='common protocol camera media config server app'
one_shell='camera/shell_commands.cpp'
shells='system|popen|v?fork|exec(l|le|lp|v|ve|vp|vpe)|fexecve|posix_spawnp?'
unbounded='strcpy|stpcpy|strcat|v?sprintf|gets|ato(i|l|ll|f)|strtok|alloca'

failed=0
# WHY PATTERN FOLDERS [FILE]: the lines with code that matches, but in FILE
refuse() {
    local why=$1 pattern=$2 folders=$3 but=${4-} line
    # shellcheck disable=SC2086 # a list
    while IFS= read -r line; do
        [ "${line%%:*}" = "$but" ] && continue
        echo "$line: $why" && failed=1
    done < <(grep -rnE --include='*.h' --include='*.cpp' "^([^/\"]|/[^/]|\"([^\"\\\\]|\\\\.)*\")*($pattern)" $folders)
}
refuse "only $one_shell may run a program" "(^|[^A-Za-z0-9_.>\"])($shells)\(" "$server" "$one_shell"
refuse 'knows no bound' "(^|[^A-Za-z0-9_.>\"])($unbounded)\(" "$product"
grep -q 'execl("/bin/sh"' $one_shell || { echo "$one_shell runs no shell: is this still the file?" && failed=1; }

while IFS= read -r line; do
    [[ $line == *gnu::format* ]] || { echo "$line: takes a format, but does not say so to the compiler" && failed=1; }
done < <(
    # shellcheck disable=SC2086 # a list
    grep -rnE --include='*.h' --include='*.cpp' '(const char\* format, (\.\.\.|va_list))' $product | grep -v '#define\|\\$'
)
exit $failed
