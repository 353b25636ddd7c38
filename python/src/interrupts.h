// What happens between planes: the caller hears of a finished plane, and Ctrl-C is served.
#pragma once

#include <pybind11/pybind11.h>

#include <functional>

#include "kestrane/records.h"

namespace kestrane::python {

// Raises what a signal's handler has raised. Takes the lock.
inline void serve_interrupts() {
  const pybind11::gil_scoped_acquire locked;
  if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
}

// Calls `on_plane` with plane and status, unless it is None. What it raises ends the work.
inline std::function<void(std::int32_t, _KESTRANE_STATUS)> reporter(
    const pybind11::object& on_plane) {
  return [&on_plane](std::int32_t plane, _KESTRANE_STATUS status) {
    const pybind11::gil_scoped_acquire locked;
    if (PyErr_CheckSignals() != 0) throw pybind11::error_already_set();
    if (!on_plane.is_none()) on_plane(plane, static_cast<int>(status));
  };
}

}  // namespace kestrane::python
