#pragma once

#include <libxml/parser.h>

namespace oxil::test {

/**
 * Has the process set to read all that documents refer to while it lives, and counts what libxml2
 * opens for it. At most one lives at a time.
 */
class OpenedReferences {
public:
// Later versions deprecate settings of the whole process, and go by them all the same.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    OpenedReferences() : __substitute(xmlSubstituteEntitiesDefault(1))
    {
        xmlLoadExtDtdDefaultValue = 1;
        __count = 0;
        xmlSetExternalEntityLoader(__open);
    }

    ~OpenedReferences()
    {
        xmlSetExternalEntityLoader(__loader);
        xmlSubstituteEntitiesDefault(__substitute);
        xmlLoadExtDtdDefaultValue = __subset;
    }
#pragma GCC diagnostic pop

    OpenedReferences(const OpenedReferences&) = delete;
    OpenedReferences& operator=(const OpenedReferences&) = delete;

    int getCount() const
    {
        return __count;
    }

private:
    static xmlParserInputPtr __open(const char*, const char*, xmlParserCtxtPtr)
    {
        ++__count;
        return nullptr;
    }

    static inline int __count = 0;
    const int __substitute;
    const int __subset = xmlLoadExtDtdDefaultValue;
    const xmlExternalEntityLoader __loader = xmlGetExternalEntityLoader();
};

}  // namespace oxil::test
