#!/bin/bash
# Whether the program is built as it is meant to be hardened: check_elf.sh PROGRAM
# Position independent, nothing in it can be rewritten once it runs, no stack is executed, stacks and library
# calls are guarded, and no library is looked for outside the system's folders.
set -eu
program=$1
headers=$(readelf -hW "$program")
segments=$(readelf -lW "$program")
dynamic=$(readelf -dW "$program")
symbols=$(readelf --dyn-syms -W "$program")

failed=0
# WHAT TEXT PATTERN: what the text must have
need() {
    grep -qE "$3" <<< "$2" || { echo "$program: $1" && failed=1; }
}
refuse() {
    ! grep -qE "$3" <<< "$2" || { echo "$program: $1" && failed=1; }
}
need 'is not position independent' "$headers" 'Type: +DYN'
need 'is not position independent' "$dynamic" 'FLAGS_1.*PIE'
need 'has no read-only relocations' "$segments" 'GNU_RELRO'
need 'binds late' "$dynamic" 'FLAGS.*(BIND_NOW|NOW)'
need 'says nothing of its stack' "$segments" 'GNU_STACK'
refuse 'has an executable stack' "$segments" 'GNU_STACK.* RWE '
refuse 'has a segment to write and to execute' "$segments" 'LOAD.* RWE '
need 'has no guarded stacks' "$symbols" ' UND __stack_chk_fail'
need 'has no fortified library calls' "$symbols" ' UND __[a-z]+_chk(@|$| )'
refuse 'names folders for its libraries' "$dynamic" 'R(UN)?PATH'
refuse 'has relocations in its code' "$dynamic" 'TEXTREL'
exit $failed
