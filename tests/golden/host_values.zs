# args: --module libzentor_testmod.so
# What the host does with user-defined values besides calling functions:
# copying (Clone), ordering (LessThan), the in-process binary handle and
# the native JSON form, for the JSON type and for a foreign type.
let x = JSON.FromString("{\"a\":[1,2]}")
let w = Widget.Make("b")
Host.TypeName(x)
Host.TypeName(w)
Host.TypeId(x)
Host.TypeId(w)
# A clone is a deep copy that prints the same.
Host.Clone(x)
Host.Clone(w)
# JSON values order by their text; a value of another type never comes
# first.
Host.LessThan(x, JSON.FromString("{\"b\":1}"))
Host.LessThan(JSON.FromString("\"b\""), JSON.FromString("2"))
Host.LessThan(JSON.FromString("2"), JSON.FromString("\"b\""))
Host.LessThan(x, x)
Host.LessThan(x, w)
Host.LessThan(Widget.Make("a"), w)
# The handle has one format, 10900, and exactly 8 bytes.
Host.BinaryCopy(x, 10900)
Host.BinaryCopy(x, 10899)
Host.BinaryCopy(x, 10901)
Host.BinaryCopy(x, 10900, 7)
Host.BinaryCopy(x, 10900, 9)
Host.BinaryCopy(w, 10900)
# A type without native JSON form refuses both directions.
Host.Serialize(w)
Host.Deserialize(w, "1")
# Mistakes.
Host.Clone(1)
Host.Clone(empty JSON)
Host.LessThan(x)
Host.Nope()
