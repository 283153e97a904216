#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>

#include "OxPlainFile.h"

namespace oxil::internal {

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

/**
 * Parses such a file into a tree. What it refers to is not read, whatever the engine's settings for
 * the whole process are.
 *
 * The document has the name that toUri() makes of the path.
 *
 * @param options  of libxml2's; with XML_PARSE_NOENT, entities of other files are not known at all
 * @param error  set to what readPlainFile() says, to ENOMEM, or to 0 for a document that is not
 *               well-formed
 * @return null after an error
 */
xmlDocPtr parsePlainFile(const std::string& path, const PlainFile& file, int options, int& error);

/** A path as a URI that nobody takes for anything but this path: relative ones begin with "./". */
std::string toUri(const std::string& path);

}  // namespace oxil::internal
