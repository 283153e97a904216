#include "display.h"

#include <string.h>  // strverscmp

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace oxil::platform {
namespace {

namespace fs = std::filesystem;

/** Empty also if the file is missing or can't be read: a device may vanish at any moment. */
std::string firstLine(const fs::path& file)
{
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    return line;
}

/** Takes a number greater than 0 off the text's front. */
std::optional<int> takeNumber(std::string_view* text)
{
    int number = 0;  // and stays so if there is none, or too large a one
    const char* const start = text->data();
    const char* const rest = std::from_chars(start, start + text->size(), number).ptr;
    if (number <= 0) {
        return std::nullopt;
    }
    text->remove_prefix(static_cast<std::size_t>(rest - start));
    return number;
}

bool isLetter(char character)
{
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

/** Reads "1920x1080", or "1920,1080" with a comma for separator; letters may follow ("1080i"). */
std::optional<DisplaySize> parseSize(std::string_view text, char separator)
{
    const std::optional<int> width = takeNumber(&text);
    if (!width || text.empty() || text.front() != separator) {
        return std::nullopt;
    }
    text.remove_prefix(1);

    const std::optional<int> height = takeNumber(&text);
    if (!height || !std::all_of(text.begin(), text.end(), isLetter)) {
        return std::nullopt;
    }
    return DisplaySize{*width, *height};
}

bool isConnector(const std::string& name)
{
    return name.compare(0, 4, "card") == 0 && name.find('-') != std::string::npos;
}

/** Directories of the connectors, in an order that does not depend on the directory's own. */
std::vector<fs::path> connectors(const fs::path& sysfs)
{
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(sysfs / "class/drm", error), end; !error && entry != end;
         entry.increment(error)) {
        if (isConnector(entry->path().filename())) {
            found.push_back(entry->path());
        }
    }
    // By number where the names hold numbers: card2 comes before card10.
    std::sort(found.begin(), found.end(), [](const fs::path& left, const fs::path& right) {
        return strverscmp(left.c_str(), right.c_str()) < 0;
    });
    return found;
}

}  // namespace

std::optional<DisplaySize> findDisplay(const std::filesystem::path& sysfs)
{
    for (const fs::path& connector : connectors(sysfs)) {
        if (firstLine(connector / "status") == "connected") {
            // The preferred mode comes first.
            if (const auto size = parseSize(firstLine(connector / "modes"), 'x')) {
                return size;
            }
        }
    }
    return parseSize(firstLine(sysfs / "class/graphics/fb0/virtual_size"), ',');
}

}  // namespace oxil::platform
