#pragma once

#include <libxml/tree.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

#include "OxPlainFile.h"

namespace oxil::internal {

/** What is left of a limit of bytes: the parser counts in int. */
inline std::size_t mostBytes(std::size_t limit)
{
    return std::min<std::size_t>(limit, INT_MAX);
}

/** What stood in a file. */
struct FileContent {
    std::unique_ptr<char[]> bytes;
    std::size_t size = 0;
};

/**
 * Reads a regular file of at most `file.limit` bytes, without ever waiting for another process.
 *
 * @return 0, or what `errno` has names for: besides the errors of open() and read(), EISDIR for a
 *         folder, EINVAL for whatever else is no regular file, EFBIG for one that is too large,
 *         ENOMEM
 */
int readPlainFile(const std::string& path, const PlainFile& file, FileContent& content);

/**
 * Makes a regular file, or empties the one there is, for writing.
 *
 * @param error  set after a failure, as readPlainFile() would return it
 * @return null after a failure
 */
std::FILE* createPlainFile(const std::string& path, int& error);

/** What becomes of the entities that a document declares. */
enum class Entities {
    Kept,      ///< the tree has references to them
    Replaced,  ///< and CDATA sections too, by text; those of other files are not known
    Unknown    ///< a reference to one is an error, as for the event parser
};

/**
 * Parses a document into a tree. What it refers to is not read, whatever the engine's settings for
 * the whole process are.
 *
 * @param text  of no more than `INT_MAX` bytes: see mostBytes()
 * @param uri  the document's name; null for none
 * @param error  set to ENOMEM, or to 0 for a document that is not well-formed
 * @return null after an error
 */
xmlDocPtr parseText(std::string_view text, const char* uri, Entities entities, int& error);

/**
 * The same for a regular file, and the document has the name that toUri() makes of the path.
 *
 * @param error  set to what readPlainFile() says as well
 */
xmlDocPtr parsePlainFile(const std::string& path, const PlainFile& file, Entities entities,
                         int& error);

/** A path as a URI that nobody takes for anything but this path: relative ones begin with "./". */
std::string toUri(const std::string& path);

}  // namespace oxil::internal
