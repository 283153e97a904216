#include "TreeCalls.h"

#include <libxml/tree.h>
#include <libxslt/transform.h>
#include <libxslt/xsltInternals.h>
#include <libxslt/xsltutils.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "FreeObserver.h"
#include "NativeXml.h"
#include "NextDefinition.h"

namespace oxil::test {
namespace {

thread_local TreeCalls* current = nullptr;
thread_local int depth = 0;  // of calls below; only the outermost ones are the library's

/** Calls the engine, which may come back here for its own purposes. */
template <typename Function, typename... Arguments>
auto forward(Function* function, Arguments... arguments)
{
    struct Inside {
        Inside() { ++depth; }
        ~Inside() { --depth; }
    } inside;
    return function(arguments...);
}

/** The recorder, if there is one and the library itself is calling. */
TreeCalls* recorder()
{
    return depth == 0 ? current : nullptr;
}

}  // namespace

struct TreeCalls::Watched {
    Watched(const void* address, std::string what) : memory(address), name(std::move(what)) {}

    const void* memory;
    std::string name;
    bool reported = false;
    FreeObserver observer{memory};
};

/** What the definitions below tell the recorder. */
struct TreeRecorder {
    /** Notes the line; whether the call is to fail. */
    static bool refuses(TreeCall call, const std::string& line = {})
    {
        TreeCalls* calls = recorder();
        if (calls == nullptr) {
            return false;
        }
        if (!line.empty()) {
            calls->note(line);
        }
        if (calls->__refused != call) {
            return false;
        }
        calls->__refused = TreeCall::None;
        return true;
    }

    static int saveResult() { return std::exchange(current->__saveResult, -1); }

    static void note(const std::string& line)
    {
        if (TreeCalls* calls = recorder()) {
            calls->note(line);
        }
    }

    static void given(const void* text)
    {
        if (TreeCalls* calls = recorder()) {
            calls->__lastText = text;
        }
    }

    static void handedOut(void* value)
    {
        TreeCalls* calls = recorder();
        if (calls != nullptr && value != nullptr) {
            calls->__values.push_back(std::make_unique<TreeCalls::Watched>(value, "value"));
        }
    }

    static void made(xmlDoc* result)
    {
        if (TreeCalls* calls = recorder()) {
            calls->__lastResult = result;
        }
    }

    static void compiled(int error)
    {
        if (TreeCalls* calls = recorder()) {
            calls->__compileError = error;
        }
    }
};

namespace {

/** What is noted of a call with a name. Without a recorder nothing is, and no memory asked for. */
std::string lineOf(const char* call, const xmlChar* name)
{
    return recorder() != nullptr ? call + fromNative(name) : std::string();
}

}  // namespace

TreeCalls::TreeCalls()
{
    if (current != nullptr) {
        std::abort();
    }
    current = this;
}

TreeCalls::~TreeCalls()
{
    current = nullptr;
    for (const std::unique_ptr<Watched>& value : __values) {
        if (value->observer.count() == 0) {
            xmlFree(const_cast<void*>(value->memory));
        }
    }
}

const std::vector<std::string>& TreeCalls::lines()
{
    __collect();
    return __lines;
}

void TreeCalls::clear()
{
    __collect();
    __lines.clear();
}

void TreeCalls::note(const std::string& line)
{
    __collect();
    __lines.push_back(line);
}

void TreeCalls::watch(const void* memory, const std::string& name)
{
    __watched.push_back(std::make_unique<Watched>(memory, name));
}

void TreeCalls::answerNextSave(int result)
{
    __refused = TreeCall::SaveDocument;
    __saveResult = result;
}

int TreeCalls::valuesMade() const
{
    return static_cast<int>(__values.size());
}

int TreeCalls::valuesKept() const
{
    return static_cast<int>(std::count_if(
        __values.begin(), __values.end(),
        [](const std::unique_ptr<Watched>& value) { return value->observer.count() == 0; }));
}

void TreeCalls::__collect()
{
    for (const std::unique_ptr<Watched>& watched : __watched) {
        if (watched->observer.count() > 0 && !std::exchange(watched->reported, true)) {
            __lines.push_back("release " + watched->name);
        }
    }
}

}  // namespace oxil::test

// These stand before the engines' own functions, because a definition in the executable wins.

using oxil::test::forward;
using oxil::test::lineOf;
using oxil::test::real;
using oxil::test::TreeCall;
using oxil::test::TreeRecorder;

#define OXIL_INTERPOSED extern "C" __attribute__((visibility("default")))

OXIL_INTERPOSED xmlNodePtr xmlNewNode(xmlNsPtr space, const xmlChar* name)
{
    static auto* const make = real<decltype(xmlNewNode)>("xmlNewNode");
    std::string line = lineOf("new element ", name);
    if (!line.empty() && space != nullptr) {
        line += " of a namespace";
    }
    if (TreeRecorder::refuses(TreeCall::NewNode, line)) {
        return nullptr;
    }
    return forward(make, space, name);
}

OXIL_INTERPOSED xmlDocPtr xmlNewDoc(const xmlChar* version)
{
    static auto* const make = real<decltype(xmlNewDoc)>("xmlNewDoc");
    if (TreeRecorder::refuses(TreeCall::NewDocument, lineOf("new document ", version))) {
        return nullptr;
    }
    return forward(make, version);
}

