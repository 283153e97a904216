// Runs stylesheets that nobody has looked at: they read and write nothing but what is allowed here.
// How much time and memory they take is not limited.
//
// Usage: untrusted NOTE.XML STYLESHEET.XSL...
//
// Prints, for the stylesheets here, what libxslt complains about on the standard error output, and:
//   copy.xsl: transformed
//   curious.xsl: refused
//   caller.xsl: refused
//   writer.xsl: refused

#include <cstdio>
#include <memory>
#include <set>
#include <string>

#include <libxml/parser.h>
#include <libxslt/security.h>

#include <Oxil.h>

namespace {

//! [distrust]
// The engines' settings are those of the whole process, so it is the application that makes them,
// once and before the first stylesheet is loaded.

// Paths, exactly as they are given to the library. Every stylesheet may read all of them.
std::set<std::string> allowedFiles;
xmlExternalEntityLoader defaultLoader = nullptr;

// Asked for every file and every URL that libxml2 is about to read for a document or a stylesheet.
xmlParserInputPtr loadAllowed(const char* url, const char* id, xmlParserCtxtPtr context)
{
    const bool allowed = url != nullptr && allowedFiles.count(url) > 0;
    return allowed ? defaultLoader(url, id, context) : nullptr;
}

void distrustStyleSheets()
{
    defaultLoader = xmlGetExternalEntityLoader();
    xmlSetExternalEntityLoader(loadAllowed);

    xsltSecurityPrefs* preferences = xsltNewSecurityPrefs();  // in force as long as the process
    for (const xsltSecurityOption option :
         {XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY, XSLT_SECPREF_READ_NETWORK,
          XSLT_SECPREF_WRITE_NETWORK}) {
        xsltSetSecurityPrefs(preferences, option, xsltSecurityForbid);
    }
    xsltSetDefaultSecurityPrefs(preferences);
}
//! [distrust]

bool transforms(const std::string& path, oxil::XmlDocument& document)
{
    oxil::XmlStyleSheet styleSheet(path);
    if (styleSheet.load() != oxil::STATUS_SUCCESS) {
        return false;
    }
    const std::unique_ptr<oxil::XmlDocument> result(styleSheet.apply(&document));
    return result != nullptr;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: untrusted NOTE.XML STYLESHEET.XSL...\n");
        return 2;
    }
    distrustStyleSheets();
    allowedFiles.insert(argv + 1, argv + argc);

    oxil::Xml reader(argv[1]);
    const std::unique_ptr<oxil::XmlDocument> document(reader.load());
    if (document == nullptr) {
        return 1;
    }
    for (int i = 2; i < argc; ++i) {
        const std::string path = argv[i];
        std::printf("%s: %s\n", path.substr(path.rfind('/') + 1).c_str(),
                    transforms(path, *document) ? "transformed" : "refused");
    }
}
