# The JSON type as the host serialises and deserialises it through the
# native JSON interface.
let doc = JSON.FromString("{\"b\":[1,2.50,\"x\"]}")
# Serialising shares the document: no envelope, numbers keep their text.
Host.Serialize(doc)
# From this module's own interface: a copy of the document.
Host.Deserialize(doc, doc)
let envelope = JSON.FromString("{\"type\":\"JSON\",\"value\":[1,2]}")
Host.Deserialize(doc, envelope)
let other = JSON.FromString("{\"type\":\"other\",\"value\":1}")
Host.Deserialize(doc, other)
# From a foreign interface that only answers its text: the whole text.
Host.Deserialize(doc, "{\"type\":\"JSON\",\"value\":[1,2]}")
Host.Deserialize(doc, "[true]")
Host.Deserialize(doc, "{oops")
doc
