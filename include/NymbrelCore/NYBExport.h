// NYB_EXPORT marks what the shared library exports: the library is built with
// hidden visibility, so only the classes, functions and constants declared with
// it are part of its interface; the JSON and MessagePack code inside, and the
// library's own internals, stay private to it.
#pragma once

#define NYB_EXPORT __attribute__((visibility("default")))
