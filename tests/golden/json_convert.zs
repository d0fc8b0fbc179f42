# Text and MessagePack in and out.
let doc = JSON.FromString("{\"b\":[1,2.50,{}],\"a\":\"x\",\"e\":[]}")
# Members keep the order of the text; numbers keep their text.
ToString(doc)
ToFormattedString(doc, "")
ToFormattedString(doc, "  ")
ToFormattedString(doc, "\t")
# Parse errors name the zero-based line and the parser's message, and give
# no value; the other readers stay silent.
JSON.FromString("{")
JSON.FromString("[1,\n2,\n}")
JSON.FromString("")
JSON.FromString("1 2")
JSON.FromStringIgnoreErrors("{")
JSON.FromStringIgnoreErrors("[true]")
JSON.IsValid("")
JSON.IsValid("null")
JSON.IsValid("[1,]")
JSON.IsValid(" {\"a\":[]} ")
# MessagePack.
JSON.ToMsgPack(doc)
JSON.ToMsgPack(JSON.FromString("{\"a\":1}"))
JSON.FromMsgPack(data"81a16101")
JSON.FromMsgPack(streamdata"81a16101")
JSON.FromMsgPack(JSON.ToMsgPack(doc))
JSON.Equals(doc, JSON.FromMsgPack(JSON.ToMsgPack(doc)))
# No data object gives null; bytes that do not decode give a document
# without any value, which writes as nothing at all.
JSON.FromMsgPack(data null)
let broken = JSON.FromMsgPack(data"")
ToString(broken)
JSON.ToMsgPack(broken)
JSON.IsNull(broken)
JSON.FromMsgPack(data"c1")
# The argument is never changed. Encoding it has settled its number 2.50,
# which from now on writes as 2.5: the same value, read once.
ToString(doc)
