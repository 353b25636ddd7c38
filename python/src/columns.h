// Lists of records as columns: one array for each field.
//
// A list of fields is written once for each record, as a function `fields(record, visit)` that
// calls `visit(name, value)` for each field; it serves both ways, so what goes out as arrays comes
// back as the same records.
//
//   out   pack(records, shape, fields)     a dict from names to arrays of that shape
//   in    unpack<Record>(source, fields)   the records of an object with such attributes
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "python/src/arrays.h"

namespace kestrane::python {

// How a field's values are held in an array: enumerations by their numbers.
template <class T, bool = std::is_enum_v<T>>
struct Held {
  using type = T;
};
template <class T>
struct Held<T, true> {
  using type = std::underlying_type_t<T>;
};

template <class Record, class Fields>
py::dict pack(const std::vector<Record>& records, const Shape& shape, const Fields& fields) {
  py::dict columns;
  std::vector<void*> data;
  Record blank{};
  fields(blank, [&](const char* name, auto& value) {
    using T = typename Held<std::decay_t<decltype(value)>>::type;
    py::array_t<T> column(shape);
    data.push_back(column.mutable_data());
    columns[name] = column;
  });
  for (std::size_t row = 0; row < records.size(); ++row) {
    std::size_t column = 0;
    // The fields are only read, by a function that serves writing as well.
    fields(const_cast<Record&>(records[row]), [&](const char*, auto& value) {  // NOLINT
      using T = typename Held<std::decay_t<decltype(value)>>::type;
      static_cast<T*>(data[column++])[row] = static_cast<T>(value);
    });
  }
  return columns;
}

// A list of records without a shape of its own: one after the other.
template <class Record, class Fields>
py::dict pack(const std::vector<Record>& records, const Fields& fields) {
  return pack(records, Shape{static_cast<py::ssize_t>(records.size())}, fields);
}

// `shape` as the columns must have it; kAny for the first length takes that of the first column.
template <class Record, class Fields>
std::vector<Record> unpack(const py::handle& source, Shape shape, const Fields& fields) {
  std::vector<py::array> columns;
  Record blank{};
  fields(blank, [&](const char* name, auto& value) {
    using T = typename Held<std::decay_t<decltype(value)>>::type;
    columns.push_back(checked<T>(source.attr(name), name, shape));
    if (shape[0] == kAny) shape[0] = columns.back().shape(0);
  });
  std::vector<Record> records(static_cast<std::size_t>(columns.front().size()));
  for (std::size_t row = 0; row < records.size(); ++row) {
    std::size_t column = 0;
    fields(records[row], [&](const char*, auto& value) {
      using Value = std::decay_t<decltype(value)>;
      using T = typename Held<Value>::type;
      value = static_cast<Value>(data_of<T>(columns[column++])[row]);
    });
  }
  return records;
}

template <class Record, class Fields>
std::vector<Record> unpack(const py::handle& source, const Fields& fields) {
  return unpack<Record>(source, Shape{kAny}, fields);
}

// The fields of a single record, as numbers.
template <class Record, class Fields>
py::dict pack_one(const Record& record, const Fields& fields) {
  py::dict values;
  fields(const_cast<Record&>(record), [&](const char* name, auto& value) {  // NOLINT: only read
    values[name] = static_cast<typename Held<std::decay_t<decltype(value)>>::type>(value);
  });
  return values;
}

template <class Record, class Fields>
Record unpack_one(const py::handle& source, const Fields& fields) {
  Record record{};
  fields(record, [&](const char* name, auto& value) {
    using Value = std::decay_t<decltype(value)>;
    value = static_cast<Value>(source.attr(name).template cast<typename Held<Value>::type>());
  });
  return record;
}

}  // namespace kestrane::python
