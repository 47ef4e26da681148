#pragma once

// Precompiled for tests that read and write JSON.

#include "json.h"
#include "tests.h"
