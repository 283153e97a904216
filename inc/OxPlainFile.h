#pragma once

#include <cstddef>

namespace oxil {

/**
 * Asks the XML classes to take a path as the name of a file and as nothing else.
 *
 * libxml2 understands more than names: `http://...` sends a request, `-` is the standard input or
 * output, percent escapes are resolved, compressed files are expanded, and a catalog of the system
 * may lead elsewhere. The members that take a PlainFile do none of this. They read and write
 * regular files only (a pipe, which could block for ever, is refused at once; a device is opened to
 * see what it is) and none that the document refers to, and they read no more than they were
 * allowed to.
 */
struct PlainFile {
    /** What a file to be read may have, in bytes. Writing doesn't look at it. */
    std::size_t limit = 16 * 1024 * 1024;
};

/** A PlainFile as it is by default. */
constexpr PlainFile PLAIN_FILE{};

}  // namespace oxil
