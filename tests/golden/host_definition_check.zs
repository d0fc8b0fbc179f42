# args: --no-json --module libzentor_baddef.so
# A module whose definition breaks the rules for writing one: the host
# reads what it can and, at load time (above), warns once per problem,
# naming the declaration. The declarations as read, and the module's
# metadata: it has no GetModuleVersion, so it has no version.
:declarations
:modules
:metadata zentor_baddef
Bad.Blank("read anyway", 1)
