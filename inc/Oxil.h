#pragma once

/**
 * @file
 * Every public header.
 */

#include "OxBaseLuaApi.h"
#include "OxIBidirectionalIterator.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxLuaApi.h"
#include "OxLuaGuard.h"
#include "OxLuaScript.h"
#include "OxScript.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxTimer.h"
#include "OxVariant.h"
#include "OxWaitingLoop.h"
