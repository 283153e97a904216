#include "internal/OxXmlFile.h"

#include <fcntl.h>
#include <libxml/SAX2.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <new>
#include <utility>

#include "internal/OxXmlEngine.h"

namespace oxil::internal {
namespace {

/** An open regular file, closed at the end of the scope. */
class Descriptor {
public:
    Descriptor(const std::string& path, int flags);

    ~Descriptor()
    {
        if (__number != -1) {
            close(__number);
        }
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /** 0 if the file is open. */
    int getError() const { return __error; }

    int get() const { return __number; }

    /** The file is the caller's to close from here on. */
    int release() { return std::exchange(__number, -1); }

    const struct stat& getStatus() const { return __status; }

private:
    int __number;
    int __error = 0;
    struct stat __status {};
};

Descriptor::Descriptor(const std::string& path, int flags)
    // Without O_NONBLOCK the opening of a pipe would wait for its other end.
    : __number(open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666))
{
    if (__number == -1 || fstat(__number, &__status) != 0) {
        // So says a 32-bit system of a file that it has no size for.
        __error = errno == EOVERFLOW ? EFBIG : errno;
    } else if (!S_ISREG(__status.st_mode)) {
        __error = S_ISDIR(__status.st_mode) ? EISDIR : EINVAL;
    }
}

bool isUnreserved(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

/** Declares an entity, unless its text stands elsewhere: to substitute it would be to read that. */
void declareEntity(void* context, const xmlChar* name, int type, const xmlChar* publicId,
                   const xmlChar* systemId, xmlChar* content)
{
    if (type != XML_EXTERNAL_GENERAL_PARSED_ENTITY && type != XML_EXTERNAL_PARAMETER_ENTITY) {
        xmlSAX2EntityDecl(context, name, type, publicId, systemId, content);
    }
}

}  // namespace

int readPlainFile(const std::string& path, const PlainFile& file, FileContent& content)
{
    const Descriptor descriptor(path, O_RDONLY);
    if (descriptor.getError() != 0) {
        return descriptor.getError();
    }
    const auto size = static_cast<unsigned long long>(descriptor.getStatus().st_size);
    if (size > mostBytes(file.limit)) {
        return EFBIG;
    }
    content.size = 0;
    content.bytes.reset(new (std::nothrow) char[static_cast<std::size_t>(size)]);
    if (content.bytes == nullptr) {
        return ENOMEM;
    }
    // What is added meanwhile is not read, and what is cut off is not there.
    while (content.size < size) {
        const ssize_t count = read(descriptor.get(), content.bytes.get() + content.size,
                                   static_cast<std::size_t>(size) - content.size);
        if (count == 0) {
            break;
        }
        if (count > 0) {
            content.size += static_cast<std::size_t>(count);
        } else if (errno != EINTR) {
            return errno;
        }
    }
    return 0;
}

std::FILE* createPlainFile(const std::string& path, int& error)
{
    Descriptor descriptor(path, O_WRONLY | O_CREAT);
    error = descriptor.getError();
    if (error != 0) {
        return nullptr;
    }
    // Not emptied by open(): what is no regular file is left alone.
    std::FILE* file = ftruncate(descriptor.get(), 0) == 0 ? fdopen(descriptor.get(), "w") : nullptr;
    if (file == nullptr) {
        error = errno;
        return nullptr;
    }
    descriptor.release();  // it is the stream's now
    return file;
}

xmlDocPtr parseText(std::string_view text, const char* uri, Entities entities, int& error)
{
    const EngineUse use;
    MemoryWatch watch;
    const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> context(xmlNewParserCtxt(),
                                                                             xmlFreeParserCtxt);
    if (context == nullptr) {
        error = ENOMEM;
        return nullptr;
    }
#if LIBXML_VERSION < 21300
    context->options = 0;  // later versions drop those of the whole process themselves
#endif
    int options = XML_PARSE_NONET;
    if (entities == Entities::Replaced) {
        options |= XML_PARSE_NOENT | XML_PARSE_NOCDATA;
        context->sax->entityDecl = declareEntity;
    } else if (entities == Entities::Unknown) {
        context->sax->entityDecl = nullptr;
        context->sax->unparsedEntityDecl = nullptr;
    }
    error = 0;
    xmlDocPtr document = xmlCtxtReadMemory(context.get(), text.data(),
                                           static_cast<int>(text.size()), uri, nullptr, options);
    if (watch.hasRunOut()) {
        error = ENOMEM;
        xmlFreeDoc(document);  // nobody knows what it lacks
        return nullptr;
    }
    return document;
}

xmlDocPtr parsePlainFile(const std::string& path, const PlainFile& file, Entities entities,
                         int& error)
{
    FileContent content;
    error = readPlainFile(path, file, content);
    if (error != 0) {
        return nullptr;
    }
    return parseText({content.bytes.get(), content.size}, toUri(path).c_str(), entities, error);
}

std::string toUri(const std::string& path)
{
    static const char DIGITS[] = "0123456789ABCDEF";
    std::string uri = path.empty() || path[0] != '/' ? "./" : "";
    for (const char c : path) {
        if (c == '/' || isUnreserved(c)) {
            uri += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            uri += {'%', DIGITS[byte >> 4], DIGITS[byte & 15]};
        }
    }
    return uri;
}

}  // namespace oxil::internal
