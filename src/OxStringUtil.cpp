#include "OxStringUtil.h"

#include "OxLog.h"

namespace oxil {

std::vector<std::string> StringUtil::getTokens(const std::string& text,
                                               const std::string& delimiters)
{
    std::vector<std::string> tokens;
    if (text.empty()) {
        OX_ERROR("Invalid parameter.");
        return tokens;
    }
    if (delimiters.empty()) {
        OX_ERROR("Invalid parameter.");
        return tokens;
    }

    std::size_t start = text.find_first_not_of(delimiters);
    while (start != std::string::npos) {
        const std::size_t end = text.find_first_of(delimiters, start);
        tokens.emplace_back(text, start, end - start);  // as long as there is text, without an end
        start = text.find_first_not_of(delimiters, end);
    }
    return tokens;
}

}  // namespace oxil
