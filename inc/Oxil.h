#pragma once

/**
 * @file
 * Every public header.
 */

#include "OxStatus.h"
#include "OxVariant.h"
