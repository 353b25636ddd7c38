// Engines that are used again.
//
// An engine of the library leaves the block of its store behind for the life of the process, so a
// process keeps as many as ever worked at once and no more. What an engine was used for before
// stays in it: a caller reads from it only what the call has just written.
#pragma once

#include <memory>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "kestrane/records.h"

namespace kestrane::python {

template <class Engine>
class Pool {
 public:
  // One engine, for as long as this lives.
  class Lease {
   public:
    Lease(Pool& pool, std::unique_ptr<Engine> engine) : pool_(&pool), engine_(std::move(engine)) {}
    ~Lease() {
      if (engine_) pool_->put_back(std::move(engine_));
    }
    Lease(Lease&&) noexcept = default;
    Lease& operator=(Lease&&) = delete;

    Engine& operator*() const { return *engine_; }
    Engine* operator->() const { return engine_.get(); }

   private:
    Pool* pool_;
    std::unique_ptr<Engine> engine_;
  };

  // Throws std::bad_alloc where a new engine gets no memory.
  Lease take() {
    {
      const std::lock_guard<std::mutex> guard(lock_);
      if (!free_.empty()) {
        std::unique_ptr<Engine> engine = std::move(free_.back());
        free_.pop_back();
        return Lease(*this, std::move(engine));
      }
    }
    auto engine = std::make_unique<Engine>();
    if (engine->init() != KESTRANE_OK) throw std::bad_alloc();
    return Lease(*this, std::move(engine));
  }

 private:
  void put_back(std::unique_ptr<Engine> engine) noexcept {
    const std::lock_guard<std::mutex> guard(lock_);
    try {
      free_.push_back(std::move(engine));
    } catch (const std::bad_alloc&) {
      // It goes; only its store stays behind.
    }
  }

  std::mutex lock_;
  std::vector<std::unique_ptr<Engine>> free_;
};

// The pool of this kind of engine. It lives as long as the process: threads may still work when the
// interpreter ends.
template <class Engine>
Pool<Engine>& pool_of() {
  // NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): it guards itself
  static auto* const pool = new Pool<Engine>;
  return *pool;
}

}  // namespace kestrane::python
