# Reading and removing nodes by path.
let doc = JSON.FromString("{\"a\":[10,20,{\"b\":true}],\"0\":5,\"x/y\":1,\"\":\"empty key\",\"s\":\"text\"}")
# One leading "/" is ignored, a trailing one swallowed; empty steps on an
# array are skipped, on an object they name the empty key.
JSON.SubNode(doc, "/a/1")
JSON.SubNode(doc, "a/1")
JSON.SubNode(doc, "a//1")
JSON.SubNode(doc, "a/2/b")
JSON.SubNode(doc, "a/")
JSON.SubNode(doc, "0")
JSON.SubNode(doc, "//")
JSON.SubNode(JSON.FromString("[5]"), "0")
# Index steps are read as far as they are digits.
JSON.SubNode(doc, "a/1abc")
# The empty path and "/" name nothing, not the document; failures give null
# without a report.
JSON.SubNode(doc, "")
JSON.SubNode(doc, "/")
JSON.SubNode(doc, "a/3")
JSON.SubNode(doc, "a/-1")
JSON.SubNode(doc, "a/x")
JSON.SubNode(doc, "b")
JSON.SubNode(doc, "s/t")
JSON.SubNode(doc, "x/y")
# The vector form takes every element as one step: it reaches keys with "/".
JSON.GetSubNode(doc, strings["x/y"])
JSON.GetSubNode(doc, strings["a", "2", "b"])
JSON.GetSubNode(doc, strings["a", "", "0"])
JSON.GetSubNode(doc, strings[""])
JSON.GetSubNode(doc, strings[])
JSON.GetSubNode(doc, "a/0")
# A found node is shared with the document, and later changes never reach
# it because every changing function works on a copy.
let node = JSON.SubNode(doc, "a")
let changed = JSON.SetSubNode(doc, "a/0", 99)
node
changed
# Removal, text form: errors are warnings with the path as given, and the
# result is then an unchanged copy.
JSON.RemoveSubNode(doc, "a/1")
JSON.RemoveSubNode(doc, "/x/y")
JSON.RemoveSubNode(doc, "a/3")
JSON.RemoveSubNode(doc, "a/4")
JSON.RemoveSubNode(doc, "a/x")
JSON.RemoveSubNode(doc, "b")
JSON.RemoveSubNode(doc, "b/c")
JSON.RemoveSubNode(doc, "a/5/c")
JSON.RemoveSubNode(doc, "a/3/c")
JSON.RemoveSubNode(doc, "s/t")
JSON.RemoveSubNode(doc, "")
JSON.RemoveSubNode(doc, "/")
JSON.RemoveSubNode(doc, "a//")
# Removal, vector form: its own texts.
JSON.RemoveSubNode(doc, strings["x/y"])
JSON.RemoveSubNode(doc, strings["a", "0"])
JSON.RemoveSubNode(doc, strings[])
JSON.RemoveSubNode(doc, strings["a", "3"])
JSON.RemoveSubNode(doc, strings["a", "4"])
JSON.RemoveSubNode(doc, strings["a", "x"])
JSON.RemoveSubNode(doc, strings["b"])
JSON.RemoveSubNode(doc, strings["b", "c"])
JSON.RemoveSubNode(doc, strings["s", "t"])
JSON.RemoveSubNode(JSON.FromString("[1,2,3]"), "1")
JSON.RemoveSubNode(JSON.FromString("[1,2,3]"), "3")
# The argument is never changed.
doc
