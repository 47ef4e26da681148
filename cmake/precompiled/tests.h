#pragma once

// Precompiled for tests.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "standard.h"
