// Independent pieces of work on several threads, and the caller told of each in order.
#pragma once

#include <cstddef>
#include <functional>

namespace kestrane::quality {

// Runs work(n, worker) for each n of 0 to count - 1 once, on at most `threads` threads, and done(n)
// for each on the calling thread, in the order of n, as soon as all up to n are done. `worker` is
// the number of the thread, 0 to threads - 1: no two run at once with the same one.
//
// With one thread all runs on the calling one, which otherwise waits. Where threads cannot be had,
// fewer do the same work. The first exception, of either function, is thrown again when all threads
// have ended; what had not begun by then is left out.
void side_by_side(std::size_t count, std::size_t threads,
                  const std::function<void(std::size_t n, std::size_t worker)>& work,
                  const std::function<void(std::size_t n)>& done);

}  // namespace kestrane::quality
