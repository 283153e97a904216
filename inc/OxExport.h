#pragma once

/** Marks what leaves the shared object; everything else is built with hidden visibility. */
#define OXIL_API __attribute__((visibility("default")))
