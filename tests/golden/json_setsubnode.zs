# Setting the node at a path, in all value kinds, with text and vector
# paths. Only the last step writes; every other step must exist.
let doc = JSON.FromString("{\"a\":{},\"l\":[1],\"s\":\"text\"}")
JSON.SetSubNode(doc, "a/b", true)
JSON.SetSubNode(doc, "a/b", 3)
JSON.SetSubNode(doc, "a/b", "str")
JSON.SetSubNode(doc, "a/b", JSON.FromString("{\"deep\":[null]}"))
JSON.SetSubNode(doc, "a/b", bools[true, false])
JSON.SetSubNode(doc, "a/b", numbers[1, 2.5])
JSON.SetSubNode(doc, "a/b", strings["x", ""])
JSON.SetSubNode(doc, "a/b", bools[])
doc
# Arrays: an index equal to the size appends, a smaller one replaces,
# a larger one is refused; arrays are never padded.
JSON.SetSubNode(doc, "l/1", 2)
JSON.SetSubNode(doc, "l/0", 2)
JSON.SetSubNode(doc, "l/2", 2)
JSON.SetSubNode(doc, "/l/0", "first")
JSON.SetSubNode(doc, "l//", "nothing happens")
doc
# Numbers with a format: the 32-bit formats are the 64-bit ones, neither
# narrowed nor checked.
JSON.SetSubNode(doc, "n", 3)
JSON.SetSubNode(doc, "n", 3, "double")
JSON.SetSubNode(doc, "n", 3, "int64")
JSON.SetSubNode(doc, "n", 2.9, "int64")
JSON.SetSubNode(doc, "n", -2.9, "int32")
JSON.SetSubNode(doc, "n", 5000000000, "int32")
JSON.SetSubNode(doc, "n", 9223372036854775808, "uint64")
JSON.SetSubNode(doc, "n", -1, "uint32")
JSON.SetSubNode(doc, "n", 1.5, "uint64")
JSON.SetSubNode(doc, strings["n"], 7.9, "int64")
# An unknown format gives no document at all.
JSON.SetSubNode(doc, "n", 3, "Int64")
JSON.SetSubNode(doc, strings["n"], 3, "float")
# Path errors leave an unchanged copy.
JSON.SetSubNode(doc, "x/b", true)
JSON.SetSubNode(doc, "s/b", true)
JSON.SetSubNode(doc, "l/x", true)
JSON.SetSubNode(doc, "l/5", true)
JSON.SetSubNode(doc, "l/1/b", true)
JSON.SetSubNode(doc, "", true)
JSON.SetSubNode(doc, "/", true)
JSON.SetSubNode(JSON.CreateEmptyObject(), "a/b", 1)
JSON.SetSubNode(JSON.FromString("{\"a\":1}"), "a/b", 1)
JSON.SetSubNode(JSON.CreateNull(), "a", 1)
JSON.SetSubNode(JSON.FromString("[]"), "0", 1)
# The vector forms reach keys with "/" and have their own texts.
JSON.SetSubNode(doc, strings["a", "b/c"], "slash")
JSON.SetSubNode(doc, strings["l", "1"], false)
JSON.SetSubNode(doc, strings["l", "0"], numbers[])
JSON.SetSubNode(doc, strings["l", "0"], strings["v"])
JSON.SetSubNode(doc, strings["l", "0"], bools[true])
JSON.SetSubNode(doc, strings["x", "y"], JSON.CreateNull())
JSON.SetSubNode(doc, strings["l", "2"], 1)
JSON.SetSubNode(doc, strings["s", "t"], 1)
JSON.SetSubNode(doc, strings[], 1)
JSON.SetSubNode(doc, strings["l", "x"], 1)
# A member whose key or string value is not UTF-8 is dropped without a
# word; in an array such a string becomes the empty string.
JSON.SetSubNode(doc, "a/\xff", 1)
JSON.SetSubNode(doc, "a/k", "bad \xff")
JSON.SetSubNode(doc, "l/0", "bad \xff")
# A JSON value is stored as it is, and stays as it was.
let part = JSON.FromString("[1]")
JSON.SetSubNode(JSON.SetSubNode(doc, "a/p", part), "a/q", part)
part
# The argument is never changed.
doc
