// What the Qt adapters share at the boundary between Kestrel and Qt: text
// (both sides hold UTF-16 units, so it is copied as is) and colours (the
// forms' 0x00BBGGRR Longs).
#pragma once

#include <QColor>
#include <QString>
#include <cstdint>
#include <string_view>

#include "kestrel/runtime/encoding.hpp"

namespace kestrel::qt::detail {

inline QString ToQ(std::u16string_view s) {
  return QString(reinterpret_cast<const QChar*>(s.data()), qsizetype(s.size()));
}

// The tooltip records carry their texts in the ANSI code page.
inline QString FromAnsi(std::string_view bytes) {
  return ToQ(runtime::FromAnsi(bytes));
}

inline uint32_t ToBgr(const QColor& c) {
  return uint32_t(c.red()) | uint32_t(c.green()) << 8 | uint32_t(c.blue()) << 16;
}
inline QColor FromBgr(uint32_t v) {
  return QColor(v & 0xFF, (v >> 8) & 0xFF, (v >> 16) & 0xFF);
}

}  // namespace kestrel::qt::detail
