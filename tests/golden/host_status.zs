# args: --no-json --module libzentor_testmod.so
# Status codes are printed with their meaning, exceptions that leave an
# entry point with their type and what(), and the result variant is shown
# as the function left it.
Test.Status(0)
Test.Status(0x20001)
Test.Status(0x10002)
Test.Status(0x30004)
Test.Status(0xFFFF0002)
Test.Status(0x10008)
# A raw call passes any arguments; a preset result shows whether the
# function overwrote it; noresult passes a null result variant.
raw zentor_testmod_Status(0x20001) preset "before"
raw zentor_testmod_Describe(1) preset "before"
raw zentor_testmod_Describe("x") noresult
raw zentor_testmod_MakeWidget()
raw zentor_testmod_MakeWidget(1)
raw zentor_testmod_WidgetToString(empty Widget)
raw zentor_testmod_WidgetToString("not a widget")
raw zentor_testmod_WidgetToString(new Widget)
raw zentor_testmod_Nope(1)
# Exceptions never end the host.
Test.Throw("boom")
Test.Throw(42)
raw zentor_testmod_Throw("from a raw call") noresult
let x = Test.Throw("in a binding")
x
# Overloads are chosen by argument kinds; other calls are script errors.
Test.Describe(1)
Test.Missing("x")
Nope.Nothing()
Test.Describe("a", "b")
