#pragma once

#include <string>
#include <vector>

#include "OxExport.h"

namespace oxil {

/** Splits text. All members are static; they may be called from any thread. */
class OXIL_API StringUtil {
public:
    StringUtil() = delete;

    /**
     * The tokens of a text: its longest runs of characters that are no delimiters, in order.
     *
     * There are no empty tokens: delimiters in a row count as one, and those at either end count
     * for nothing. Text made of delimiters alone has no tokens, silently.
     *
     * @param delimiters  a set of single characters (bytes), not a separating string
     * @return no tokens after logging "Invalid parameter." under the name getTokens, if either
     *         argument is empty
     */
    static std::vector<std::string> getTokens(const std::string& text,
                                              const std::string& delimiters);
};

}  // namespace oxil
