#include "OxXmlStyleSheet.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlversion.h>
#include <libxslt/security.h>
#include <libxslt/xsltInternals.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#ifdef LIBXML_HTTP_ENABLED
#include <libxml/nanohttp.h>
#endif

#include "AllocationFailure.h"
#include "EngineMessages.h"
#include "NativeXml.h"
#include "OutputFile.h"
#include "OxLogMatchers.h"
#include "OxPlainFile.h"
#include "OxStatus.h"
#include "OxXml.h"
#include "OxXmlDocument.h"
#include "OxXmlNode.h"
#include "ScriptFile.h"
#include "TreeCalls.h"

namespace oxil::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// ---- What the compiler can tell -----------------------------------------------------------------

static_assert(std::is_nothrow_destructible_v<XmlStyleSheet>);
static_assert(!std::is_copy_constructible_v<XmlStyleSheet> &&
              !std::is_copy_assignable_v<XmlStyleSheet>);
static_assert(!std::is_move_constructible_v<XmlStyleSheet> &&
              !std::is_move_assignable_v<XmlStyleSheet>);

// ---- Set-up -------------------------------------------------------------------------------------

const LoggedBy logged("OxXmlStyleSheet.cpp");

/** A stylesheet with these top-level elements. */
std::string sheet(const std::string& elements)
{
    return "<xsl:stylesheet version='1.0' xmlns:xsl='http://www.w3.org/1999/XSL/Transform'>" +
           elements + "</xsl:stylesheet>";
}

/** A stylesheet that makes this of any document. */
std::string sheetMaking(const std::string& result)
{
    return sheet("<xsl:template match='/'>" + result + "</xsl:template>");
}

/** A stylesheet with its file. */
class StyleSheetFile {
public:
    explicit StyleSheetFile(const std::string& content) : __file(content), sheet(__file.path()) {}

    const std::string& path() const { return __file.path(); }

private:
    ScriptFile __file;

public:
    XmlStyleSheet sheet;
};

/** The same, loaded. */
class LoadedStyleSheet : public StyleSheetFile {
public:
    explicit LoadedStyleSheet(const std::string& content) : StyleSheetFile(content)
    {
        EXPECT_EQ(sheet.load(), STATUS_SUCCESS);
    }

    /** Its result for a document. */
    std::unique_ptr<XmlDocument> apply(XmlDocument& document)
    {
        return std::unique_ptr<XmlDocument>(sheet.apply(&document));
    }
};

/** A document, or no document, as XML without declaration. */
std::string xml(const XmlDocument* document)
{
    if (document == nullptr) {
        return "(null)";
    }
    std::string text;
    for (const xmlNode* node = document->__getNativeDocument()->children; node != nullptr;
         node = node->next) {
        text += xmlOf(node);
    }
    return text;
}

std::string xml(const XmlDocument& document)
{
    return xml(&document);
}

std::string xml(const std::unique_ptr<XmlDocument>& document)
{
    return xml(document.get());
}

/** Lists `<i>text</i>` for every item of a document. */
const std::string LISTING = sheet(
    "<xsl:template match='/'><list><xsl:apply-templates select='//item'/></list>"
    "</xsl:template><xsl:template match='item'><i><xsl:value-of select='.'/></i>"
    "</xsl:template>");
const std::string ITEMS = "<items><item>one</item><item>two</item></items>";
const std::string LISTED = "<list><i>one</i><i>two</i></list>";

// ---- Loading ------------------------------------------------------------------------------------

TEST(XmlStyleSheetTest, NothingIsReadBeforeItIsLoaded)
{
    TreeCalls calls;
    {
        const XmlStyleSheet styleSheet("no-such-file.xsl");

        EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
    }
    EXPECT_THAT(calls.lines(), IsEmpty());
}

TEST(XmlStyleSheetTest, AStyleSheetIsLoaded)
{
    StyleSheetFile file(LISTING);

    EXPECT_EQ(file.sheet.load(), STATUS_SUCCESS);

    EXPECT_NE(file.sheet.__getNativeStyleSheet(), nullptr);
}

TEST(XmlStyleSheetTest, TheFileIsReadWhenItIsLoaded)
{
    const ScriptFile file("not there yet");
    XmlStyleSheet styleSheet(file.path());
    file.write(sheetMaking("<late/>"));
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    file.write("gone again");

    XmlDocument document;
    EXPECT_EQ(xml(std::unique_ptr<XmlDocument>(styleSheet.apply(&document))), "<late/>");
}

