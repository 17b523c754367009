#pragma once

#include <cstddef>
#include <functional>
#include <string_view>

namespace fexo {

// The stack that reading a property list takes. libplist reads and frees nested containers
// recursively, about a hundred bytes of stack per level, and a level can take as little as a
// few bytes of input, so a hostile list could exhaust any caller's stack. Internal to
// PropertyList.

// 0 when the containers of `bytes` cannot nest deeper than a few dozen levels (a few kilobytes
// of the caller's stack); else a stack size, sized from the input, on which libplist can read
// `bytes` at any nesting. `binary`: `bytes` is a binary list that checkBinaryPropertyList passed,
// whose trailer bounds its nesting. Any thread.
std::size_t propertyListStackSize(std::string_view bytes, bool binary);

// Runs `work` on a thread of its own whose stack is `stackSize` bytes (reserved address space,
// of which only what the work uses is ever touched), and returns once that thread has ended.
// What `work` throws is rethrown here; throws std::bad_alloc when no such thread can be started.
// Any thread.
void runOnThreadWithStack(std::size_t stackSize, const std::function<void()>& work);

} // namespace fexo