OXIL_INTERPOSED xmlAttrPtr xmlSetProp(xmlNodePtr node, const xmlChar* name, const xmlChar* value)
{
    static auto* const set = real<decltype(xmlSetProp)>("xmlSetProp");
    return TreeRecorder::refuses(TreeCall::SetAttribute) ? nullptr
                                                         : forward(set, node, name, value);
}

OXIL_INTERPOSED xmlAttrPtr xmlNewProp(xmlNodePtr node, const xmlChar* name, const xmlChar* value)
{
    static auto* const add = real<decltype(xmlNewProp)>("xmlNewProp");
    TreeRecorder::given(value);
    return TreeRecorder::refuses(TreeCall::AddAttribute) ? nullptr
                                                         : forward(add, node, name, value);
}

OXIL_INTERPOSED xmlChar* xmlGetProp(const xmlNode* node, const xmlChar* name)
{
    static auto* const get = real<decltype(xmlGetProp)>("xmlGetProp");
    xmlChar* value = forward(get, node, name);
    TreeRecorder::handedOut(value);
    return value;
}

OXIL_INTERPOSED void xmlUnlinkNode(xmlNodePtr node)
{
    static auto* const unlink = real<decltype(xmlUnlinkNode)>("xmlUnlinkNode");
    if (node != nullptr) {
        TreeRecorder::note(lineOf("unlink ", node->name));
    }
    forward(unlink, node);
}

OXIL_INTERPOSED void xmlFreeNode(xmlNodePtr node)
{
    static auto* const free = real<decltype(xmlFreeNode)>("xmlFreeNode");
    if (node != nullptr) {
        TreeRecorder::note(lineOf("free ", node->name));
    }
    forward(free, node);
}

OXIL_INTERPOSED void xmlFreeDoc(xmlDocPtr document)
{
    static auto* const free = real<decltype(xmlFreeDoc)>("xmlFreeDoc");
    if (document != nullptr) {
        TreeRecorder::note("free document");
    }
    forward(free, document);
}

OXIL_INTERPOSED int xmlSaveFormatFileEnc(const char* path, xmlDocPtr document, const char* encoding,
                                         int format)
{
    static auto* const save = real<decltype(xmlSaveFormatFileEnc)>("xmlSaveFormatFileEnc");
    TreeRecorder::given(path);
    if (TreeRecorder::refuses(TreeCall::SaveDocument, "save document")) {
        return TreeRecorder::saveResult();
    }
    return forward(save, path, document, encoding, format);
}

OXIL_INTERPOSED xsltStylesheetPtr xsltParseStylesheetFile(const xmlChar* path)
{
    static auto* const compile = real<decltype(xsltParseStylesheetFile)>("xsltParseStylesheetFile");
    TreeRecorder::given(path);
    xsltStylesheetPtr styleSheet = forward(compile, path);
    TreeRecorder::compiled(errno);
    return styleSheet;
}

OXIL_INTERPOSED xmlDocPtr xsltApplyStylesheet(xsltStylesheetPtr styleSheet, xmlDocPtr document,
                                              const char** parameters)
{
    static auto* const apply = real<decltype(xsltApplyStylesheet)>("xsltApplyStylesheet");
    const bool refused = TreeRecorder::refuses(TreeCall::Apply, "apply");
    xmlDocPtr result = refused ? nullptr : forward(apply, styleSheet, document, parameters);
    TreeRecorder::made(result);
    return result;
}

OXIL_INTERPOSED int xsltSaveResultToFile(FILE* file, xmlDocPtr result, xsltStylesheetPtr styleSheet)
{
    static auto* const save = real<decltype(xsltSaveResultToFile)>("xsltSaveResultToFile");
    if (TreeRecorder::refuses(TreeCall::SaveResult, "save result")) {
        return -1;
    }
    return forward(save, file, result, styleSheet);
}

OXIL_INTERPOSED int xsltSaveResultToString(xmlChar** text, int* size, xmlDocPtr result,
                                           xsltStylesheetPtr styleSheet)
{
    static auto* const save = real<decltype(xsltSaveResultToString)>("xsltSaveResultToString");
    if (TreeRecorder::refuses(TreeCall::SaveResult, "save result")) {
        return -1;
    }
    return forward(save, text, size, result, styleSheet);
}

OXIL_INTERPOSED void xmlDocDumpFormatMemoryEnc(xmlDocPtr document, xmlChar** text, int* size,
                                               const char* encoding, int format)
{
    static auto* const save =
        real<decltype(xmlDocDumpFormatMemoryEnc)>("xmlDocDumpFormatMemoryEnc");
    if (TreeRecorder::refuses(TreeCall::SaveDocument, "save document")) {
        *text = nullptr;
        *size = 0;
        return;
    }
    forward(save, document, text, size, encoding, format);
}

OXIL_INTERPOSED void xsltFreeStylesheet(xsltStylesheetPtr styleSheet)
{
    static auto* const free = real<decltype(xsltFreeStylesheet)>("xsltFreeStylesheet");
    if (styleSheet != nullptr) {
        TreeRecorder::note("free stylesheet");
    }
    forward(free, styleSheet);
}
