#pragma once

// The library's own tests use what applications get for theirs.
#include "OxLogMatchers.h"
