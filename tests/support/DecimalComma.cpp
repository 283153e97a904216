#include "DecimalComma.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <fstream>

namespace oxil::test {
namespace {

void write(const std::filesystem::path& file, const std::string& content)
{
    std::ofstream(file) << content;
}

}  // namespace

DecimalComma::DecimalComma()
    : __previousLocale(std::setlocale(LC_NUMERIC, nullptr)),
      __hadPath(std::getenv("LOCPATH") != nullptr),
      __previousPath(__hadPath ? std::getenv("LOCPATH") : "")
{
    for (const char* name : {"de_DE.utf8", "fr_FR.utf8", "de_DE", "fr_FR"}) {
        if (__select(name)) {
            return;
        }
    }
    __makeLocale();
    setenv("LOCPATH", __directory.c_str(), 1);
    __select("comma");
}

DecimalComma::~DecimalComma()
{
    std::setlocale(LC_NUMERIC, __previousLocale.c_str());
    if (__hadPath) {
        setenv("LOCPATH", __previousPath.c_str(), 1);
    } else {
        unsetenv("LOCPATH");
    }
    if (!__directory.empty()) {
        std::filesystem::remove_all(__directory);
    }
}

bool DecimalComma::__select(const char* name)
{
    __isSelected = std::setlocale(LC_NUMERIC, name) != nullptr &&
                   std::string(std::localeconv()->decimal_point) == ",";
    return __isSelected;
}

void DecimalComma::__makeLocale()
{
    std::string pattern = testing::TempDir() + "oxil-locale-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        return;
    }
    __directory = pattern;

    write(__directory / "characters",
          "<code_set_name> ASCII\n<escape_char> /\nCHARMAP\n"
          "<U0000>..<U007F> /x00 ASCII\nEND CHARMAP\n");
    write(__directory / "numbers",
          "LC_NUMERIC\ndecimal_point \",\"\nthousands_sep \".\"\ngrouping 3\n"
          "END LC_NUMERIC\n");
    // Its status tells of the categories that are missing, not whether there is a locale.
    const std::string command = "cd '" + __directory.string() +
                                "' && localedef -c -i numbers -f characters ./comma "
                                ">/dev/null 2>&1";
    [[maybe_unused]] const int status = std::system(command.c_str());
}

}  // namespace oxil::test
