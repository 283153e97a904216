#pragma once

/** Marks what leaves the shared object; everything else is built with hidden visibility. */
#define OXIL_API __attribute__((visibility("default")))

/** Marks a member of such a class, private or not, that only the library itself calls. */
#define OXIL_LOCAL __attribute__((visibility("hidden")))
