#pragma once

#include <filesystem>
#include <string>

namespace oxil::test {

/**
 * The process's locale has a decimal comma while this lives, if that can be had.
 *
 * It need not be installed: the C library's own compiler makes one that consists of the comma.
 */
class DecimalComma {
public:
    DecimalComma();
    ~DecimalComma();

    DecimalComma(const DecimalComma&) = delete;
    DecimalComma& operator=(const DecimalComma&) = delete;

    bool isSelected() const { return __isSelected; }

private:
    bool __select(const char* name);
    void __makeLocale();

    std::string __previousLocale;
    bool __hadPath;
    std::string __previousPath;
    std::filesystem::path __directory;
    bool __isSelected = false;
};

}  // namespace oxil::test
