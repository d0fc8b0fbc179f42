# A real API response as a script writer handles it: the first ten screen
# names of the twitter corpus, and its search metadata, indented, in a file.
# From the repository's folder: build/bin/zentor tests/scripts/twitter.zs
# (it writes search_metadata.json there).
let doc = JSON.FromString(Host.ReadFile("../shared/bench-data/twitter.json"))
let names = JSON.CreateEmptyArray()
for i in 0 .. 9
  let name = JSON.SubNode(doc, Host.Concat("statuses/", i, "/user/screen_name"))
  let names = JSON.ArrayAppend(names, name)
end
echo ToString(names)
let metadata = ToFormattedString(JSON.Get(doc, "search_metadata"), "  ")
let written = Host.WriteFile("search_metadata.json", metadata)
