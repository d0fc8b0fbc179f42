# args: --no-json --module libzentor_testmod.so
# Every literal kind, as the module receives it (Test.Describe reports each
# argument) and as the host prints it back.
Test.Describe("plain")
Test.Describe("escapes \" \\ \n \r \t \0 \x00\x7f\xff \u00e9 \/")
Test.Describe("")
raw zentor_testmod_Describe(0, -1, 1e300, -0, 0.1, 1e-320, 2.5e+3, 0x20001, nan, inf, -inf)
raw zentor_testmod_Describe(true, false)
raw zentor_testmod_Describe(data"", data"81a16101", data"81 A1 61 01", streamdata"0102", data null)
raw zentor_testmod_Describe(strings["a","","b\0c"], strings[], numbers[1, nan, -inf], numbers[], bools[true, false], bools[])
raw zentor_testmod_Describe(new Widget, empty Widget, Widget.Make("w"), nothing)
raw zentor_testmod_Describe()
# Printed forms read back as the same literal.
"escapes \" \\ \n \r \t \0 \x00\x7f\xff \u00e9"
-1
1e300
-0
0.1
nan
-inf
true
data"81A16101"
streamdata"00"
data null
strings["a","","b\0c"]
numbers[]
bools[true,false]
nothing
empty Widget
new Widget
Widget.Make("knob")
# Variables hold any kind; :vars lists them sorted by name.
let s = "x\0y"
let v = numbers[1,2]
let w = Widget.Make("w")
let e = empty Widget
:vars
# Mistakes in literals are script errors; the script goes on.
"unterminated
"bad \q escape"
"\x4"
data"123"
data"xy"
numbers["a"]
bools[1]
strings[true]
empty STRING
new Nope
1.2.3
1e
let nan = 1
let a.b = 1
v w