TEST(XmlStyleSheetTest, AnEmptyPathIsNotLoaded)
{
    LogCapture log;
    TreeCalls calls;
    XmlStyleSheet styleSheet("");

    EXPECT_EQ(styleSheet.load(), STATUS_INVALID_STATE);

    EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
    EXPECT_EQ(calls.lastText(), nullptr) << "libxslt is not asked";
    EXPECT_THAT(log.lines(), ElementsAre(logged("load", "Invalid state.")));
}

TEST(XmlStyleSheetTest, AMissingFileIsReportedWithItsPath)
{
    LogCapture log;
    const EngineMessages messages;
    const OutputFile missing("missing.xsl");
    XmlStyleSheet styleSheet(missing.path());

    EXPECT_EQ(styleSheet.load(), STATUS_INVALID_STATE);

    EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(logged("load", "Invalid state. (" + missing.path() + ")(" +
                                                            std::strerror(ENOENT) + ")")));
}

TEST(XmlStyleSheetTest, WhatIsNoStyleSheetIsReportedWithWhateverTheSystemSaidMeanwhile)
{
    const std::pair<const char*, std::string> files[] = {
        {"empty", ""},
        {"no XML", "layout { color: blue }"},
        {"malformed", "<xsl:stylesheet"},
        {"not closed", sheet("<xsl:template match='/'>")},
        {"no stylesheet", "<layout><item/></layout>"},
        {"an expression that is none", sheetMaking("<xsl:value-of select='1 +'/>")},
        {"a pattern that is none", sheet("<xsl:template match='//['/>")},
        {"an included file that is missing", sheet("<xsl:include href='no-such-file.xsl'/>")}};
    for (const auto& [what, content] : files) {
        SCOPED_TRACE(what);
        LogCapture log;
        const EngineMessages messages;
        const TreeCalls calls;
        StyleSheetFile file(content);

        errno = EPERM;
        EXPECT_EQ(file.sheet.load(), STATUS_INVALID_STATE);

        EXPECT_EQ(file.sheet.__getNativeStyleSheet(), nullptr);
        EXPECT_NE(calls.compileError(), EPERM) << "an earlier error is not blamed";
        EXPECT_THAT(log.lines(),
                    ElementsAre(logged("load", "Invalid state. (" + file.path() + ")(" +
                                                   std::strerror(calls.compileError()) + ")")));
        EXPECT_NE(messages.text(), "") << "libxslt says more";
    }
}

TEST(XmlStyleSheetTest, AStyleSheetThatFailedCanBeLoadedAfterwards)
{
    const ScriptFile file("no stylesheet");
    XmlStyleSheet styleSheet(file.path());
    {
        const LogCapture log;
        const EngineMessages messages;
        ASSERT_EQ(styleSheet.load(), STATUS_INVALID_STATE);
    }
    file.write(LISTING);

    EXPECT_EQ(styleSheet.load(), STATUS_SUCCESS);
    EXPECT_NE(styleSheet.__getNativeStyleSheet(), nullptr);
}

/** What a second load() left behind, which is the test's to free. */
using Replaced = std::unique_ptr<xsltStylesheet, void (*)(xsltStylesheet*)>;

TEST(XmlStyleSheetTest, LoadingAgainLosesWhatWasCompiled)
{
    TreeCalls calls;
    const ScriptFile file(sheetMaking("<first/>"));
    XmlDocument document;
    {
        XmlStyleSheet styleSheet(file.path());
        ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
        const Replaced first(styleSheet.__getNativeStyleSheet(), xsltFreeStylesheet);
        file.write(sheetMaking("<second/>"));

        EXPECT_EQ(styleSheet.load(), STATUS_SUCCESS);

        EXPECT_NE(styleSheet.__getNativeStyleSheet(), first.get());
        EXPECT_THAT(calls.lines(), ElementsAre("new document 1.0")) << "the first one is not freed";
        EXPECT_EQ(xml(std::unique_ptr<XmlDocument>(styleSheet.apply(&document))), "<second/>");
        calls.clear();
    }
    EXPECT_THAT(calls.lines(), ElementsAre("free stylesheet", "free stylesheet"))
        << "by the test, and the second one by its owner";
}

