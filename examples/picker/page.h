// The page that shows the layouts that were picked.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <Oxil.h>

namespace picker {

class Page {
public:
    // variants is a number in text, as the script counted it.
    void addLayout(const std::string& name, const std::string& description,
                   const std::string& languages, const std::string& variants);

    // A variant of the layout added last. Throws std::logic_error if there is none.
    void addVariant(const std::string& description);

    int getCount() const { return static_cast<int>(layouts_.size()); }

    // Turns the page into HTML. Returns a status of the library.
    int write(const std::string& styleSheetPath, const std::string& path) const;

private:
    struct Layout {
        std::string name;
        std::string title;
        std::string detail;
        std::string languages;
        int variants;
        std::vector<std::string> examples;
    };

    std::unique_ptr<oxil::XmlNode> makeNode(const Layout& layout, int place) const;

    std::vector<Layout> layouts_;
};

}  // namespace picker
