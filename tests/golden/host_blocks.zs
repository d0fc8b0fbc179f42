# args: --no-json --module libzentor_testmod.so
# for blocks run once their end is read; the lines are echoed as read and
# what the block prints follows its end. A range counts whole numbers from
# A to B, both included; a vector gives its elements.
for i in 1 .. 3
  echo i
end
for word in Test.Split("a,b")   # a vector made by a module
  for n in 0..1
    echo Host.Concat(word, n)
  end
end
# The loop variable is an ordinary variable, kept after the loop.
i
for i in 2 .. 1
  echo "never"
end
i
for x in numbers[]
end
:vars
# echo writes a string's bytes as they are, anything else as print shows it.
echo "two\tcolumns"
echo Test.Split("p,q")
echo new Widget
# Host.Concat joins strings and numbers: whole numbers without fraction,
# others as print shows them.
Host.Concat("statuses/", 3, "/user")
Host.Concat(-0, "|", 2.5, "|", 1e20, "|", 1e-7, "|", inf)
Host.Concat()
Host.Concat("a", true)
Host.Concat("a", strings["b"])
# A mistake in a block stops it and the blocks around it; the script goes
# on after the outermost end.
for i in 1 .. 3
  for j in 1 .. 3
    echo Host.Concat(i, j)
    nope
  end
end
echo "after the loops"
# Mistakes in the head or the end line of a block: the block does not run.
for i in 1 .. 2.5
  echo i
end
for i in "text"
end
for i in 1 .. numbers[2]
end
for let in 1 .. 2
end
for i 1 .. 2
end
for i in 1 .. 2
  echo i
end now
end
# :time runs a statement or a block and prints how long it took (not
# shown here: it differs from run to run); on its own it is a mistake.
:time
:time :vars
# A block that is not closed when the script ends is a mistake.
for i in 1 .. 3
  echo i
