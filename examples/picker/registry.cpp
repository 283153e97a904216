#include "registry.h"

namespace picker {
namespace {

//! [reader]
// Follows the events through the <layout> and <variant> elements of the <layoutList>, each of which
// describes itself in a <configItem>.
class RegistryReader : public oxil::IXmlEventListener {
public:
    explicit RegistryReader(std::vector<oxil::KeyValues>& records) : records_(records) {}

    void onStartElement(const std::string& name, const std::vector<std::string>&) override
    {
        text_.clear();
        if (name == "layoutList") {
            inLayouts_ = true;
        } else if (name == "layout" || name == "variant") {
            isVariant_ = name == "variant";
            name_.clear();
            description_.clear();
            countries_.clear();
            languages_.clear();
        }
    }

    void onCharacters(const std::string& text) override { text_ += text; }

    void onEndElement(const std::string& name) override
    {
        if (name == "name") {
            name_ = text_;
        } else if (name == "description") {
            description_ = text_;
        } else if (name == "iso3166Id") {
            append(countries_, text_);
        } else if (name == "iso639Id") {
            append(languages_, text_);
        } else if (name == "configItem" && inLayouts_) {
            addRecord();
        } else if (name == "layoutList") {
            inLayouts_ = false;
        }
    }

private:
    static void append(std::string& list, const std::string& code)
    {
        list += list.empty() ? code : " " + code;
    }

    void addRecord()
    {
        if (!isVariant_) {
            layout_ = name_;
        }
        oxil::KeyValues record;
        record.add("layout", layout_);
        record.add("variant", isVariant_ ? name_ : "");
        record.add("description", description_);
        record.add("countries", countries_);
        record.add("languages", languages_);
        records_.push_back(std::move(record));
    }

    std::vector<oxil::KeyValues>& records_;
    std::string text_;
    std::string layout_;
    std::string name_;
    std::string description_;
    std::string countries_;
    std::string languages_;
    bool inLayouts_ = false;
    bool isVariant_ = false;
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
