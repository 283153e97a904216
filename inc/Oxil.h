#pragma once

/**
 * @file
 * Every public header.
 */

#include "OxIBidirectionalIterator.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxVariant.h"
