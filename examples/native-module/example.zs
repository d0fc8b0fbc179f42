# args: --module libzentor_example.so
# The example module beside the JSON module: its functions take and return
# the JSON module's values.
let cart = JSON.FromString("{\"name\":\"cart\",\"items\":[{\"price\":2.5},{\"price\":4},{\"note\":\"free\"}]}")
Example.Describe(cart)
Example.Describe(JSON.GetSubNode(cart, "items"))
Example.Describe(JSON.FromString("\"hello\""))
Example.Describe(JSON.FromString("12.50"))
Example.Total(JSON.GetSubNode(cart, "items"), "price")
# A stamped copy; the caller's document keeps its members.
let stamped = Example.Stamped(cart, "checked")
ToString(stamped)
ToString(cart)
# Arguments of the wrong kind are refused with a status; a document of the
# wrong kind is reported.
Example.Total(cart, "price")
Example.Stamped(JSON.FromString("[1]"), "x")
raw zentor_example_Describe("not json")
# Results built from nothing: new objects, with exact totals.
Example.Summary(JSON.GetSubNode(cart, "items"), "price")
Example.Summary(JSON.FromString("[{\"p\":0.1},{\"p\":0.2}]"), "p")
Example.Summary(cart, "price")
# A picked node is a copy of its own, kept whole even when it looks like
# the envelope {"type":"JSON","value":...}.
Example.Pick(cart, "items/1")
Example.Pick(JSON.FromString("{\"box\":{\"type\":\"JSON\",\"value\":1,\"more\":2}}"), "box")
Example.Pick(cart, "items/7")
# Sharing: a sub-node shares its nodes with the document it came from, and
# a value stored by JSON.Set is shared with the document that holds it. An
# edit in place shows in every one of them; the stamped copy shares nothing.
let first = JSON.SubNode(cart, "items/0")
let holder = JSON.Set(JSON.CreateEmptyObject(), "held", first)
Example.TagInPlace(first, "seen")
first
cart
holder
stamped
Example.TagInPlace(JSON.CreateNull(), "x")
# Reading a number through a view settles its text for every holder: 12.50
# is written 12.5 from then on.
let price = JSON.FromString("{\"price\":12.50}")
price
Example.Total(JSON.ArrayAppend(JSON.CreateEmptyArray(), price), "price")
price
