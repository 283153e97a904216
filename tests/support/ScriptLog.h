#pragma once

#include <string>

#include "OxLogMatchers.h"

namespace oxil::test {

/** What is logged when a script's file can't be loaded or run. */
inline testing::Matcher<const LogLine&> failedLoad(const std::string& path,
                                                   const std::string& reason)
{
    return LoggedIn("OxLuaScript.cpp", "onLoading", "filePath(" + path + ") (1) (" + reason + ").");
}

/** What is logged when a call ends before the script's function is reached. */
inline testing::Matcher<const LogLine&> refusedCall()
{
    return LoggedIn("OxScript.cpp", "callMethod", "Invalid state.");
}

/** What is logged when a state has no script. */
inline testing::Matcher<const LogLine&> unknownState()
{
    return LoggedIn("OxLuaScript.cpp", "getLuaScript", "Invalid state");
}

}  // namespace oxil::test
