# args: --no-echo --strict --no-json --module libzentor_testmod.so
# Without echoed lines, what a module reports names the script line that
# made it; with --strict such a failure also fails the run (status 1).
Test.Report(2, "Error.Test.One", "an error")
Test.Report(1, "Error.Test.Two", "a warning")
Test.Throw("boom")
Test.Status(0x20001)
raw zentor_testmod_Throw("raw") noresult
for i in 1 .. 2
  Test.Report(i, "Error.Test.Loop", Host.Concat("round ", i))
end
# A let that fails leaves its variable without a value; where the variable
# is used, the mistake names that let.
let w = Test.Throw("no widget")
Test.Describe(w)
Test.Describe(Test.Describe(w))
let v = Test.Nope(1)
print v
let w = Widget.Make("fine")
Test.Describe(w)
let u = nothing
Test.Describe(u)
