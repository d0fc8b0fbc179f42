# args: --no-json --module libzentor_testmod.so
# The host operations a module reaches through its call context.
Test.Context()
# Reports are printed where they happen and kept as the error state.
Test.Report(1, "Error.Test.Warn", "careful")
:error
Test.Report(2, "Error.Test.Fail", "bad \"thing\"\n")
Test.Context()
:clearerror
:error
:raise 2 "Host" "Error.Host.Raised" "raised by the script"
Test.Context()
:clearerror
# Interrupted flag and instance id.
:interrupt on
:newinstance
Test.Context()
:interrupt off
# Instances and vectors made by the host for a module.
Test.New("Widget")
Test.New("STRING")
Test.New("NUMBER")
Test.New("DATAREF")
Test.New("Nope")
Test.Range(0)
Test.Range(3)
Test.Split("a,,b\0c")
Test.Bytes("hi\0")
# Function lookup as a module does it: result word first, the context's
# empty word may close the list.
:lookup Test.Describe STRING STRING ""
:lookup Test.Describe STRING STRING
:lookup Test.Report BOOLEAN NUMBER STRING STRING ""
:lookup Test.Describe NUMBER STRING
:lookup Test.Missing STRING STRING
:lookup Nope STRING
# A module calling functions of a module that is not loaded.
Test.RoundTrip("{}")
