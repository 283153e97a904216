// Runs stylesheets that nobody has looked at: they read nothing but the document, and write nothing.
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
#include <string>

#include <libxslt/security.h>

#include <Oxil.h>

namespace {

//! [distrust]
// What stylesheets may do is a setting of libxslt for the whole process, so it is the application
// that makes it, once and before the first one is applied.
void distrustStyleSheets()
{
    xsltSecurityPrefs* preferences = xsltNewSecurityPrefs();  // in force as long as the process
    for (const xsltSecurityOption option :
         {XSLT_SECPREF_READ_FILE, XSLT_SECPREF_WRITE_FILE, XSLT_SECPREF_CREATE_DIRECTORY,
          XSLT_SECPREF_READ_NETWORK, XSLT_SECPREF_WRITE_NETWORK}) {
        xsltSetSecurityPrefs(preferences, option, xsltSecurityForbid);
    }
    xsltSetDefaultSecurityPrefs(preferences);
}

bool transforms(const std::string& path, oxil::XmlDocument& document)
{
    oxil::XmlStyleSheet styleSheet(path);
    if (styleSheet.load(oxil::PLAIN_FILE) != oxil::STATUS_SUCCESS) {
        return false;
    }
    return styleSheet.transform(document) != nullptr;
}
//! [distrust]

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: untrusted NOTE.XML STYLESHEET.XSL...\n");
        return 2;
    }
    distrustStyleSheets();

    const auto document = oxil::XmlDocument::loadFile(argv[1]);
    if (document == nullptr) {
        return 1;
    }
    for (int i = 2; i < argc; ++i) {
        const std::string path = argv[i];
        std::printf("%s: %s\n", path.substr(path.rfind('/') + 1).c_str(),
                    transforms(path, *document) ? "transformed" : "refused");
    }
}
