# Arrays: reading elements, changing copies, vectors in and out.
let arr = JSON.FromString("[7,8]")
JSON.At(arr, 0)
JSON.At(arr, 1)
JSON.At(arr, 2)
JSON.At(JSON.FromString("{\"a\":1}"), 0)
JSON.At(JSON.FromString("\"ab\""), 0)
# Appending, in every value kind; only arrays take it.
JSON.ArrayAppend(arr, true)
JSON.ArrayAppend(arr, 1.5)
JSON.ArrayAppend(arr, "s")
JSON.ArrayAppend(arr, JSON.FromString("{\"k\":[]}"))
JSON.ArrayAppend(arr, arr)
JSON.ArrayAppend(arr, "bad \xff")
JSON.ArrayAppend(JSON.CreateEmptyObject(), 1)
JSON.ArrayAppend(JSON.CreateNull(), "s")
JSON.ArrayAppend(JSON.FromMsgPack(data""), true)
arr
# Removing by position.
JSON.ArrayRemove(arr, 0)
JSON.ArrayRemove(arr, 2)
JSON.ArrayRemove(JSON.FromString("[1,2,3]"), 5)
JSON.ArrayRemove(JSON.CreateEmptyObject(), 3)
JSON.ArrayRemove(JSON.FromMsgPack(data""), 0)
# Inserting before a position and replacing at one; positions at or past
# the end change nothing and are not reported.
JSON.ArrayInsertAt(arr, 0, JSON.FromString("\"first\""))
JSON.ArrayInsertAt(arr, 1, JSON.CreateEmptyArray())
JSON.ArrayInsertAt(arr, 2, JSON.CreateNull())
JSON.ArrayInsertAt(JSON.CreateEmptyObject(), 0, arr)
JSON.ArrayReplaceAt(arr, 1, JSON.FromString("{\"r\":1}"))
JSON.ArrayReplaceAt(arr, 2, JSON.CreateNull())
JSON.ArrayReplaceAt(JSON.FromString("1"), 7, arr)
arr
# Union is concatenation: duplicates stay.
JSON.UnionArrays(JSON.FromString("[1,2]"), JSON.FromString("[2,3]"))
JSON.UnionArrays(JSON.CreateEmptyArray(), arr)
JSON.UnionArrays(JSON.FromString("[1]"), JSON.CreateEmptyObject())
JSON.UnionArrays(JSON.CreateNull(), JSON.FromString("[1]"))
# Arrays from host vectors; strings that are not UTF-8 are left out.
JSON.ArrayFromBooleanVector(bools[true, false])
JSON.ArrayFromNumberVector(numbers[1, -0.5, 2.25])
JSON.ArrayFromStringVector(strings["a", "bad \xff", "", "\u00e9"])
JSON.ArrayFromNumberVector(numbers[])
# Members of an object read as vectors, one entry per element, each
# converted by the array's rules.
let mixed = JSON.FromString("{\"a\":[1,\"2\",true,null,\"x\",[]],\"n\":5,\"e\":[]}")
JSON.GetAsBoolVector(mixed, "a")
JSON.GetAsNumberVector(mixed, "a")
JSON.GetAsStringVector(mixed, "a")
JSON.GetAsBoolVector(mixed, "n")
JSON.GetAsNumberVector(mixed, "zz")
JSON.GetAsStringVector(mixed, "e")
JSON.GetAsStringVector(JSON.FromString("[[1]]"), "0")
JSON.GetAsNumberVector(JSON.FromMsgPack(data""), "a")
# The first object element whose member matches, as it is in the array.
let list = JSON.FromString("[{\"id\":1},{\"id\":2},{\"id\":2,\"x\":0},\"id\",{\"id\":\"2\"},{\"id\":\" 12\"},{\"n\":\"a\"}]")
JSON.ElementMatching(list, "id", 2)
JSON.ElementMatching(list, "id", 12)
JSON.ElementMatching(list, "id", "2")
JSON.ElementMatching(list, "id", "1")
JSON.ElementMatching(list, "n", "a")
JSON.ElementMatching(list, "id", 3)
JSON.ElementMatching(list, "zz", "a")
JSON.ElementMatching(JSON.FromString("[{\"n\":\"a\"},\"a\"]"), "n", "a")
JSON.ElementMatching(JSON.FromString("{\"id\":1}"), "id", 1)
JSON.ElementMatching(JSON.FromString("[{\"v\":true},{\"v\":[1]}]"), "v", "[1]")
JSON.ElementMatching(JSON.FromString("[{\"v\":true},{\"v\":[1]}]"), "v", 1)
# Text that does not begin with a number cannot be compared with a number:
# the conversion's exception leaves the function.
JSON.ElementMatching(JSON.FromString("[{\"v\":null}]"), "v", 0)
# The arguments are never changed.
arr
list
