// What a comparison with some code says of two values: written out, for tests to compare with.
#pragma once

namespace oocpctest {

/// The codes are those of the metadata comparisons: ==, >, >=, <, <=, !=.
template <typename T>
bool CompareByCode(int code, const T& left, const T& right) {
  switch (code) {
    case 0:
      return left == right;
    case 1:
      return left > right;
    case 2:
      return left >= right;
    case 3:
      return left < right;
    case 4:
      return left <= right;
    default:
      return left != right;
  }
}

}  // namespace oocpctest
