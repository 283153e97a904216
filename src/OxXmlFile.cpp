#include "OxXmlFile.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>

namespace oxil::internal {
namespace {

/** An open file, closed at the end of the scope. */
class Descriptor {
public:
    explicit Descriptor(int number) : __number(number) {}
    ~Descriptor() { close(__number); }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return __number; }

private:
    int __number;
};

bool isUnreserved(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '.' || c == '_' || c == '~';
}

}  // namespace

int readPlainFile(const std::string& path, const PlainFile& file, FileContent& content)
{
    // Without O_NONBLOCK the opening of a pipe would wait for somebody who writes.
    const int number = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (number == -1) {
        // So says a 32-bit system of a file that it has no size for.
        return errno == EOVERFLOW ? EFBIG : errno;
    }
    const Descriptor descriptor(number);
    struct stat status;
    if (fstat(descriptor.get(), &status) != 0) {
        return errno;
    }
    if (!S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    const auto size = static_cast<unsigned long long>(status.st_size);
    if (size > std::min<unsigned long long>(file.limit, INT_MAX)) {  // the parser counts in int
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

xmlDocPtr parsePlainFile(const std::string& path, const PlainFile& file, int& error)
{
    FileContent content;
    error = readPlainFile(path, file, content);
    if (error != 0) {
        return nullptr;
    }
    const std::unique_ptr<xmlParserCtxt, void (*)(xmlParserCtxtPtr)> context(xmlNewParserCtxt(),
                                                                             xmlFreeParserCtxt);
    if (context == nullptr) {
        error = ENOMEM;
        return nullptr;
    }
#if LIBXML_VERSION < 21300
    context->options = 0;  // later versions drop those of the whole process themselves
#endif
    xmlDocPtr document =
        xmlCtxtReadMemory(context.get(), content.bytes.get(), static_cast<int>(content.size),
                          toUri(path).c_str(), nullptr, XML_PARSE_NONET);
    const xmlError* last = xmlCtxtGetLastError(context.get());
    if (last != nullptr && last->code == XML_ERR_NO_MEMORY) {
        error = ENOMEM;
        xmlFreeDoc(document);  // nobody knows what it lacks
        return nullptr;
    }
    return document;
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
