#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace fexo {

// A look at the layout of a binary property list ("bplist00") before libplist parses it, for
// what libplist gets wrong on hostile input. Internal to PropertyList.
//
// Nothing when the list is refused:
// - its object table does not fit its bytes (libplist refuses it as well), or an object lies
//   anywhere but between the header and the offset table;
// - a dictionary key holds U+0000 (libplist cuts such a key at the NUL, or, for a key in
//   UTF-16, ends the process on a failed assertion);
// - an object is its own descendant, or lies deeper than `maximumDepth` containers below the
//   top (libplist takes time quadratic in the depth, and stack in proportion to it);
// - the tree, with every shared object copied out as libplist does, would hold more nodes than
//   the list has bytes. A list without shared containers never does (each node takes at least
//   one byte of the offset table), while a few hundred bytes of containers that share each
//   other can expand into gigabytes.
//
// Otherwise the bytes for libplist: the input itself, or, when a string value in the one-byte
// form holds a NUL (which libplist would cut there), a copy in which each such string is
// written anew in UTF-16 (which libplist reads whole) and its offset pointed at the new copy.
// Any thread; nothing is kept between calls.
std::optional<std::string> checkBinaryPropertyList(std::string_view bytes, std::size_t maximumDepth);

} // namespace fexo
