#include "XmlCalls.h"

#include <cstdlib>

#include "NextDefinition.h"

namespace oxil::test {
namespace {

thread_local XmlCalls* current = nullptr;

}  // namespace

/** What the definitions below tell the recorder. */
struct XmlCallRecorder {
    static void parsing(xmlParserCtxtPtr context)
    {
        if (current == nullptr) {
            return;
        }
        ++current->__parsesBegun;
        current->__context.emplace(context);
        if (current->__beforeParsing) {
            current->__beforeParsing(context);
        }
    }

    static void parsed()
    {
        if (current != nullptr) {
            ++current->__parsesReturned;
        }
    }

    static void loaded(xmlDocPtr document)
    {
        if (current != nullptr) {
            current->__document = document;
        }
    }

    static void cleaningMemory()
    {
        if (current != nullptr) {
            ++current->__memoryCleanups;
        }
    }

    static void cleaningParser()
    {
        if (current != nullptr) {
            ++current->__parserCleanups;
        }
    }
};

XmlCalls::XmlCalls(const Hook& beforeParsing) : __beforeParsing(beforeParsing)
{
    if (current != nullptr) {
        std::abort();
    }
    current = this;
}

XmlCalls::~XmlCalls()
{
    current = nullptr;
}

}  // namespace oxil::test

using oxil::test::real;
using oxil::test::XmlCallRecorder;

// Stand before those of libxml2, because a definition in the executable wins.
#pragma GCC visibility push(default)
extern "C" {

int xmlParseDocument(xmlParserCtxtPtr context)
{
    static auto* const parse = real<decltype(xmlParseDocument)>("xmlParseDocument");
    XmlCallRecorder::parsing(context);
    const int result = parse(context);
    XmlCallRecorder::parsed();
    return result;
}

xmlDocPtr xmlParseFile(const char* path)
{
    static auto* const parse = real<decltype(xmlParseFile)>("xmlParseFile");
    xmlDocPtr document = parse(path);
    XmlCallRecorder::loaded(document);
    return document;
}

void xmlCleanupMemory(void)
{
    static auto* const cleanUp = real<decltype(xmlCleanupMemory)>("xmlCleanupMemory");
    XmlCallRecorder::cleaningMemory();
    cleanUp();
}

void xmlCleanupParser(void)
{
    static auto* const cleanUp = real<decltype(xmlCleanupParser)>("xmlCleanupParser");
    XmlCallRecorder::cleaningParser();
    cleanUp();
}

}  // extern "C"
#pragma GCC visibility pop
