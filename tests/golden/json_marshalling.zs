# args: --module libzentor_testmod.so
# How the entry points take their arguments and give their results.
let arr = JSON.FromString("[7,8]")
let obj = JSON.FromString("{\"a\":1}")
# A missing argument is refused with (position << 16) | 1 and the function
# does not run; a JSON result variant is left as the host filled it.
raw zentor_module_RemoveMember(obj) preset "before"
raw zentor_module_JsonArrayAt() preset "before"
# A wrong kind gives | 2. String, number and boolean results are then
# overwritten with their empty value, JSON results are not.
raw zentor_module_JsonArrayAt(arr, "1") preset "before"
raw zentor_module_JsonToString("not json") preset "before"
raw zentor_module_JsonSize(1) preset "before"
raw zentor_module_IsEmpty(true) preset "before"
raw zentor_module_JsonToMsgPack(1) preset "before"
raw zentor_module_GetKeys(nothing) preset "before"
# Only the first failure counts.
raw zentor_module_SetNodePathNumber(obj, 1, "x") preset "before"
raw zentor_module_SetNodePathNumber(obj, "a", "x") preset "before"
# A user-defined value without object gives | 4; an object of another
# module's type is a wrong kind.
raw zentor_module_JsonToString(empty JSON) preset "before"
raw zentor_module_Equals(obj, empty JSON) preset "before"
raw zentor_module_JsonToString(Widget.Make("w")) preset "before"
raw zentor_module_Equals(obj, new Widget)
# Vectors are told by their element kind.
raw zentor_module_GetFromNodeVector(obj, numbers[1])
raw zentor_module_JSONArrayFromBooleanVector(strings["a"])
JSON.GetSubNode(obj, strings["a"])
# Data arguments may hold no data object.
raw zentor_module_MsgPackToJson(data null)
raw zentor_module_MsgPackToJson("81a16101")
# Arguments beyond the parameters are ignored; a missing result variant is
# fine (the function runs, its value is dropped).
raw zentor_module_JsonToString(obj, "extra", 3)
raw zentor_module_JsonArrayAt(arr, 1) noresult
# Indices are unsigned: -1 arrives as 2^64 - 1, fractions are cut off.
JSON.At(arr, -1)
JSON.ArrayRemove(arr, -1)
JSON.At(arr, 1.9)
JSON.ArrayRemove(arr, 0.5)
# Exceptions of the index conversion leave the function.
JSON.SubNode(arr, "99999999999")
JSON.RemoveSubNode(arr, "99999999999")
JSON.ElementMatching(JSON.FromString("[{\"id\":\"abc\"}]"), "id", 1)
# Strings keep their zero bytes on the way in and out.
ToString(JSON.ArrayAppend(JSON.CreateEmptyArray(), "a\0b"))
JSON.AsString(JSON.At(JSON.ArrayAppend(JSON.CreateEmptyArray(), "a\0b"), 0))
