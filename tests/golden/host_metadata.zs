# args: --no-json --module libzentor_testmod.so
# What the host read from a module at load time: metadata exports (one of
# them missing, one returning null), the definition asked anew (same text
# as at load time, with its length), the declarations as parsed, types with
# ids from 21, overloads, and the declaration whose symbol is not exported.
:modules
:metadata
:metadata zentor_testmod
:definition
:declarations
:types
:functions Test.Throw
:functions ToString
:missing
# Loading the same module again registers nothing twice.
:load libzentor_testmod.so
:types
:metadata nope
