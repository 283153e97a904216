#include "registry.h"

namespace picker {
namespace {

//! [reader]
// Follows the events through the <layout> and <variant> elements of the <layoutList>, each of which
// describes itself in a <configItem>.
class RegistryReader : public oxil::IXmlEventListener {
public:
    explicit RegistryReader(std::vector<oxil::KeyValues>& records) : __records(records) {}

    void onStartElement(const std::string& name, const std::vector<std::string>&) override
    {
        __text.clear();
        if (name == "layoutList") {
            __inLayouts = true;
        } else if (name == "layout" || name == "variant") {
            __isVariant = name == "variant";
            __name.clear();
            __description.clear();
            __countries.clear();
            __languages.clear();
        }
    }

    void onCharacters(const std::string& text) override { __text += text; }

    void onEndElement(const std::string& name) override
    {
        if (name == "name") {
            __name = __text;
        } else if (name == "description") {
            __description = __text;
        } else if (name == "iso3166Id") {
            append(__countries, __text);
        } else if (name == "iso639Id") {
            append(__languages, __text);
        } else if (name == "configItem" && __inLayouts) {
            addRecord();
        } else if (name == "layoutList") {
            __inLayouts = false;
        }
    }

private:
    static void append(std::string& list, const std::string& code)
    {
        list += list.empty() ? code : " " + code;
    }

    void addRecord()
    {
        if (!__isVariant) {
            __layout = __name;
        }
        oxil::KeyValues record;
        record.add("layout", __layout);
        record.add("variant", __isVariant ? __name : "");
        record.add("description", __description);
        record.add("countries", __countries);
        record.add("languages", __languages);
        __records.push_back(std::move(record));
    }

    std::vector<oxil::KeyValues>& __records;
    std::string __text;
    std::string __layout;
    std::string __name;
    std::string __description;
    std::string __countries;
    std::string __languages;
    bool __inLayouts = false;
    bool __isVariant = false;
};
//! [reader]

}  // namespace

//! [read]
std::vector<oxil::KeyValues> readRegistry(const std::string& path)
{
    std::vector<oxil::KeyValues> records;
    RegistryReader reader(records);

    oxil::Xml xml(path);
    xml.setXmlEventListener(&reader);
    if (xml.read(oxil::EXACT_TEXT) != oxil::STATUS_SUCCESS) {
        records.clear();
    }
    return records;
}
//! [read]

}  // namespace picker
