#include "kestrel/files/profile.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

#include "kestrel/files/atomic_write.hpp"
#include "profile_document.hpp"

namespace kestrel::files {
namespace {

using detail::LineEnd;
using detail::LineKind;
using detail::ProfileDocument;
using detail::ProfileIndex;
using detail::ProfileLine;

// ---------------------------------------------------------------------------
// Loading, with parsed copies that are only trusted while the file is
// provably the one they were made from.

struct ParsedProfile {
  explicit ParsedProfile(ProfileDocument parsed) : document(std::move(parsed)), index(document) {}
  ProfileDocument document;
  ProfileIndex index;  // refers to `document`: neither moves after construction
};

struct FileStamp {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  timespec modified{};
  timespec changed{};

  static FileStamp Of(const struct stat& st) {
    return {st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
  }
  friend bool operator==(const FileStamp& a, const FileStamp& b) {
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec &&
           a.changed.tv_sec == b.changed.tv_sec && a.changed.tv_nsec == b.changed.tv_nsec;
  }
};

bool Before(const timespec& a, const timespec& b) {
  return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// A few recently read files. Small on purpose: a process works with a
// handful of settings files, and a miss costs only one parse.
class ParsedCopies {
 public:
  std::shared_ptr<const ParsedProfile> Find(const std::string& path, const FileStamp& stamp) {
    std::lock_guard lock(mutex_);
    for (Entry& entry : entries_) {
      if (entry.path == path && entry.stamp == stamp) {
        entry.last_use = ++clock_;
        return entry.parsed;
      }
    }
    return nullptr;
  }

  void Keep(const std::string& path, const FileStamp& stamp,
            std::shared_ptr<const ParsedProfile> parsed) {
    std::lock_guard lock(mutex_);
    auto slot = std::find_if(entries_.begin(), entries_.end(),
                             [&](const Entry& e) { return e.path == path; });
    if (slot == entries_.end()) {
      if (entries_.size() < kCapacity) {
        slot = entries_.insert(entries_.end(), Entry{});
      } else {
        slot = std::min_element(
            entries_.begin(), entries_.end(),
            [](const Entry& a, const Entry& b) { return a.last_use < b.last_use; });
      }
    }
    *slot = Entry{path, stamp, std::move(parsed), ++clock_};
  }

  std::atomic<bool> enabled{true};

 private:
  static constexpr size_t kCapacity = 16;
  struct Entry {
    std::string path;
    FileStamp stamp;
    std::shared_ptr<const ParsedProfile> parsed;
    uint64_t last_use = 0;
  };
  std::mutex mutex_;
  std::vector<Entry> entries_;
  uint64_t clock_ = 0;
};

ParsedCopies& Copies() {
  static ParsedCopies copies;
  return copies;
}

const std::shared_ptr<const ParsedProfile>& EmptyProfile() {
  static const auto empty = std::make_shared<const ParsedProfile>(ProfileDocument{});
  return empty;
}

// Reads the whole file from an open descriptor; false on a read error.
bool ReadAll(int fd, off_t size_hint, std::string& bytes) {
  bytes.clear();
  bytes.reserve(size_t(std::max<off_t>(size_hint, 0)) + 1);
  char chunk[65536];
  for (;;) {
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return false;
    if (n == 0) return true;
    bytes.append(chunk, size_t(n));
  }
}

// The file as it is now; nullptr when it exists but cannot be read.
std::shared_ptr<const ParsedProfile> TryLoad(const std::string& path) {
  ParsedCopies& copies = Copies();
  const bool use_copies = copies.enabled.load(std::memory_order_relaxed);
  struct stat st;
  if (path.empty() || ::stat(path.c_str(), &st) != 0) return EmptyProfile();
  if (!S_ISREG(st.st_mode)) return nullptr;
  if (use_copies) {
    if (auto parsed = copies.Find(path, FileStamp::Of(st))) return parsed;
  }

  // The clock is read before the file: any change made from now on gets a
  // modification time at or after `now`.
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
  int fd;
  do {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return errno == ENOENT ? EmptyProfile() : nullptr;
  struct stat before;
  std::string bytes;
  bool ok = ::fstat(fd, &before) == 0 && ReadAll(fd, before.st_size, bytes);
  struct stat after;
  bool unchanged = ok && ::fstat(fd, &after) == 0 && FileStamp::Of(before) == FileStamp::Of(after);
  ::close(fd);
  if (!ok) return nullptr;

  auto parsed = std::make_shared<const ParsedProfile>(ProfileDocument::Parse(bytes));
  // A file modified within the current clock tick could change again in
  // the same tick without its stamp changing: such a copy is not kept.
  if (use_copies && unchanged && Before(after.st_mtim, now) && Before(after.st_ctim, now)) {
    copies.Keep(path, FileStamp::Of(after), parsed);
  }
  return parsed;
}

// For reads, a file that cannot be read reads as an empty one: reads then
// give their defaults, as the profile interface does.
std::shared_ptr<const ParsedProfile> Load(const std::string& path) {
  auto parsed = TryLoad(path);
  return parsed != nullptr ? parsed : EmptyProfile();
}

// ---------------------------------------------------------------------------
// Buffer contracts.

int32_t Capacity(std::span<char16_t> buffer) {
  return int32_t(std::min<size_t>(buffer.size(), INT32_MAX));
}

// A single value: cut to size - 1 characters when it does not fit.
int32_t CopyValue(std::u16string_view value, std::span<char16_t> buffer) {
  const int32_t size = Capacity(buffer);
  if (size < 2) {
    if (size == 1) buffer[0] = 0;
    return 0;
  }
  const int32_t n = int32_t(std::min<size_t>(value.size(), size_t(size - 1)));
  std::copy_n(value.begin(), n, buffer.begin());
  buffer[size_t(n)] = 0;
  return n;
}

// Entries each followed by a NUL, the list by one more. A list that needs
// the whole buffer or more is cut to size - 2 characters and two NULs.
template <class Entries>
int32_t CopyList(const Entries& entries, std::span<char16_t> buffer) {
  const int32_t size = Capacity(buffer);
  if (size < 2) {
    if (size == 1) buffer[0] = 0;
    return 0;
  }
  size_t at = 0;
  const size_t room = size_t(size - 2);
  bool cut = false;
  for (std::u16string_view entry : entries) {
    if (at + entry.size() + 1 > room) {
      size_t part = std::min(entry.size(), room - at);
      std::copy_n(entry.begin(), part, buffer.begin() + ptrdiff_t(at));
      at += part;
      cut = true;
      break;
    }
    std::copy_n(entry.begin(), entry.size(), buffer.begin() + ptrdiff_t(at));
    at += entry.size();
    buffer[at++] = 0;
  }
  if (cut) {
    buffer[room] = 0;
    buffer[room + 1] = 0;
    return size - 2;
  }
  // The list's own NUL. An empty list has no last entry for it to follow,
  // so it is the only one written.
  buffer[at] = 0;
  return int32_t(at);
}

std::u16string_view TrimSpaces(std::u16string_view text) {
  while (!text.empty() && text.front() == u' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == u' ') text.remove_suffix(1);
  return text;
}

std::u16string_view TrimTrailingSpaces(std::u16string_view text) {
  while (!text.empty() && text.back() == u' ') text.remove_suffix(1);
  return text;
}

// ---------------------------------------------------------------------------
// Edits, on a copy of the lines; the file is then rewritten whole.

constexpr size_t kNone = size_t(-1);

size_t FindHeader(const std::vector<ProfileLine>& lines, std::u16string_view section) {
  const std::u16string folded = detail::FoldName(section);
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].kind == LineKind::kHeader &&
        detail::FoldName(detail::Interpret(lines[i].text).name) == folded) {
      return i;
    }
  }
  return kNone;
}

// The line after the last line of the section whose header is at `header`.
size_t SectionEnd(const std::vector<ProfileLine>& lines, size_t header) {
  size_t end = header + 1;
  while (end < lines.size() && lines[end].kind != LineKind::kHeader) ++end;
  return end;
}

size_t FindEntry(const std::vector<ProfileLine>& lines, size_t header, std::u16string_view key) {
  const std::u16string folded = detail::FoldName(key);
  for (size_t i = header + 1, end = SectionEnd(lines, header); i < end; ++i) {
    if (lines[i].kind == LineKind::kEntry &&
        detail::FoldName(detail::Interpret(lines[i].text).name) == folded) {
      return i;
    }
  }
  return kNone;
}

ProfileLine NewLine(std::u16string text) {
  ProfileLine line;
  line.kind = detail::Classify(text);
  line.text = std::move(text);
  return line;
}

std::u16string HeaderText(std::u16string_view section) {
  std::u16string text(u"[");
  text.append(section);
  text.push_back(u']');
  return text;
}

std::u16string EntryText(std::u16string_view key, std::u16string_view value) {
  std::u16string text(key);
  text.push_back(u'=');
  text.append(value);
  return text;
}

void AppendSection(ProfileDocument& document, std::u16string_view section,
                   std::vector<ProfileLine> body) {
  std::vector<ProfileLine>& end = document.End();
  end.push_back(NewLine(HeaderText(section)));
  for (ProfileLine& line : body) end.push_back(std::move(line));
}

// Removes the section's header and every line of it but its comments.
void DeleteSection(std::vector<ProfileLine>& lines, size_t header) {
  const size_t end = SectionEnd(lines, header);
  auto first = lines.begin() + ptrdiff_t(header);
  auto kept = std::stable_partition(
      first, lines.begin() + ptrdiff_t(end),
      [](const ProfileLine& line) { return line.kind == LineKind::kComment; });
  lines.erase(kept, lines.begin() + ptrdiff_t(end));
}

// The state of a file about to be edited. A file that exists but cannot be
// read is never edited: rewriting it from nothing would lose its content.
struct Editable {
  bool readable = false;
  bool existed = false;
  ProfileDocument document;
};

Editable LoadForEdit(const std::string& path) {
  Editable editable;
  struct stat st;
  editable.existed = !path.empty() && ::stat(path.c_str(), &st) == 0;
  auto parsed = TryLoad(path);
  editable.readable = parsed != nullptr;
  if (parsed != nullptr) editable.document = parsed->document;
  return editable;
}

bool Save(const std::string& path, const ProfileDocument& document) {
  if (path.empty()) return false;
  return ReplaceFileContent(path, document.Serialize()) == 0;
}

}  // namespace

int32_t GetProfileString(OptionalText section, OptionalText key, std::u16string_view default_text,
                         std::span<char16_t> buffer, const std::string& path) {
  const auto parsed = Load(path);
  const ProfileIndex& index = parsed->index;
  const auto& lines = parsed->document.lines;

  if (!section) {
    std::vector<std::u16string_view> names;
    names.reserve(index.sections().size());
    for (const auto& s : index.sections()) names.push_back(s.name);
    return CopyList(names, buffer);
  }
  const ProfileIndex::Section* found = index.Find(TrimSpaces(*section));
  if (found == nullptr) return CopyValue(TrimTrailingSpaces(default_text), buffer);
  if (!key) {
    std::vector<std::u16string_view> keys;
    keys.reserve(found->keys.size());
    for (uint32_t line : found->keys) keys.push_back(detail::Interpret(lines[line].text).name);
    return CopyList(keys, buffer);
  }
  int64_t line = index.FindKey(*found, TrimSpaces(*key));
  if (line < 0) return CopyValue(TrimTrailingSpaces(default_text), buffer);
  return CopyValue(detail::Interpret(lines[size_t(line)].text).value, buffer);
}

int32_t GetProfileSection(std::u16string_view section, std::span<char16_t> buffer,
                          const std::string& path) {
  const auto parsed = Load(path);
  const ProfileIndex::Section* found = parsed->index.Find(TrimSpaces(section));
  std::vector<std::u16string_view> entries;
  if (found != nullptr) {
    const auto& lines = parsed->document.lines;
    for (uint32_t i = found->header + 1; i < found->end; ++i) {
      if (lines[i].kind == LineKind::kBlank) continue;
      entries.push_back(detail::TrimBlanks(lines[i].text));
    }
  }
  return CopyList(entries, buffer);
}

bool WriteProfileString(std::u16string_view section, OptionalText key, OptionalText value,
                        const std::string& path) {
  section = TrimSpaces(section);
  Editable file = LoadForEdit(path);
  if (!file.readable) return false;
  auto& lines = file.document.lines;
  const size_t header = FindHeader(lines, section);

  if (!key || !value) {
    // Deleting what is not there changes nothing, but a missing file is
    // still created (empty), as the profile interface does.
    size_t target = header;
    if (header != kNone && key) target = FindEntry(lines, header, TrimSpaces(*key));
    if (target == kNone) return file.existed || Save(path, file.document);
    if (key) {
      lines.erase(lines.begin() + ptrdiff_t(target));
    } else {
      DeleteSection(lines, header);
    }
    return Save(path, file.document);
  }

  const std::u16string_view name = TrimSpaces(*key);
  if (header == kNone) {
    std::vector<ProfileLine> body;
    body.push_back(NewLine(EntryText(name, *value)));
    AppendSection(file.document, section, std::move(body));
    return Save(path, file.document);
  }
  if (size_t entry = FindEntry(lines, header, name); entry != kNone) {
    // The key keeps its place and its spelling; only the value changes.
    ProfileLine& line = lines[entry];
    line.text = EntryText(detail::Interpret(line.text).name, *value);
    return Save(path, file.document);
  }
  // A new key goes after the section's last key-like line, so that blank
  // lines and comments leading into the next section stay with it.
  size_t at = header + 1;
  for (size_t i = header + 1, end = SectionEnd(lines, header); i < end; ++i) {
    if (lines[i].kind == LineKind::kEntry || lines[i].kind == LineKind::kOther) at = i + 1;
  }
  lines.insert(lines.begin() + ptrdiff_t(at), NewLine(EntryText(name, *value)));
  return Save(path, file.document);
}

bool WriteProfileSection(std::u16string_view section, OptionalText text, const std::string& path) {
  if (!text) return WriteProfileString(section, std::nullopt, std::nullopt, path);
  section = TrimSpaces(section);

  std::vector<ProfileLine> body;
  for (std::u16string_view rest = *text; !rest.empty();) {
    size_t nul = rest.find(u'\0');
    std::u16string_view entry = rest.substr(0, nul);
    if (entry.empty()) break;  // the closing NUL of the list
    body.push_back(NewLine(std::u16string(entry)));
    rest = nul == std::u16string_view::npos ? std::u16string_view() : rest.substr(nul + 1);
  }

  Editable file = LoadForEdit(path);
  if (!file.readable) return false;
  auto& lines = file.document.lines;
  const size_t header = FindHeader(lines, section);
  if (header == kNone) {
    AppendSection(file.document, section, std::move(body));
    return Save(path, file.document);
  }
  // Every line of the section goes, except the blank lines that separate it
  // from the next one.
  size_t end = SectionEnd(lines, header);
  size_t last = end;
  while (last > header + 1 && lines[last - 1].kind == LineKind::kBlank) --last;
  lines.erase(lines.begin() + ptrdiff_t(header + 1), lines.begin() + ptrdiff_t(last));
  lines.insert(lines.begin() + ptrdiff_t(header + 1), std::make_move_iterator(body.begin()),
               std::make_move_iterator(body.end()));
  return Save(path, file.document);
}

void SetProfileCopiesEnabled(bool enabled) noexcept {
  Copies().enabled.store(enabled, std::memory_order_relaxed);
}

}  // namespace kestrel::files
