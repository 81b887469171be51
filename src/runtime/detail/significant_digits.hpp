// A finite float written to a number of significant decimal digits: the
// step behind the text form of numbers, Round and Format, so that all three
// see the same decimal (2.675 is 2.675 to each of them, though the Double
// lies just below it).
#pragma once

#include <charconv>

namespace kestrel::runtime::detail {

// The significant digits of a finite, non-zero number rounded to
// `precision` digits (at most 17), without trailing zeros (one digit at
// least), and the decimal exponent of the first: digits[i] stands for
// 10^(exponent - i).
struct Digits {
  char digits[24];
  int count = 0;
  int exponent = 0;
  bool negative = false;
};

template <class Float>
Digits RoundToDigits(Float value, int precision) {
  // "-d.ddddde+ddd": the library rounds the exact binary value correctly.
  char buffer[48];
  auto result = std::to_chars(buffer, buffer + sizeof(buffer), value, std::chars_format::scientific,
                              precision - 1);
  Digits d;
  const char* p = buffer;
  if (*p == '-') {
    d.negative = true;
    ++p;
  }
  for (; p < result.ptr && *p != 'e'; ++p) {
    if (*p != '.') d.digits[d.count++] = *p;
  }
  ++p;  // 'e'
  const bool negative_exponent = *p == '-';
  ++p;
  int exponent = 0;
  for (; p < result.ptr; ++p) exponent = exponent * 10 + (*p - '0');
  d.exponent = negative_exponent ? -exponent : exponent;
  while (d.count > 1 && d.digits[d.count - 1] == '0') --d.count;
  return d;
}

}  // namespace kestrel::runtime::detail
