# A first tour of the JSON module, run by the reference host:
#   build/bin/zentor examples/tour.zs
# Every line is echoed with "> " before what it prints.

# Parse a document. Members keep the order of the text.
let doc = JSON.FromString("{\"name\":\"Zentor\",\"version\":[1,16],\"stable\":true,\"ratio\":1.50}")
doc
ToFormattedString(doc, "  ")

# Inspect it.
JSON.Keys(doc)
JSON.Size(doc)
JSON.IsObject(doc)
JSON.HasMember(doc, "name")

# Typed reads of members, and of whole documents.
JSON.GetAsString(doc, "name")
JSON.GetAsBool(doc, "stable")
JSON.GetAsNumberVector(doc, "version")
# A number read from text is mostly written back as it was written (the
# exceptions: "What does not come back as it went in" in docs/functions.md)...
JSON.Get(doc, "ratio")
# ...until something reads it as a number; from then on its value is written.
JSON.AsDouble(JSON.Get(doc, "ratio"))
doc

# Paths reach into nested nodes; a changing function returns a changed copy.
JSON.SubNode(doc, "version/1")
let newer = JSON.SetSubNode(doc, "version/1", 17, "int64")
newer
doc

# MessagePack out and back in.
let packed = JSON.ToMsgPack(doc)
packed
JSON.Equals(JSON.FromMsgPack(packed), doc)

# A parse error names the zero-based line and what went wrong.
JSON.FromString("{\n  \"a\": 1,\n  \"b\": tru\n}")
JSON.IsValid("[1, 2,]")

# Your own files: Host.ReadFile reads one into a string, Host.WriteFile
# writes one, and for blocks walk what is in it (examples/orders.zs).
