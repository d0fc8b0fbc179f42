// Everything a module needs from the host: the interfaces and the native
// JSON interface.
#pragma once

#include "Zentor.h"
#include "ZentorJSON.h"
