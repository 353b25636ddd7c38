// How much stack a job needs: it runs in a thread of its own whose stack was painted beforehand.
#pragma once

#include <cstddef>
#include <functional>

namespace painted_stack {

// What is told of a job that needs less.
constexpr std::size_t kLeast = 1024;

// Bytes of its stack, `size` of them and a multiple of the page size, that a thread needs for
// `work`; what the thread itself takes (its control block, the process's thread-local data) lies
// above and is not counted. An access beyond the stack ends the process.
std::size_t used_by(std::size_t size, const std::function<void()>& work);

}  // namespace painted_stack
