#pragma once

// Precompiled for the files that describe a program's command line.

#include <CLI/CLI.hpp>

#include "json.h"
