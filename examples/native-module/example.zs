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
