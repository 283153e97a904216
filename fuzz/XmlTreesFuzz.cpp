// Documents as trees, and stylesheets: a tree says what the events say, is written so that it is read
// again as it was, whether it was loaded or built, and a stylesheet gets at nothing but its document.

#include <OxPlainFile.h>
#include <OxStatus.h>
#include <OxXml.h>
#include <OxXmlDocument.h>
#include <OxXmlElement.h>
#include <OxXmlNode.h>
#include <OxXmlStyleSheet.h>
#include <libxml/parser.h>
#include <libxml/parserInternals.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <libxml/xpath.h>
#include <libxslt/security.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Fuzz.h"
#include "Input.h"
#include "MemoryFile.h"
#include "XmlEngine.h"

namespace {

using namespace oxil;
using fuzz::Input;

using Texts = std::vector<std::string>;
using Document = std::unique_ptr<XmlDocument>;

/** An element, as it should be. */
struct Element {
    std::string name;
    std::vector<std::pair<std::string, std::string>> attributes;
    std::string text;  // its own, and that of its children
    std::vector<Element> children;
};

std::string withoutBlanks(const std::string& text)
{
    std::string rest;
    std::copy_if(text.begin(), text.end(), std::back_inserter(rest),
                 [](char c) { return std::isspace(static_cast<unsigned char>(c)) == 0; });
    return rest;
}

enum class Blanks { Count, DontCount };

/** Whether a value is that of an attribute in front of another one, of the same name but with a prefix:
 *  who asks for the name alone gets the first of both, if the prefix is declared. */
bool isOfEarlier(const std::string& value, const std::string& name, const Element& element)
{
    const std::string end = ":" + name;
    for (const auto& [otherName, otherValue] : element.attributes) {
        if (otherName == name) {
            break;
        }
        const bool isSame =
            otherName.size() > end.size() &&
            otherName.compare(otherName.size() - end.size(), std::string::npos, end) == 0;
        if (isSame && otherValue == value) {
            return true;
        }
    }
    return false;
}

/** Compares a tree with what it should be. */
void requireSame(const XmlElement& element, const Element& expected, Blanks blanks)
{
    FUZZ_REQUIRE(element.getName() == expected.name);
    for (const auto& [name, value] : expected.attributes) {
        FUZZ_REQUIRE(element.hasAttribute(name));
        const std::string found = element.getAttribute(name, "none");
        FUZZ_REQUIRE(found == value || isOfEarlier(found, name, expected));
    }
    const std::string text = element.getText();
    FUZZ_REQUIRE(blanks == Blanks::Count ? text == expected.text
                                         : withoutBlanks(text) == withoutBlanks(expected.text));
    auto child = element.begin();
    for (const Element& expectedChild : expected.children) {
        FUZZ_REQUIRE(child != element.end() && child->getParent() == element);
        requireSame(*child, expectedChild, blanks);
        ++child;
    }
    FUZZ_REQUIRE(child == element.end());
}

std::string written(const XmlDocument& document)
{
    std::string text;
    FUZZ_REQUIRE(document.write(text) == STATUS_SUCCESS);
    return text;
}

// ---- A document that is loaded

/** Whether an attribute is one in a tree, too: a declaration of a namespace is none there. */
bool isAttribute(const std::string& name)
{
    return name != "xmlns" && name.compare(0, 6, "xmlns:") != 0;
}

/** Whether a name is one where namespaces count, too: with a colon at most, and a name behind it. */
bool isPlain(std::string_view name)
{
    const std::size_t colon = name.find(':');
    if (colon == std::string_view::npos) {
        return true;
    }
    const std::string_view local = name.substr(colon + 1);
    return colon > 0 && !local.empty() &&
           (std::isalpha(static_cast<unsigned char>(local[0])) != 0 || local[0] == '_') &&
           local.find(':') == std::string_view::npos;
}

/** Whether all attributes that a document type declares have such names. */
bool declaresPlain(std::string_view document)
{
    const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> context(
        xmlCreateMemoryParserCtxt(document.data(), static_cast<int>(document.size())),
        [](xmlParserCtxtPtr parser) {
            xmlFreeDoc(parser->myDoc);
            xmlFreeParserCtxt(parser);
        });
    if (context == nullptr) {
        return true;
    }
    bool arePlain = true;
    xmlSAXHandler handler = {};
    handler.attributeDecl = [](void* data, const xmlChar*, const xmlChar* name, int, int,
                               const xmlChar*, xmlEnumerationPtr values) {
        bool& areAllPlain = *static_cast<bool*>(data);
        areAllPlain = areAllPlain && isPlain(reinterpret_cast<const char*>(name));
        xmlFreeEnumeration(values);
    };
    *context->sax = handler;
    context->userData = &arePlain;
    xmlParseDocument(context.get());
    return arePlain;
}

/** What the events of a document say. @param arePlain  whether all names are */
bool readElements(std::string_view document, Element& root, bool& arePlain)
{
    std::vector<Element*> open;
    Xml xml;
    xml.setOnStartElement([&](const std::string& name, const Texts& attributes) {
        Element& element = open.empty() ? root : open.back()->children.emplace_back();
        element.name = name;
        arePlain = arePlain && isPlain(name);
        for (std::size_t i = 0; i < attributes.size(); i += 2) {
            arePlain = arePlain && isPlain(attributes[i]);
            if (isAttribute(attributes[i])) {
                element.attributes.emplace_back(attributes[i], attributes[i + 1]);
            }
        }
        open.push_back(&element);
    });
    xml.setOnEndElement([&](const std::string&) { open.pop_back(); });
    xml.setOnCharacters([&](const std::string& text) {
        for (Element* element : open) {
            element->text += text;
        }
    });
    return xml.readText(document) == STATUS_SUCCESS;
}

/** What becomes of a tree that is written: libxml2 writes some of it so that it is not what it was. */
struct Writing {
    bool canBeRead = true;
    bool isSteady = true;  // written again, it is the same
};

/** Looks at a text that is written as it is. */
void lookAt(const xmlChar* unescaped, Writing& writing)
{
    const std::string_view text =
        unescaped != nullptr ? reinterpret_cast<const char*>(unescaped) : "";
    writing.canBeRead = writing.canBeRead && text.find('<') == std::string_view::npos;
    // Line ends and tabulators are read as blanks.
    writing.isSteady = writing.isSteady && text.find_first_of("\t\n\r") == std::string_view::npos;
}

/** Looks for the names of namespaces, and for what a document type declares of attributes. */
void lookAtAll(const xmlNode* first, Writing& writing)
{
    for (const xmlNode* node = first; node != nullptr; node = node->next) {
        if (node->type == XML_ATTRIBUTE_DECL) {
            const auto& attribute = *reinterpret_cast<const xmlAttribute*>(node);
            lookAt(attribute.defaultValue, writing);
            // A value that its type doesn't allow is left out.
            const bool hasDefault =
                attribute.def == XML_ATTRIBUTE_NONE || attribute.def == XML_ATTRIBUTE_FIXED;
            if (hasDefault && attribute.defaultValue == nullptr) {
                writing.canBeRead = false;
            }
        }
        if (node->type == XML_ELEMENT_NODE) {
            for (const xmlNs* space = node->nsDef; space != nullptr; space = space->next) {
                lookAt(space->href, writing);
            }
        }
        if (node->type == XML_ELEMENT_NODE || node->type == XML_DTD_NODE) {
            lookAtAll(node->children, writing);
        }
    }
}

/** Whether libxml2 finds fault with the namespaces of a document that it makes a tree of: declarations
 *  that mean nothing are left out, and may then stand twice. */
bool hasFaultOfNamespaces(std::string_view text)
{
    bool hasFault = false;
    xmlSetStructuredErrorFunc(&hasFault, [](void* found, auto* error) {
        *static_cast<bool*>(found) |= error->domain == XML_FROM_NAMESPACE;
    });
    const Document document = XmlDocument::loadText(text);
    xmlSetStructuredErrorFunc(nullptr, nullptr);
    return hasFault;
}

void tryDocument(std::string_view text)
{
    const Document document = XmlDocument::loadText(text);
    Element root;
    bool arePlain = true;
    const bool isReadable = readElements(text, root, arePlain);
    if (document == nullptr) {
        FUZZ_REQUIRE(!isReadable || !arePlain || !declaresPlain(text));
        return;
    }
    if (!isReadable) {
        FUZZ_REQUIRE(hasFaultOfNamespaces(text));
        return;
    }
    // What a document type declares of attributes, events don't tell.
    const xmlDoc& native = *document->__getNativeDocument();
    const bool hasType = native.intSubset != nullptr;
    if (!hasType) {
        requireSame(document->getRootElement(), root, Blanks::Count);
    }
    Writing writing;
    lookAtAll(native.children, writing);
    const std::string once = written(*document);
    if (!writing.canBeRead) {
        return;
    }
    const Document again = XmlDocument::loadText(once);
    FUZZ_REQUIRE(again != nullptr);
    if (!hasType) {
        requireSame(again->getRootElement(), root, Blanks::DontCount);
        FUZZ_REQUIRE(!writing.isSteady || written(*again) == once);
    }
}

// ---- A document that is built

constexpr const char* NAMES[] = {"a", "b", "long-name", "d.e_f", "g:h", "\xC3\xA4"};
constexpr const char* ATTRIBUTES[] = {"x", "y", "z-z", "xml:lang"};

/** Builds an element, with the first text that XML can't hold remembered. */
std::unique_ptr<XmlNode> build(Input& input, int depth, Element& model, bool& isGood)
{
    model.name = NAMES[input.below(6)];
    auto node = std::make_unique<XmlNode>(model.name);
    for (int i = input.below(4); i > 0; --i) {
        const std::string name = ATTRIBUTES[input.below(4)];
        const std::string value = input.text();
        isGood = isGood && XmlNode::isText(value);
        FUZZ_REQUIRE(node->setAttribute(name, value) == STATUS_SUCCESS);
        const auto place =
            std::find_if(model.attributes.begin(), model.attributes.end(),
                         [&](const auto& attribute) { return attribute.first == name; });
        if (place != model.attributes.end()) {
            place->second = value;
        } else {
            model.attributes.emplace_back(name, value);
        }
    }
    for (int i = input.below(6); i > 0; --i) {
        if (depth > 0 && input.flag()) {
            Element& child = model.children.emplace_back();
            FUZZ_REQUIRE(node->addChild(build(input, depth - 1, child, isGood)) == STATUS_SUCCESS);
            model.text += child.text;
            if (input.below(8) == 7) {
                const std::unique_ptr<XmlNode> taken = node->takeChild(node->getLastChild());
                FUZZ_REQUIRE(taken != nullptr);
                model.text.resize(model.text.size() - child.text.size());
                model.children.pop_back();
            }
        } else {
            const std::string text = input.text();
            isGood = isGood && XmlNode::isText(text);
            FUZZ_REQUIRE(node->setContent(text) == STATUS_SUCCESS);
            model.text += text;
        }
    }
    return node;
}

void tryBuilding(Input& input)
{
    Element model;
    bool isGood = true;
    XmlDocument document;
    FUZZ_REQUIRE(document.setRootNode(build(input, 6, model, isGood)) == STATUS_SUCCESS);
    const std::string text = written(document);
    if (isGood) {
        const Document again = XmlDocument::loadText(text);
        FUZZ_REQUIRE(again != nullptr);
        requireSame(again->getRootElement(), model, Blanks::DontCount);
        FUZZ_REQUIRE(written(*again) == text);
    }
}

/** A text alone, as content and as an attribute: it comes back if and only if XML can hold it. */
void tryText(const std::string& content)
{
    XmlDocument document;
    auto root = std::make_unique<XmlNode>("a");
    root->setAttribute("x", content);
    root->setContent(content);
    document.setRootNode(std::move(root));
    const Document again = XmlDocument::loadText(written(document));
    const XmlElement element = again != nullptr ? again->getRootElement() : XmlElement();
    const bool isBack = again != nullptr && element.getText() == content &&
                        element.getAttribute("x", "none") == content;
    FUZZ_REQUIRE(isBack == XmlNode::isText(content));
}

// ---- Stylesheets

/** What an application forbids that runs stylesheets of others. */
xsltSecurityPrefsPtr makePreferences()
{
    xsltSecurityPrefsPtr preferences = xsltNewSecurityPrefs();
    for (const xsltSecurityOption option :
         {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
          XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
        xsltSetSecurityPrefs(preferences, option, xsltSecurityForbid);
    }
    return preferences;
}

bool isolate()
{
    fuzz::isolateXmlEngine();
    xsltSetGenericErrorFunc(nullptr, xmlGenericError);
    return true;
}

[[maybe_unused]] const bool isIsolated = isolate();

/** Both ways of writing a result, or nothing if there is none. */
Texts transformed(XmlStyleSheet& styleSheet, XmlDocument& source)
{
    Texts texts;
    const Document result = styleSheet.transform(source);
    if (result != nullptr) {
        texts.push_back(written(*result));
        result->__setXmlStyleSheet(&styleSheet);
        std::string text;
        if (result->write(text) == STATUS_SUCCESS) {
            texts.push_back(text);
        }
    }
    return texts;
}

void tryStyleSheet(std::string_view styleSheetText, std::string_view text)
{
    const Document source = XmlDocument::loadText(text);
    const fuzz::MemoryFile file(styleSheetText);
    XmlStyleSheet styleSheet(file.path());
    // Nothing is forbidden here: what is loaded so reads nothing else by itself.
    xsltSetDefaultSecurityPrefs(nullptr);
    if (styleSheet.load(PLAIN_FILE) != STATUS_SUCCESS || source == nullptr) {
        return;
    }
    static xsltSecurityPrefs* const preferences = makePreferences();
    xsltSetDefaultSecurityPrefs(preferences);
    const std::string before = written(*source);
    const Texts once = transformed(styleSheet, *source);
    const auto has = [&](const char* what) {
        return styleSheetText.find(what) != std::string_view::npos;
    };
    if (!has("strip-space")) {
        FUZZ_REQUIRE(written(*source) == before);
        if (!has("generate-id")) {
            FUZZ_REQUIRE(transformed(styleSheet, *source) == once);
        }
    }
}

}  // namespace

/**
 * Stands before libxslt's own function, and limits what no application can: a stylesheet may go on
 * for ever.
 */
xmlDocPtr xsltApplyStylesheet(xsltStylesheetPtr styleSheet, xmlDocPtr document,
                              const char** parameters)
{
    xsltTransformContextPtr context = xsltNewTransformContext(styleSheet, document);
    if (context == nullptr) {
        return nullptr;
    }
    context->maxTemplateDepth = 100;
    context->opLimit = 2000;  // each may copy the whole document
    context->xpathCtxt->opLimit = 200000;
    xmlDocPtr result =
        xsltApplyStylesheetUser(styleSheet, document, parameters, nullptr, nullptr, context);
    xsltFreeTransformContext(context);
    return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    fuzz::clearLog();
    Input input(bytes, size);
    switch (input.below(4)) {
        case 0:
            tryDocument(input.rest());
            break;
        case 1:
            tryBuilding(input);
            break;
        case 2:
            tryText(std::string(input.rest()));
            break;
        default: {
            const std::string_view styleSheet = input.until("\n----\n");
            tryStyleSheet(styleSheet, input.rest());
            break;
        }
    }
    return 0;
}
