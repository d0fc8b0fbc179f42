# What the JSON module tells the host when it is loaded: its metadata, the
# one type, and the definition of 6909 characters with 81 functions (the
# same text when asked a second time).
:modules
:metadata zentor_json
:definition zentor_json
:definition zentor_json
:types
:missing
# Overloads are told apart by their parameter words; the call context is
# not one of them.
:functions JSON.GetSubNode
:functions JSON.ArrayAppend
:functions JSON.Remove
:functions JSON.CreateEmptyArray
:functions ToString
