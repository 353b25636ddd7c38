// Packing and unpacking of bytes, for clouds that are stored packed.
#include <lzf.h>

#include <climits>
#include <cstddef>
#include <stdexcept>
#include <string>

#include "python/src/module.h"

namespace kestrane::python {
namespace {

namespace py = pybind11;

unsigned size_of(std::size_t bytes) {
  if (bytes > UINT_MAX) throw std::invalid_argument("more bytes than 32 bits count");
  return static_cast<unsigned>(bytes);
}

py::bytes decompress(const py::bytes& data, std::size_t size) {
  const std::string_view packed = data;
  const unsigned length = size_of(packed.size());
  const unsigned wanted = size_of(size);
  // A literal run of n bytes takes n + 1, a repeat makes at most 264 bytes of 3.
  if (size > packed.size() * 88) throw std::invalid_argument("packed bytes are too few");
  py::bytes plain(nullptr, size);
  char* const out = PYBIND11_BYTES_AS_STRING(plain.ptr());
  unsigned written = 0;
  {
    const py::gil_scoped_release unlocked;
    if (wanted > 0) written = lzf_decompress(packed.data(), length, out, wanted);
  }
  if (written != wanted || (wanted == 0 && length > 0)) {
    throw std::invalid_argument(
        "packed bytes are damaged, or do not give the size that they should");
  }
  return plain;
}

py::bytes compress(const py::bytes& data) {
  const std::string_view plain = data;
  const unsigned length = size_of(plain.size());
  if (length < 2) return {};
  std::string packed(plain.size() - 1, '\0');
  unsigned written = 0;
  {
    const py::gil_scoped_release unlocked;
    written = lzf_compress(plain.data(), length, packed.data(), length - 1);
  }
  return {packed.data(), written};
}

}  // namespace

void add_lzf(py::module_& module) {
  module.def("lzf_decompress", &decompress, py::arg("data"), py::arg("size"),
             "The plain bytes of packed ones; ValueError unless there are exactly `size`.");
  module.def("lzf_compress", &compress, py::arg("data"),
             "The packed bytes; empty where packing does not make them fewer.");
}

}  // namespace kestrane::python
