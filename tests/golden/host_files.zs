# args: --no-json --module libzentor_testmod.so
# Files are read and written as bytes, in the folder zentor runs in (the
# build's tests/golden when CTest runs this). Host.WriteFile gives the
# number of bytes written.
Host.WriteFile("host_files.tmp", "line 1\r\nline 2: caf\u00e9\n")
Host.ReadFile("host_files.tmp")
echo Host.ReadFile("host_files.tmp")
Host.WriteFile("host_files.tmp", "\x00\xff\n\x1a end")
Host.ReadFile("host_files.tmp")
Host.WriteFile("host_files.tmp", data"81a16101")
Host.ReadFile("host_files.tmp")
Host.WriteFile("host_files.tmp", streamdata"00ff")
Host.ReadFile("host_files.tmp")
Host.WriteFile("host_files.tmp", Test.Bytes("from a module"))
Host.ReadFile("host_files.tmp")
Host.WriteFile("host_files.tmp", "")
Host.ReadFile("host_files.tmp")
# What cannot be read or written is a mistake that names the file and the
# system's reason.
Host.ReadFile("no such file.json")
Host.WriteFile("no such folder/out.json", "x")
let text = Host.ReadFile("no such file.json")
text
Host.ReadFile(1)
Host.WriteFile("host_files.tmp", 1)
Host.WriteFile("host_files.tmp", data null)
Host.ReadFile()
Host.WriteFile("host_files.tmp")
Host.ReadFil("host_files.tmp")
