// How much stack a job needs: it runs in a thread of its own whose stack was painted beforehand.
#pragma once

#include <cstddef>
#include <functional>

namespace painted_stack {

// Bytes of a stack of `size` bytes, a multiple of the page size, that a thread writes to while it
// runs `job`: what the thread itself takes (its control block, the process's thread-local data) and
// the job's own part. An access beyond the stack ends the process.
std::size_t used_by_thread(std::size_t size, const std::function<void()>& job);

// The job's own part alone.
std::size_t used_by(std::size_t size, const std::function<void()>& job);

}  // namespace painted_stack