TEST(XmlStyleSheetTest, LoadingAgainInVainLosesItToo)
{
    LogCapture log;
    const EngineMessages messages;
    const ScriptFile file(LISTING);
    XmlStyleSheet styleSheet(file.path());
    ASSERT_EQ(styleSheet.load(), STATUS_SUCCESS);
    const Replaced first(styleSheet.__getNativeStyleSheet(), xsltFreeStylesheet);
    file.write("no stylesheet");

    EXPECT_EQ(styleSheet.load(), STATUS_INVALID_STATE);

    EXPECT_EQ(styleSheet.__getNativeStyleSheet(), nullptr);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST(XmlStyleSheetTest, TheCompiledStyleSheetGoesBeforeThePath)
{
    TreeCalls calls;
    {
        LoadedStyleSheet file(LISTING);
        calls.watch(calls.lastText(), "path");
    }
    EXPECT_THAT(calls.lines(), ElementsAre("free stylesheet", "release path"));
}

// ---- Applying -----------------------------------------------------------------------------------

TEST(XmlStyleSheetTest, AResultIsANewDocumentOfTheCallers)
{
    LoadedStyleSheet file(LISTING);
    XmlDocument document(parsed(ITEMS));
    TreeCalls calls;
    {
        const std::unique_ptr<XmlDocument> result(file.sheet.apply(&document));

        ASSERT_NE(result, nullptr);
        EXPECT_EQ(result->__getNativeDocument(), calls.lastResult());
        EXPECT_EQ(xml(result), LISTED);
        EXPECT_EQ(result->getXmlStyleSheet(), nullptr) << "it is not attached";
        EXPECT_THAT(calls.lines(), ElementsAre("apply"));
        calls.clear();
    }
    EXPECT_THAT(calls.lines(), ElementsAre("free document")) << "the result owns its tree";
}

TEST(XmlStyleSheetTest, ApplyingTwiceGivesIndependentDocuments)
{
    LoadedStyleSheet file(LISTING);
    XmlDocument document(parsed(ITEMS));
    const std::string before = xml(document);

    std::unique_ptr<XmlDocument> first = file.apply(document);
    const std::unique_ptr<XmlDocument> second = file.apply(document);

    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_NE(first->__getNativeDocument(), second->__getNativeDocument());
    EXPECT_NE(first->__getNativeDocument(), document.__getNativeDocument());
    EXPECT_EQ(xml(first), xml(second));

    ASSERT_EQ(first->getRootNode()->setContent("changed"), STATUS_SUCCESS);
    first = nullptr;
    EXPECT_EQ(xml(second), LISTED);
    EXPECT_EQ(xml(document), before) << "the source stays as it was";
}

TEST(XmlStyleSheetTest, AResultOutlivesSourceAndStyleSheet)
{
    std::unique_ptr<XmlDocument> result;
    {
        LoadedStyleSheet file(LISTING);
        XmlDocument document(parsed(ITEMS));
        result = file.apply(document);
    }
    EXPECT_EQ(xml(result), LISTED);
}

TEST(XmlStyleSheetTest, ADocumentMadeOfNodesIsTransformed)
{
    LoadedStyleSheet file(LISTING);
    XmlDocument document;
    XmlNode root("items");
    auto* item = new XmlNode("item");
    ASSERT_EQ(root.addChild(item), STATUS_SUCCESS);
    ASSERT_EQ(item->setContent("gr\xC3\xBC\xC3\x9F <&>"), STATUS_SUCCESS);
    ASSERT_EQ(document.setRootNode(&root), STATUS_SUCCESS);

    EXPECT_EQ(xml(file.apply(document)), "<list><i>gr\xC3\xBC\xC3\x9F &lt;&amp;&gt;</i></list>");
}

TEST(XmlStyleSheetTest, AResultCanBeTransformedAgain)
{
    LoadedStyleSheet file(LISTING);
    LoadedStyleSheet count(sheetMaking("<count><xsl:value-of select='count(//i)'/></count>"));
    XmlDocument document(parsed(ITEMS));

    const std::unique_ptr<XmlDocument> list = file.apply(document);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(xml(count.apply(*list)), "<count>2</count>");
}

TEST(XmlStyleSheetTest, WhiteSpaceThatAStyleSheetStripsIsTakenOutOfTheSource)
{
    const std::string source = "<a> <b> </b> <c>text</c> </a>";
    XmlDocument document(parsed(source));

    LoadedStyleSheet keeping(sheetMaking("<done/>"));
    ASSERT_NE(keeping.apply(document), nullptr);
    EXPECT_EQ(xml(document), source);

    LoadedStyleSheet stripping(sheet("<xsl:strip-space elements='*'/>"));
    ASSERT_NE(stripping.apply(document), nullptr);
    EXPECT_EQ(xml(document), "<a><b/><c>text</c></a>");
}

// ---- What can't be applied ----------------------------------------------------------------------

TEST(XmlStyleSheetTest, NoDocumentIsRefused)
{
    LogCapture log;
    LoadedStyleSheet file(LISTING);
    XmlStyleSheet unloaded("never-loaded.xsl");
    TreeCalls calls;

    EXPECT_EQ(file.sheet.apply(nullptr), nullptr);
    EXPECT_EQ(unloaded.apply(nullptr), nullptr) << "before anything else";

    EXPECT_THAT(calls.lines(), IsEmpty()) << "libxslt is not asked";
    const auto refused = logged("apply", "Invalid parameter.");
    EXPECT_THAT(log.lines(), ElementsAre(refused, refused));
}

TEST(XmlStyleSheetTest, AStyleSheetThatWasNotLoadedIsNotApplied)
{
    LogCapture log;
    const EngineMessages messages;
    StyleSheetFile file(LISTING);
    XmlDocument document(parsed(ITEMS));

    EXPECT_EQ(file.sheet.apply(&document), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Invalid state.")));

    ASSERT_EQ(file.sheet.load(), STATUS_SUCCESS);
    EXPECT_EQ(xml(std::unique_ptr<XmlDocument>(file.sheet.apply(&document))), LISTED);
}

TEST(XmlStyleSheetTest, ADocumentWithoutNativeDocumentIsNotTransformed)
{
    LogCapture log;
    const EngineMessages messages;
    LoadedStyleSheet file(LISTING);
    XmlDocument nothing(nullptr);

    EXPECT_EQ(file.sheet.apply(&nothing), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Invalid state.")));
}

TEST(XmlStyleSheetTest, AnEmptyDocumentIsTransformed)
{
    LoadedStyleSheet file(LISTING);
    XmlDocument document;

    EXPECT_EQ(xml(file.apply(document)), "<list/>");
}

TEST(XmlStyleSheetTest, ATransformationThatFailsIsReported)
{
    const std::pair<const char*, std::string> rows[] = {
        {"ended by the stylesheet",
         sheetMaking("<begun/><xsl:message terminate='yes'>bye</xsl:message>")},
        {"endless", sheet("<xsl:template match='/' name='again'>"
                          "<xsl:call-template name='again'/></xsl:template>")},
        {"an unknown function", sheetMaking("<xsl:value-of select='nosuchfunction()'/>")}};
    for (const auto& [what, content] : rows) {
        SCOPED_TRACE(what);
        LogCapture log;
        const EngineMessages messages;
        LoadedStyleSheet file(content);
        XmlDocument document(parsed(ITEMS));

        EXPECT_EQ(file.sheet.apply(&document), nullptr);

        EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Invalid state.")));
        EXPECT_NE(messages.text(), "") << "libxslt says more";
        EXPECT_EQ(xml(document), ITEMS);
    }
}

TEST(XmlStyleSheetTest, WhatLibxsltRefusesIsReported)
{
    LogCapture log;
    TreeCalls calls;
    LoadedStyleSheet file(LISTING);
    XmlDocument document(parsed(ITEMS));

    calls.refuse(TreeCall::Apply);
    EXPECT_EQ(file.sheet.apply(&document), nullptr);

    EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Invalid state.")));
}

TEST(XmlStyleSheetTest, AMessageThatDoesNotTerminateIsNoFailure)
{
    const EngineMessages messages;
    LoadedStyleSheet file(sheetMaking("<done/><xsl:message>by the way</xsl:message>"));
    XmlDocument document(parsed(ITEMS));

    EXPECT_EQ(xml(file.apply(document)), "<done/>");
    EXPECT_THAT(messages.text(), HasSubstr("by the way"));
}

TEST(XmlStyleSheetTest, WithoutMemoryForTheDocumentItsResultIsLost)
{
    LogCapture log;
    TreeCalls calls;
    LoadedStyleSheet file(LISTING);
    XmlDocument document(parsed(ITEMS));
    calls.clear();

    XmlDocument* result = nullptr;
    bool failed = false;
    {
        const AllocationFailure failure(Allocation::NothrowNew);
        result = file.sheet.apply(&document);
        failed = failure.happened();
    }

    EXPECT_TRUE(failed);
    EXPECT_EQ(result, nullptr);
    EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Out of memory.")));
    EXPECT_THAT(calls.lines(), ElementsAre("apply")) << "freed by nobody";
    ASSERT_NE(calls.lastResult(), nullptr);
    EXPECT_EQ(xml(XmlDocument(calls.lastResult())), LISTED);
}

// ---- Writing a result ---------------------------------------------------------------------------

TEST(XmlStyleSheetTest, AResultIsWrittenUnderTheSettingsOfTheStyleSheetThatIsAttached)
{
    const OutputFile output("result");
    LoadedStyleSheet file(
        sheet("<xsl:output method='text'/><xsl:template match='/'>"
              "<lines><xsl:apply-templates select='//item'/></lines>"
              "</xsl:template><xsl:template match='item'><line>"
              "<xsl:value-of select='.'/></line></xsl:template>"));
    XmlDocument document(parsed(ITEMS));
    const std::unique_ptr<XmlDocument> result = file.apply(document);
    ASSERT_NE(result, nullptr);
    result->setOutputFilePath(output.path());

    EXPECT_EQ(result->write(), STATUS_SUCCESS);
    EXPECT_EQ(output.content(),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<lines>\n  <line>one</line>\n  <line>two</line>\n</lines>\n");

    result->__setXmlStyleSheet(&file.sheet);
    EXPECT_EQ(result->write(), STATUS_SUCCESS);
    EXPECT_EQ(output.content(), "onetwo");
}

// ---- What a stylesheet reaches ------------------------------------------------------------------

#ifdef LIBXML_HTTP_ENABLED

/** A server on the loopback interface, which answers `<secret/>`, or a stylesheet that makes it. */
class LocalServer {
public:
    LocalServer() : __socket(socket(AF_INET, SOCK_STREAM, 0))
    {
        // No proxy of the environment comes in between.
        xmlNanoHTTPInit();
        xmlNanoHTTPScanProxy(nullptr);

        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        EXPECT_EQ(bind(__socket, generic, size), 0) << std::strerror(errno);
        EXPECT_EQ(listen(__socket, 8), 0) << std::strerror(errno);
        EXPECT_EQ(getsockname(__socket, generic, &size), 0) << std::strerror(errno);
        __port = ntohs(address.sin_port);
        __worker = std::thread([this] { serve(); });
    }

    ~LocalServer()
    {
        shutdown(__socket, SHUT_RDWR);
        __worker.join();
        close(__socket);
    }

    LocalServer(const LocalServer&) = delete;
    LocalServer& operator=(const LocalServer&) = delete;

    std::string url(const std::string& name) const
    {
        return "http://127.0.0.1:" + std::to_string(__port) + "/" + name;
    }

    /** Whether a request came whose line begins so. */
    bool got(const std::string& request)
    {
        const std::lock_guard<std::mutex> lock(__mutex);
        const auto place = __requests.lower_bound(request);
        return place != __requests.end() && place->compare(0, request.size(), request) == 0;
    }

private:
    void serve()
    {
        for (int client; (client = accept(__socket, nullptr, nullptr)) >= 0; close(client)) {
            timeval limit{};
            limit.tv_sec = 5;
            setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
            char bytes[4096];
            const ssize_t length = recv(client, bytes, sizeof bytes, 0);
            std::string line;
            if (length > 0) {
                line.assign(bytes, static_cast<std::size_t>(length));
                line.erase(line.find('\r'));
                const std::lock_guard<std::mutex> lock(__mutex);
                __requests.insert(line);
            }
            const bool wantsSheet = line.find(".xsl ") != std::string::npos;
            const std::string response = "HTTP/1.0 200 OK\r\nContent-Type: text/xml\r\n\r\n" +
                                         (wantsSheet ? sheetMaking("<secret/>") : "<secret/>");
            send(client, response.data(), response.size(), MSG_NOSIGNAL);
            shutdown(client, SHUT_WR);
            while (recv(client, bytes, sizeof bytes, 0) > 0) {
            }
        }
    }

    int __socket;
    int __port = 0;
    std::mutex __mutex;
    std::set<std::string> __requests;
    std::thread __worker;
};

#endif

/** What lies around for stylesheets to reach. */
class Surroundings {
public:
    Surroundings() = default;
    ~Surroundings() { std::filesystem::remove_all(newFolder); }

    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    const std::string newFolder = testing::TempDir() + "oxil-new-" + std::to_string(getpid());
    const ScriptFile secret{"<secret/>"};
    const ScriptFile withEntity{"<!DOCTYPE d [<!ENTITY e SYSTEM '" + secret.path() +
                                "'>]><d>&e;</d>"};
    const ScriptFile library{sheetMaking("<secret/>")};
    const OutputFile target{"target.xml"};
#ifdef LIBXML_HTTP_ENABLED
    LocalServer server;
#endif
};

/** The files that may be opened under the two settings that ask for a list. */
std::set<std::string> allowedFiles;

/** The loader that every test starts with. */
const xmlExternalEntityLoader DEFAULT_LOADER = xmlGetExternalEntityLoader();

xmlParserInputPtr loadAllowed(const char* url, const char* id, xmlParserCtxtPtr context)
{
    const bool allowed = url != nullptr && allowedFiles.count(url) > 0;
    return allowed ? DEFAULT_LOADER(url, id, context) : nullptr;
}

// Later versions deprecate it, and read no network anyway.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
const xmlExternalEntityLoader loadNoNetwork = xmlNoNetExternalEntityLoader;
#pragma GCC diagnostic pop

int checkAllowed(xsltSecurityPrefsPtr, xsltTransformContextPtr, const char* path)
{
    return allowedFiles.count(path) > 0 ? 1 : 0;
}

/** Settings of an application, as long as this object lives. */
class EngineSettings {
public:
    EngineSettings() = default;

    ~EngineSettings()
    {
        xsltSetDefaultSecurityPrefs(__outerPrefs);
        xmlSetExternalEntityLoader(__outerLoader);
        xsltFreeSecurityPrefs(__prefs);
    }

    EngineSettings(const EngineSettings&) = delete;
    EngineSettings& operator=(const EngineSettings&) = delete;

    /** Has libxslt check what it does; it does not before the first call. */
    void check(std::initializer_list<xsltSecurityOption> options, xsltSecurityCheck function)
    {
        for (const xsltSecurityOption option : options) {
            EXPECT_EQ(xsltSetSecurityPrefs(__prefs, option, function), 0);
        }
        xsltSetDefaultSecurityPrefs(__prefs);
    }

    void forbid(std::initializer_list<xsltSecurityOption> options)
    {
        check(options, xsltSecurityForbid);
    }

private:
    xsltSecurityPrefs* __outerPrefs = xsltGetDefaultSecurityPrefs();
    xmlExternalEntityLoader __outerLoader = xmlGetExternalEntityLoader();
    xsltSecurityPrefs* __prefs = xsltNewSecurityPrefs();
};

struct Setting {
    const char* name;
    void (*beforeLoading)(EngineSettings& settings);
    void (*beforeApplying)(EngineSettings& settings);
    bool isPlain = false;

    int load(XmlStyleSheet& styleSheet) const
    {
        return isPlain ? styleSheet.load(PLAIN_FILE) : styleSheet.load();
    }
};

void none(EngineSettings&) {}

template <xsltSecurityOption... options>
void forbid(EngineSettings& settings)
{
    settings.forbid({options...});
}

constexpr auto forbidAll =
    forbid<XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
           XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK>;

constexpr int SETTING_COUNT = 12;

// In the order of the columns below.
const Setting SETTINGS[SETTING_COUNT] = {
    {"by default", none, none},
    {"a check that forbids nothing", forbid<>, none},
    {"all forbidden once it is loaded", none, forbidAll},
    {"reading files but its own", [](auto& s) { s.check({XSLT_SECPREF_READ_FILE}, checkAllowed); },
     none},
    {"writing files", forbid<XSLT_SECPREF_WRITE_FILE>, none},
    {"making folders", forbid<XSLT_SECPREF_CREATE_DIRECTORY>, none},
    {"reading the network", forbid<XSLT_SECPREF_READ_NETWORK>, none},
    {"writing the network", forbid<XSLT_SECPREF_WRITE_NETWORK>, none},
    {"no network loader", [](auto&) { xmlSetExternalEntityLoader(loadNoNetwork); }, none},
    {"a loader with a list", [](auto&) { xmlSetExternalEntityLoader(loadAllowed); }, none},
    {"a loader with a list, and nothing but reading files",
     [](auto& s) {
         xmlSetExternalEntityLoader(loadAllowed);
         s.forbid({XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
                   XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK});
     },
     none},
    {"all forbidden, and loaded as a plain file", forbidAll, none, true},
};

enum class Outcome { Reached, LeftOut, LoadRefused, ApplyRefused };
constexpr Outcome YES = Outcome::Reached;
constexpr Outcome OUT = Outcome::LeftOut;  // succeeds, without what it asked for
constexpr Outcome LOAD = Outcome::LoadRefused;
constexpr Outcome APPLY = Outcome::ApplyRefused;

void PrintTo(Outcome outcome, std::ostream* stream)
{
    const char* const names[] = {"reached", "left out", "refused by load()", "refused by apply()"};
    *stream << names[static_cast<int>(outcome)];
}

/** A way in which a stylesheet reaches out. */
struct Way {
    const char* name;
    std::string (*sheet)(const Surroundings& around);
    bool (*reached)(Surroundings& around, const std::string& result);
    Outcome outcomes[SETTING_COUNT];
};

bool holdsSecret(Surroundings&, const std::string& result)
{
    return result.find("<secret/>") != std::string::npos;
}

std::string sheetCopying(const std::string& url)
{
    return sheetMaking("<o><xsl:copy-of select=\"document('" + url + "')\"/></o>");
}

std::string sheetIncluding(const std::string& url)
{
    return sheet("<xsl:include href='" + url + "'/>");
}

std::string sheetWithEntity(const std::string& url)
{
    return "<!DOCTYPE d [<!ENTITY e SYSTEM '" + url + "'>]>" + sheetMaking("<o>&e;</o>");
}

std::string sheetWriting(const std::string& url)
{
    return sheetMaking("<o><xsl:document href='" + url + "'><w/></xsl:document></o>");
}

using Around = const Surroundings&;

#ifdef LIBXML_HTTP_ENABLED
constexpr char GET_DOCUMENT[] = "GET /d.xml ";
constexpr char GET_SHEET[] = "GET /i.xsl ";
constexpr char GET_ENTITY[] = "GET /e.xml ";
constexpr char PUT_RESULT[] = "PUT /w.xml ";

template <const char* request>
bool serverGot(Surroundings& around, const std::string&)
{
    return around.server.got(request);
}
#endif

// clang-format off
const Way WAYS[] = {
    // default, no check, once loaded, own files, writing, folders, network, writing there,
    //                                                         no network, list, list and no more,
    //                                                                             plain file
    {"document() of a file",
     [](Around a) { return sheetCopying(a.secret.path()); }, holdsSecret,
     {YES,   YES, APPLY, APPLY, YES,   YES,   YES,   YES,      YES,   OUT,   OUT,   APPLY}},
    {"xsl:include of a file",
     [](Around a) { return sheetIncluding(a.library.path()); }, holdsSecret,
     {YES,   YES, YES,   LOAD,  YES,   YES,   YES,   YES,      YES,   LOAD,  LOAD,  LOAD}},
    {"external entity in a file",
     [](Around a) { return sheetWithEntity(a.secret.path()); }, holdsSecret,
     {YES,   YES, YES,   YES,   YES,   YES,   YES,   YES,      YES,   OUT,   OUT,   LOAD}},
    {"external entity of a document()",
     [](Around a) { return sheetCopying(a.withEntity.path()); }, holdsSecret,
     {YES,   YES, APPLY, APPLY, YES,   YES,   YES,   YES,      YES,   OUT,   OUT,   APPLY}},
    {"xsl:document to a file",
     [](Around a) { return sheetWriting(a.target.path()); },
     [](Surroundings& a, const std::string&) { return a.target.exists(); },
     {YES,   YES, APPLY, YES,   APPLY, YES,   YES,   YES,      YES,   YES,   APPLY, APPLY}},
    {"xsl:document to a new folder",
     [](Around a) { return sheetWriting(a.newFolder + "/w.xml"); },
     [](Surroundings& a, const std::string&) { return std::filesystem::exists(a.newFolder); },
     {APPLY, YES, APPLY, YES,   APPLY, APPLY, YES,   YES,      APPLY, APPLY, APPLY, APPLY}},
#ifdef LIBXML_HTTP_ENABLED
    {"document() of the network",
     [](Around a) { return sheetCopying(a.server.url("d.xml")); }, serverGot<GET_DOCUMENT>,
     {YES,   YES, APPLY, YES,   YES,   YES,   APPLY, YES,      OUT,   OUT,   APPLY, APPLY}},
    {"xsl:include of the network",
     [](Around a) { return sheetIncluding(a.server.url("i.xsl")); }, serverGot<GET_SHEET>,
     {YES,   YES, YES,   YES,   YES,   YES,   LOAD,  YES,      LOAD,  LOAD,  LOAD,  LOAD}},
    {"external entity in the network",
     [](Around a) { return sheetWithEntity(a.server.url("e.xml")); }, serverGot<GET_ENTITY>,
     {YES,   YES, YES,   YES,   YES,   YES,   YES,   YES,      OUT,   OUT,   OUT,   LOAD}},
    {"xsl:document to the network",
     [](Around a) { return sheetWriting(a.server.url("w.xml")); }, serverGot<PUT_RESULT>,
     {YES,   YES, APPLY, YES,   YES,   YES,   YES,   APPLY,    YES,   YES,   APPLY, APPLY}},
#endif
};
// clang-format on

/** What a stylesheet for nothing but reaching out comes to. */
Outcome outcomeOf(const Way& way, const Setting& setting)
{
    LogCapture log;
    const EngineMessages messages;
    Surroundings around;
    StyleSheetFile file(way.sheet(around));
    allowedFiles = {file.path()};
    EngineSettings settings;

    setting.beforeLoading(settings);
    if (setting.load(file.sheet) != STATUS_SUCCESS) {
        EXPECT_FALSE(way.reached(around, ""));
        EXPECT_EQ(log.lines().size(), 1U);
        return Outcome::LoadRefused;
    }

    XmlDocument document(parsed(ITEMS));
    setting.beforeApplying(settings);
    const std::unique_ptr<XmlDocument> result(file.sheet.apply(&document));
    const bool reached = way.reached(around, xml(result));
    if (result == nullptr) {
        EXPECT_FALSE(reached);
        EXPECT_THAT(log.lines(), ElementsAre(logged("apply", "Invalid state.")));
        return Outcome::ApplyRefused;
    }
    EXPECT_THAT(log.lines(), IsEmpty());
    return reached ? Outcome::Reached : Outcome::LeftOut;
}

/** What is forbidden by the settings of an application, or not. */
class XmlStyleSheetReachTest : public testing::TestWithParam<int> {};

TEST_P(XmlStyleSheetReachTest, IsWhatTheSettingsOfTheEnginesLeave)
{
    const Setting& setting = SETTINGS[GetParam()];
    SCOPED_TRACE(setting.name);
    for (const Way& way : WAYS) {
        EXPECT_EQ(outcomeOf(way, setting), way.outcomes[GetParam()]) << way.name;
    }
}

INSTANTIATE_TEST_SUITE_P(Settings, XmlStyleSheetReachTest, testing::Range(0, SETTING_COUNT));

TEST(XmlStyleSheetReachTest, ForbiddingToReadFilesForbidsTheStyleSheetItself)
{
    LogCapture log;
    const EngineMessages messages;
    StyleSheetFile file(LISTING);
    {
        EngineSettings settings;
        settings.forbid({XSLT_SECPREF_READ_FILE});
        EXPECT_EQ(file.sheet.load(), STATUS_INVALID_STATE);
    }
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(file.sheet.load(), STATUS_SUCCESS) << "the settings are those of the moment";
}

TEST(XmlStyleSheetReachTest, AnOrdinaryTransformationNeedsNothingThatIsForbidden)
{
    const OutputFile output("result.xml");
    const ScriptFile source(ITEMS);
    StyleSheetFile file(LISTING);
    EngineSettings settings;
    forbidAll(settings);

    Xml reader;
    const std::unique_ptr<XmlDocument> document(reader.load(source.path(), PLAIN_FILE));
    ASSERT_NE(document, nullptr);
    ASSERT_EQ(file.sheet.load(PLAIN_FILE), STATUS_SUCCESS);
    const std::unique_ptr<XmlDocument> result(file.sheet.apply(document.get()));
    EXPECT_EQ(xml(result), LISTED);

    ASSERT_NE(result, nullptr);
    result->__setXmlStyleSheet(&file.sheet);
    result->setOutputFilePath(output.path());
    EXPECT_EQ(result->write(PLAIN_FILE), STATUS_SUCCESS);
    EXPECT_EQ(output.content(), "<?xml version=\"1.0\"?>\n" + LISTED + "\n");
}

TEST(XmlStyleSheetReachTest, AnExternalEntityOfTheSourceIsNotRead)
{
    const Surroundings around;
    LoadedStyleSheet copying(sheetMaking("<o><xsl:copy-of select='.'/></o>"));
    Xml reader(around.withEntity.path());
    const std::unique_ptr<XmlDocument> document(reader.load());
    ASSERT_NE(document, nullptr);

    const std::string result = xml(copying.apply(*document));

    EXPECT_THAT(result, HasSubstr("<o>"));
    EXPECT_THAT(result, Not(HasSubstr("<secret/>")));
}

}  // namespace
}  // namespace oxil::test
