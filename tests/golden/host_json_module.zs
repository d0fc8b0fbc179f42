# args: --module libzentor_testmod.so
# The host with the JSON module: metadata, the full declaration table, and
# the ways JSON values travel between host, module and a foreign module.
:modules
:metadata zentor_json
:definition zentor_json
:missing
:types
:lookup JSON.FromString JSON STRING ""
:lookup ToString STRING JSON ""
:lookup ToString STRING Widget
# JSON values print through the module's own ToString.
let x = JSON.FromString("{\"a\":[1,2],\"s\":\"\u00e9\"}")
x
new JSON
empty JSON
Test.New("JSON")
# Status codes of the marshalling frame.
raw zentor_module_RemoveMember(x)
raw zentor_module_RemoveMember(x) preset "kept"
raw zentor_module_JsonArrayAt(x, "0")
raw zentor_module_JsonToString(empty JSON) preset "kept"
raw zentor_module_JsonToString(Widget.Make("w"))
raw zentor_module_JsonToString(x) noresult
# A foreign user-defined value has no JSON overload.
JSON.Size(Widget.Make("w"))
# Another module calls JSON functions through the host.
Test.RoundTrip("{\"b\":[true,null]}")
Test.RoundTrip("{bad")
# Data in both reading styles.
JSON.ToMsgPack(x)
JSON.FromMsgPack(data"81a16101")
JSON.FromMsgPack(streamdata"81a16101")
