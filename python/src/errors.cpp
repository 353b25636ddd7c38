#include "python/src/errors.h"

#include <cerrno>
#include <new>
#include <string_view>
#include <system_error>

#include "python/src/module.h"

namespace kestrane::python {
namespace {

namespace py = pybind11;

py::object errors(const char* name) { return py::module_::import("kestrane.errors").attr(name); }

void set_error(const py::object& error) { PyErr_SetObject(py::type::of(error).ptr(), error.ptr()); }

// A path comes from Python as its bytes, whatever encoding they are in, and goes back as it came.
py::object text_of_path(const std::string& path) {
  return py::reinterpret_steal<py::object>(
      PyUnicode_DecodeFSDefaultAndSize(path.data(), static_cast<Py_ssize_t>(path.size())));
}

}  // namespace

void raise_status(_KESTRANE_STATUS status, const std::string& call, const std::string& detail) {
  set_error(errors("error_of")(static_cast<int>(status), call, detail));
  throw py::error_already_set();
}

void translate_file_error(const quality::FileError& error) {
  if (error.error_number() != 0) {
    set_error(errors("FileOpenError")(error.reason(), py::arg("path") = text_of_path(error.path()),
                                      py::arg("errno") = error.error_number()));
  } else {
    set_error(errors("DamagedFile")(text_of_path(error.path()), error.reason()));
  }
}

void add_errors(py::module_& /*module*/) {
  py::register_local_exception_translator([](std::exception_ptr thrown) {
    try {
      if (thrown) std::rethrow_exception(thrown);
    } catch (const quality::FileError& error) {
      translate_file_error(error);
    } catch (const py::cast_error&) {
      PyErr_SetString(PyExc_ValueError, "a setting or figure is not the number that it should be");
    } catch (const std::bad_alloc&) {
      set_error(errors("error_of")(static_cast<int>(KESTRANE_ERR_NO_MEMORY), ""));
    }
  });
}

}  // namespace kestrane::python
