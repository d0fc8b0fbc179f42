# Your own data: load a JSON file, walk it with a loop, write a summary.
# Run it from the repository's folder, after the build:
#   build/bin/zentor examples/orders.zs
# It reads examples/orders.json and writes build/orders-summary.json.

let doc = JSON.FromString(Host.ReadFile("examples/orders.json"))
echo Host.Concat(JSON.GetAsString(doc, "shop"), ": ", JSON.Size(JSON.Get(doc, "orders")), " orders")

# JSON.GetAsStringVector gives each element of an array as its JSON text,
# so a loop walks an array of any length. (A range, "for i in 0 .. 3",
# walks a known number of elements by their paths.)
let summary = JSON.CreateEmptyArray()
for text in JSON.GetAsStringVector(doc, "orders")
  let order = JSON.FromString(text)
  let id = JSON.GetAsNumber(order, "id")
  let items = JSON.Size(JSON.Get(order, "items"))
  let status = JSON.GetAsString(order, "status")
  echo Host.Concat("order ", id, ", ", JSON.GetAsString(order, "customer"), ": ", status, ", titles: ", items)
  let line = JSON.Set(JSON.CreateEmptyObject(), "id", id, "int64")
  let line = JSON.Set(line, "customer", JSON.Get(order, "customer"))
  let line = JSON.Set(line, "status", status)
  let line = JSON.Set(line, "titles", items, "int64")
  let line = JSON.Set(line, "first title", JSON.SubNode(order, "items/0/title"))
  let summary = JSON.ArrayAppend(summary, line)
end

# The summary, indented, into a file of its own; then read back to show it.
let result = JSON.Set(JSON.CreateEmptyObject(), "shop", JSON.Get(doc, "shop"))
let result = JSON.Set(result, "orders", summary)
Host.WriteFile("build/orders-summary.json", ToFormattedString(result, "  "))
echo Host.ReadFile("build/orders-summary.json")
