#pragma once

/** Marks what leaves the shared object; everything else is built with hidden visibility. */
#define OXIL_API __attribute__((visibility("default")))

/** Marks a private member of a class with OXIL_API that only the library itself calls. */
#define OXIL_LOCAL __attribute__((visibility("hidden")))
