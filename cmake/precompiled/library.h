#pragma once

// Precompiled for the library.

#include "standard.h"

#ifdef _WIN32
#include <windows.h>
#endif
