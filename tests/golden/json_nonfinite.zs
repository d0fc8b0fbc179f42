# Numbers without an integer part where the functions need an integer: NaN
# and the infinities each convert to one fixed value.
let d = JSON.FromString("{}")
let arr = JSON.FromString("[7,8]")
# As int64 (and int32) NaN and both infinities give the smallest integer.
ToString(JSON.Set(d, "a", nan, "int64"))
ToString(JSON.Set(d, "a", inf, "int64"))
ToString(JSON.Set(d, "a", -inf, "int32"))
# As uint64 (and uint32) NaN gives 0 and both infinities 2^63.
ToString(JSON.Set(d, "a", nan, "uint64"))
ToString(JSON.Set(d, "a", inf, "uint64"))
ToString(JSON.SetSubNode(d, "a", -inf, "uint32"))
# Indices: NaN is element 0, an infinity lies past the end.
JSON.At(arr, nan)
JSON.At(arr, inf)
JSON.At(arr, -inf)
JSON.ArrayRemove(arr, inf)
