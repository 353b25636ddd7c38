// NumPy arrays on their way into the libraries and out of them.
//
// in    arrays as they are: type, shape and layout are checked by hand and nothing is converted, so
//       nothing is ever copied unasked; the Python sources of the package convert before
// out   arrays that own their memory, or lead to an object that does
//
// What does not fit is a ValueError that names the argument.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "kestrane/records.h"

namespace kestrane::python {

namespace py = pybind11;

inline constexpr py::ssize_t kLines = 15;        // of the blocks of a plane
inline constexpr py::ssize_t kCells = 50;        // of a line of blocks
inline constexpr py::ssize_t kCornerLines = 16;  // of the corners of a plane
inline constexpr py::ssize_t kCornerCells = 51;  // of a line of corners

inline constexpr std::size_t kBlocksOfPlane = kLines * kCells;
inline constexpr std::size_t kCornersOfPlane = kCornerLines * kCornerCells;

inline constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();
inline constexpr _LASER_TRIPLE kNoTriple = {{kNotANumber, kNotANumber, kNotANumber}};

inline constexpr py::ssize_t kAny = -1;  // a length that is not asked for
using Shape = std::vector<py::ssize_t>;

// The type of a point: x, y, z as 64-bit reals and id as a 32-bit integer, in 32 bytes.
py::dtype point_type();

// The type of the bounds of the blocks: the record of the library, field by field.
py::dtype grid_type();

// `value` as the array that it has to be: of this type, of this shape, in C order.
py::array checked(py::handle value, const std::string& name, const py::dtype& type,
                  const Shape& shape);

// The same for numbers.
template <class T>
py::array checked(py::handle value, const std::string& name, const Shape& shape) {
  return checked(value, name, py::dtype::of<T>(), shape);
}

template <class T>
const T* data_of(const py::array& array) {
  return static_cast<const T*>(array.data());
}

// A point array as the record that the libraries take: read only, and alive as long as `owner`.
struct Cloud {
  py::array owner;
  _KESTRANE_ID_POINT3DS record = {nullptr, 0};
};
Cloud cloud_of(py::handle value, const std::string& name);

// A sequence of point arrays. It holds them itself, so that a list that is changed by another
// thread does not matter.
class Clouds {
 public:
  Clouds(const py::sequence& values, const std::string& name);

  const std::vector<_KESTRANE_ID_POINT3DS>& records() const { return records_; }
  std::vector<std::vector<_KESTRANE_ID_POINT3D>> lists() const;  // copies

 private:
  std::vector<py::array> owners_;
  std::vector<_KESTRANE_ID_POINT3DS> records_;
};

// An array over the memory of `owner`, which it keeps alive.
template <class T, class Owner>
py::array array_over(std::shared_ptr<Owner> owner, T* data, Shape shape) {
  auto kept = std::make_unique<std::shared_ptr<Owner>>(std::move(owner));
  const py::capsule base(kept.get(),
                         [](void* memory) { delete static_cast<std::shared_ptr<Owner>*>(memory); });
  static_cast<void>(kept.release());  // the capsule's now
  return py::array_t<T>(std::move(shape), data, base);
}

// The values of a vector, not copied.
template <class T>
py::array owned(std::vector<T>&& values, Shape shape) {
  auto owner = std::make_shared<std::vector<T>>(std::move(values));
  if constexpr (std::is_same_v<T, _LASER_TRIPLE>) {
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-reinterpret-cast): a triple is three reals
    auto* const data = reinterpret_cast<double*>(owner->data());
    return array_over(std::move(owner), data, std::move(shape));
  } else {
    auto* const data = owner->data();
    return array_over(std::move(owner), data, std::move(shape));
  }
}

// A copy of `count` values.
template <class T>
py::array copied(const T* values, std::size_t count, Shape shape) {
  return owned(std::vector<T>(values, values + count), std::move(shape));
}

// The triples of an array, P x lines x cells x 3.
std::vector<_LASER_TRIPLE> triples_of(const py::array& array);

}  // namespace kestrane::python
