#pragma once

/**
 * @file
 * Every public header.
 */

#include "OxBaseLuaApi.h"
#include "OxCallQueue.h"
#include "OxChannel.h"
#include "OxColor.h"
#include "OxDimension.h"
#include "OxIBidirectionalIterator.h"
#include "OxKeyValue.h"
#include "OxKeyValues.h"
#include "OxLuaApi.h"
#include "OxLuaGuard.h"
#include "OxLuaLimits.h"
#include "OxLuaScript.h"
#include "OxNumberParser.h"
#include "OxPayload.h"
#include "OxPlainFile.h"
#include "OxPoint.h"
#include "OxRectangle.h"
#include "OxScreen.h"
#include "OxScript.h"
#include "OxSerializedData.h"
#include "OxSerializer.h"
#include "OxStatus.h"
#include "OxStringUtil.h"
#include "OxTimer.h"
#include "OxVariant.h"
#include "OxWaitingLoop.h"
#include "OxWireDecoder.h"
#include "OxWireEncoder.h"
#include "OxXml.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "OxXmlStyleSheet.h"
