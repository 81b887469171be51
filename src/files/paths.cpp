#include "kestrel/files/paths.hpp"

#include <string>
#include <string_view>
#include <vector>

namespace kestrel::files {
namespace {

constexpr char16_t kSeparator = u'/';

bool StartsWithSeparator(std::u16string_view path) {
  return !path.empty() && path.front() == kSeparator;
}

bool EndsWithSeparator(std::u16string_view path) {
  return !path.empty() && path.back() == kSeparator;
}

// The non-empty components between separators, in order.
std::vector<std::u16string_view> Components(std::u16string_view path) {
  std::vector<std::u16string_view> parts;
  size_t i = 0;
  while (i < path.size()) {
    if (path[i] == kSeparator) {
      ++i;
      continue;
    }
    size_t end = path.find(kSeparator, i);
    if (end == std::u16string_view::npos) end = path.size();
    parts.push_back(path.substr(i, end - i));
    i = end;
  }
  return parts;
}

// The path without its trailing separators ("/" and "//" become "").
std::u16string_view TrimTrailingSeparators(std::u16string_view path) {
  size_t end = path.find_last_not_of(kSeparator);
  return end == std::u16string_view::npos ? std::u16string_view() : path.substr(0, end + 1);
}

std::u16string_view LastComponentView(std::u16string_view path) {
  std::u16string_view trimmed = TrimTrailingSeparators(path);
  size_t slash = trimmed.rfind(kSeparator);
  return slash == std::u16string_view::npos ? trimmed : trimmed.substr(slash + 1);
}

}  // namespace

std::u16string BuildPath(std::u16string_view folder, std::u16string_view name) {
  std::u16string joined(folder);
  if (folder.empty() || name.empty()) return joined.append(name);
  bool folder_has = EndsWithSeparator(folder);
  bool name_has = StartsWithSeparator(name);
  if (folder_has && name_has) {
    name.remove_prefix(1);
  } else if (!folder_has && !name_has) {
    joined.push_back(kSeparator);
  }
  return joined.append(name);
}

std::u16string CanonicalizePath(std::u16string_view path) {
  std::vector<std::u16string_view> kept;
  std::u16string_view last;
  for (std::u16string_view part : Components(path)) {
    last = part;
    if (part == u".") continue;
    if (part == u"..") {
      // Above the root, or before the start of a relative path, there is
      // nothing to remove: the step is dropped.
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    kept.push_back(part);
  }
  std::u16string result;
  if (StartsWithSeparator(path)) result.push_back(kSeparator);
  for (size_t i = 0; i < kept.size(); ++i) {
    if (i > 0) result.push_back(kSeparator);
    result.append(kept[i]);
  }
  bool dotted = last == u"." || last == u"..";
  if (!kept.empty() && EndsWithSeparator(path) && !dotted) result.push_back(kSeparator);
  if (result.empty()) result.push_back(kSeparator);
  return result;
}

std::u16string RelativePathTo(std::u16string_view folder, std::u16string_view file) {
  bool absolute = StartsWithSeparator(folder);
  if (absolute != StartsWithSeparator(file)) return {};
  std::vector<std::u16string_view> from = Components(folder);
  std::vector<std::u16string_view> to = Components(file);
  size_t common = 0;
  while (common < from.size() && common < to.size() && from[common] == to[common]) ++common;
  // Two absolute paths always share the root; relative ones need a first
  // component in common to be related at all.
  if (!absolute && common == 0) return {};

  std::u16string result;
  if (common == from.size()) result.append(u"./");
  for (size_t i = common; i < from.size(); ++i) result.append(u"../");
  for (size_t i = common; i < to.size(); ++i) {
    if (i > common) result.push_back(kSeparator);
    result.append(to[i]);
  }
  return result;
}

std::u16string ParentFolderName(std::u16string_view path) {
  std::u16string_view trimmed = TrimTrailingSeparators(path);
  size_t slash = trimmed.rfind(kSeparator);
  if (slash == std::u16string_view::npos) return {};
  std::u16string_view parent = TrimTrailingSeparators(trimmed.substr(0, slash));
  // Only separators before the last component: its parent is the root.
  if (parent.empty()) return std::u16string(1, kSeparator);
  return std::u16string(parent);
}

std::u16string LastComponent(std::u16string_view path) {
  return std::u16string(LastComponentView(path));
}

std::u16string BaseName(std::u16string_view path) {
  std::u16string_view name = LastComponentView(path);
  size_t dot = name.rfind(u'.');
  return std::u16string(dot == std::u16string_view::npos ? name : name.substr(0, dot));
}

std::u16string ExtensionName(std::u16string_view path) {
  std::u16string_view name = LastComponentView(path);
  size_t dot = name.rfind(u'.');
  return dot == std::u16string_view::npos ? std::u16string() : std::u16string(name.substr(dot + 1));
}

bool IsPathRelative(std::u16string_view path) noexcept {
  return !StartsWithSeparator(path);
}

}  // namespace kestrel::files
