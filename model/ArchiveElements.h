// Archiving the elements of one large array apart from the rest of an archive,
// for a holder whose elements never change once added (the upload queue): it
// encodes each element once, keeps the bytes, and joins them at every save;
// and at load it checks the elements without building them, so that each is
// decoded only when it is first needed.
//
// The bytes are exactly those the archiver writes for the element in place (an
// element of an array stored under a key of the root object), so an archive
// written this way is the same archive, and reads back through
// NYBKeyedUnarchiver as well. Any thread; nothing here keeps state.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "NymbrelCore/NYBData.h"
#include "NymbrelCore/NYBDynamicValue.h"
#include "NymbrelCore/NYBKeyedArchiver.h"
#include "NymbrelCore/NYBObject.h"

namespace nyb::archive {

// The bytes of a value as an element of an array held by the root object.
// Raises NYBInvalidArgumentException for what cannot be archived.
NYBData encodedElement(const NYBDynamicValue& value);

// Stores under a key, through the archiver of the object being encoded, an
// array of elements given as encodedElement() made them. Meant for the root
// object's own encodeWithCoder().
void encodeEncodedArray(NYBKeyedArchiver& coder, std::string_view key,
                        const std::vector<std::string_view>& elements);

// An archive whose root object's array under one key was left encoded.
struct DeferredArchive {
  NYBDynamicValue root;                    // built without that key's entry when it was deferred
  bool deferred = false;                   // the key held an array, and it is in `elements`
  std::vector<std::string_view> elements;  // views into the archive's bytes
  // The class of each element that is an object, else null.
  std::vector<const NYBClass*> classes;
};

// Reads an archive as NYBKeyedUnarchiver::unarchiveObjectWithData() does,
// except that the array stored under `key` in the root object is checked to
// its last byte (lengths, kinds, nesting, registered classes) but not built.
// Damage raises as there.
DeferredArchive unarchiveDeferring(const NYBData& data, std::string_view key);

// Builds one element that unarchiveDeferring() left encoded. Damage the check
// could not see (an object its class refuses to make) raises as there.
NYBDynamicValue decodeElement(std::string_view bytes);

}  // namespace nyb::archive
