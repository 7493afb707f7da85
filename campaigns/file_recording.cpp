#include "campaigns/file_recording.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <utility>

#include "campaigns/pad_use.h"
#include "campaigns/supervised_calls.h"
#include "tests/support/bytes.h"

namespace kestrune::testing {

namespace fs = std::filesystem;
using Kind = FileEvent::Kind;

namespace {

constexpr std::uint64_t kSectorBytes = 512;

// What of it this system's processors have.
const std::vector<int> kRecorded = {
#ifdef SYS_open
    SYS_open,
#endif
#ifdef SYS_rename
    SYS_rename,    SYS_unlink,          SYS_mkdir,           SYS_rmdir,     SYS_link,
#endif
    SYS_openat,    SYS_write,           SYS_pwrite64,        SYS_writev,    SYS_pwritev,   SYS_pwritev2,
    SYS_ftruncate, SYS_truncate,        SYS_fsync,           SYS_fdatasync, SYS_renameat,  SYS_renameat2,
    SYS_linkat,    SYS_symlinkat,       SYS_unlinkat,        SYS_mkdirat,   SYS_fallocate, SYS_sendfile,
    SYS_splice,    SYS_copy_file_range, SYS_sync_file_range, SYS_syncfs};

std::string ParentOf(const std::string& name) {
  const std::size_t separator = name.rfind('/');
  return separator == std::string::npos ? "" : name.substr(0, separator);
}

void Overwrite(std::string& content, std::uint64_t at, std::string_view bytes) {
  if (content.size() < at + bytes.size()) content.resize(at + bytes.size());
  content.replace(at, bytes.size(), bytes);
}

}  // namespace

// Follows the child's calls.
class Recorder {
 public:
  Recorder(const std::string& folder, Disk disk, std::vector<FileEvent>* events)
      : folder_(fs::canonical(folder).string() + "/"), disk_(std::move(disk)), events_(*events) {}

  void Take(const SystemCall& call) {
    const auto& at = call.arguments;
    switch (call.number) {
#ifdef SYS_open
      case SYS_open:
        return Open(NameOf(call, AT_FDCWD, 0), at[1]);
#endif
#ifdef SYS_rename
      case SYS_rename:
        return Rename(NameOf(call, AT_FDCWD, 0), NameOf(call, AT_FDCWD, 1), 0);
      case SYS_unlink:
      case SYS_rmdir:
        return Remove(NameOf(call, AT_FDCWD, 0));
      case SYS_mkdir:
        return Make(NameOf(call, AT_FDCWD, 0), Disk::kFolder);
      case SYS_link:
        return Link(NameOf(call, AT_FDCWD, 0), NameOf(call, AT_FDCWD, 1));
#endif
      case SYS_openat:
        return Open(NameOf(call, call.Descriptor(), 1), at[2]);
      case SYS_write:
        return Write(call, call.PositionOf(call.Descriptor()), call.Bytes(at[1], at[2]));
      case SYS_pwrite64:
        return Write(call, at[3], call.Bytes(at[1], at[2]));
      case SYS_writev:
        return Write(call, call.PositionOf(call.Descriptor()), Gathered(call));
      case SYS_ftruncate:
        return Truncate(NameOf(call), at[1]);
      case SYS_fsync:
      case SYS_fdatasync:
        return Sync(NameOf(call));
      case SYS_renameat:
        return Rename(NameOf(call, call.Descriptor(), 1), NameOf(call, call.Descriptor(2), 3), 0);
      case SYS_renameat2:
        return Rename(NameOf(call, call.Descriptor(), 1), NameOf(call, call.Descriptor(2), 3), at[4]);
      case SYS_linkat:
        return Link(NameOf(call, call.Descriptor(), 1), NameOf(call, call.Descriptor(2), 3));
      case SYS_unlinkat:
        return Remove(NameOf(call, call.Descriptor(), 1));
      case SYS_mkdirat:
        return Make(NameOf(call, call.Descriptor(), 1), Disk::kFolder);
      default:
        OrStop(!NameOf(call) && !NameOf(call, call.Descriptor(), 1), "a call that nobody records here");
    }
  }

 private:
  using Name = std::optional<std::string>;  // in the folder; "" the folder itself

  Name InFolder(const std::string& path) const {
    if (path + "/" == folder_) return "";
    if (!path.starts_with(folder_)) return std::nullopt;
    return path.substr(folder_.size());
  }
  Name NameOf(const SystemCall& call) const {
    return InFolder(call.PathOf(call.Descriptor()));
  }
  Name NameOf(const SystemCall& call, int folder, int argument) const {
    fs::path path = call.Text(argument);
    if (path.is_relative() && folder != AT_FDCWD) path = fs::path(call.PathOf(folder)) / path;
    if (path.is_relative()) path = fs::read_symlink("/proc/" + std::to_string(call.thread) + "/cwd") / path;
    // The last name is not followed: nothing in these folders is a link.
    if (!path.has_filename()) path = path.parent_path();
    return InFolder((fs::weakly_canonical(path.parent_path()) / path.filename()).string());
  }

  int* Find(const std::string& name) {
    const auto found = disk_.names.find(name);
    return found == disk_.names.end() ? nullptr : &found->second;
  }

  void Open(const Name& name, std::uint64_t flags) {
    if (!name || *name == Recording::kTellTale) return;
    const int* const file = Find(*name);
    if (file == nullptr) {
      if ((flags & O_CREAT) != 0) Make(name, next_++);
    } else if (*file != Disk::kFolder && (flags & O_TRUNC) != 0) {
      Truncate(name, 0);
    }
  }

  void Make(const Name& name, int file) {
    if (!name || Find(*name) != nullptr) return;
    disk_.names[*name] = file;
    if (file != Disk::kFolder) disk_.files[file].clear();
    events_.push_back({.kind = Kind::kName, .file = file, .name = *name});
  }

  void Link(const Name& from, const Name& to) {
    if (!from || !to || Find(*from) == nullptr || Find(*to) != nullptr) return;
    const int file = *Find(*from);
    disk_.names[*to] = file;
    events_.push_back({.kind = Kind::kName, .file = file, .name = *to});
  }

  void Remove(const Name& name) {
    if (!name || disk_.names.erase(*name) == 0) return;
    events_.push_back({.kind = Kind::kNoName, .name = *name});
  }

  void Rename(const Name& from, const Name& to, std::uint64_t flags) {
    if (!from || !to || Find(*from) == nullptr) return;
    constexpr std::uint64_t kOnlyNew = 1;  // RENAME_NOREPLACE
    if ((flags & kOnlyNew) != 0 && Find(*to) != nullptr) return;
    const int file = *Find(*from);
    disk_.names.erase(*from);
    disk_.names[*to] = file;
    events_.push_back({.kind = Kind::kRename, .file = file, .name = *to, .old_name = *from});
  }

  void Write(const SystemCall& call, std::uint64_t at, const std::string& bytes) {
    const Name name = NameOf(call);
    if (!name) return;
    if (*name == Recording::kTellTale) {
      events_.push_back({.kind = Kind::kTold, .data = bytes});
    } else if (const int* const file = Find(*name); file != nullptr) {
      Overwrite(disk_.files[*file], at, bytes);
      events_.push_back({.kind = Kind::kWrite, .file = *file, .offset = at, .data = bytes});
    }
  }

  static std::string Gathered(const SystemCall& call) {
    std::string all;
    for (std::uint64_t i = 0; i < call.arguments[2]; ++i) {
      iovec piece{};
      call.Bytes(call.arguments[1] + i * sizeof piece, sizeof piece)
          .copy(reinterpret_cast<char*>(&piece), sizeof piece);
      all += call.Bytes(reinterpret_cast<std::uint64_t>(piece.iov_base), piece.iov_len);
    }
    return all;
  }

  void Truncate(const Name& name, std::uint64_t length) {
    const int* const file = name ? Find(*name) : nullptr;
    if (file == nullptr || disk_.files[*file].size() == length) return;
    disk_.files[*file].resize(length);
    events_.push_back({.kind = Kind::kTruncate, .file = *file, .offset = length});
  }

  void Sync(const Name& name) {
    if (!name) return;
    const int* const file = Find(*name);
    if (name->empty() || (file != nullptr && *file == Disk::kFolder)) {
      events_.push_back({.kind = Kind::kSyncFolder, .name = *name});
    } else if (file != nullptr) {
      events_.push_back({.kind = Kind::kSync, .file = *file});
    }
  }

  const std::string folder_;
  Disk disk_;  // as programs see it, the power still on
  std::vector<FileEvent>& events_;
  int next_ = static_cast<int>(disk_.files.size());
};

std::map<std::string, std::string> Disk::Visible() const {
  std::map<std::string, std::string> seen;
  for (const auto& [name, file] : names) {
    bool is_seen = file != kFolder;
    for (std::string parent = ParentOf(name); !parent.empty(); parent = ParentOf(parent)) {
      const auto found = names.find(parent);
      is_seen = is_seen && found != names.end() && found->second == kFolder;
    }
    if (!is_seen) continue;
    const auto content = files.find(file);
    seen[name] = content == files.end() ? "" : content->second;
  }
  return seen;
}

Recording::Recording(const std::string& folder, const std::function<int()>& work) {
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(entry.path(), folder);
    const int number = entry.is_directory() ? Disk::kFolder : static_cast<int>(before_.files.size());
    before_.names[name] = number;
    if (!entry.is_directory()) before_.files[number] = ToText(ReadFile(entry.path()));
  }
  Recorder recorder(folder, before_, &events_);
  SupervisedChild child(kRecorded, work);
  const int status = child.Run([&](const SystemCall& call) {
    recorder.Take(call);
    return Answer{};
  });
  OrStop(WIFEXITED(status), "what was to be recorded did not come to its end");
  events_.push_back({.kind = Kind::kTold, .data = std::to_string(WEXITSTATUS(status))});
}

// The least that may be on the disk or not: a sector of a write, a new length of a file (with zeros in it where no
// sector was written yet), a change of names.
struct Recording::Atom {
  static constexpr std::int64_t kWhole = -1, kLength = -2;
  std::size_t event;
  std::int64_t sector;
};

// What was done before and is not safe on the disk.
std::vector<Recording::Atom> Recording::Pending(std::size_t events) const {
  std::vector<Atom> pending;
  for (std::size_t i = 0; i < events; ++i) {
    const FileEvent& event = events_[i];
    const bool is_content = event.kind == Kind::kWrite || event.kind == Kind::kTruncate;
    const bool is_safe =
        event.kind >= Kind::kSync ||
        std::any_of(events_.begin() + static_cast<std::ptrdiff_t>(i),
                    events_.begin() + static_cast<std::ptrdiff_t>(events), [&](const FileEvent& later) {
                      return is_content
                                 ? later.kind == Kind::kSync && later.file == event.file
                                 : later.kind == Kind::kSyncFolder && later.name == ParentOf(event.name);
                    });
    if (is_safe) continue;
    if (event.kind != Kind::kWrite) {
      pending.push_back({i, Atom::kWhole});
      continue;
    }
    const std::uint64_t end = (event.offset + event.data.size() + kSectorBytes - 1) / kSectorBytes;
    for (std::uint64_t sector = event.offset / kSectorBytes; sector < end; ++sector)
      pending.push_back({i, static_cast<std::int64_t>(sector)});
    pending.push_back({i, Atom::kLength});
  }
  return pending;
}

Disk Recording::After(std::size_t events, const std::vector<Atom>& pending,
                      const std::vector<bool>& happened) const {
  Disk disk = before_;
  std::size_t next = 0;
  for (std::size_t i = 0; i < events; ++i) {
    const FileEvent& event = events_[i];
    std::string& content = disk.files[event.file];
    const bool is_pending = next < pending.size() && pending[next].event == i;
    if (is_pending && event.kind == Kind::kWrite) {
      for (; next < pending.size() && pending[next].event == i; ++next) {
        if (!happened[next]) continue;
        const std::uint64_t end = event.offset + event.data.size();
        if (pending[next].sector == Atom::kLength) {
          content.resize(std::max(content.size(), end));
          continue;
        }
        const auto sector = static_cast<std::uint64_t>(pending[next].sector) * kSectorBytes;
        const std::uint64_t from = std::max(sector, event.offset), to = std::min(sector + kSectorBytes, end);
        Overwrite(content, from, std::string_view(event.data).substr(from - event.offset, to - from));
      }
      continue;
    }
    if (is_pending && !happened[next++]) continue;
    switch (event.kind) {
      case Kind::kWrite:
        Overwrite(content, event.offset, event.data);
        break;
      case Kind::kTruncate:
        content.resize(event.offset);
        break;
      case Kind::kRename:
        disk.names.erase(event.old_name);
        [[fallthrough]];
      case Kind::kName:
        disk.names[event.name] = event.file;
        break;
      case Kind::kNoName:
        disk.names.erase(event.name);
        break;
      default:
        break;
    }
  }
  return disk;
}

void Recording::PowerLosses(std::size_t events, std::minstd_rand& random,
                            const std::function<void(const Disk&)>& look) {
  constexpr std::size_t kMostForAll = 8, kDraws = 24, kOdds = 8;
  const std::vector<Atom> pending = Pending(events);
  std::vector<bool> happened(pending.size());
  const auto look_once = [&] {
    const Disk disk = After(events, pending, happened);
    std::size_t mark = static_cast<std::size_t>(
        std::count_if(events_.begin(), events_.begin() + static_cast<std::ptrdiff_t>(events),
                      [](const FileEvent& event) { return event.kind == Kind::kTold; }));
    for (const auto& [name, content] : disk.Visible()) {
      for (const std::string& text : {name, content}) mark = mark * 31 + std::hash<std::string>()(text);
    }
    const auto at = std::lower_bound(seen_.begin(), seen_.end(), mark);
    if (at != seen_.end() && *at == mark) return;
    seen_.insert(at, mark);
    ++states_;
    look(disk);
  };
  if (pending.size() <= kMostForAll) {
    for (std::size_t subset = 0; subset < std::size_t{1} << pending.size(); ++subset) {
      for (std::size_t i = 0; i < pending.size(); ++i) happened[i] = (subset >> i & 1) != 0;
      look_once();
    }
    return;
  }
  look_once();  // nothing of it
  // Few of it, some, most, all; sector by sector, and call by call.
  for (std::size_t draw = 0; draw < kDraws; ++draw) {
    const std::size_t odds = 1 + random() % kOdds;
    for (std::size_t i = 0; i < pending.size(); ++i) {
      const bool is_of_same_call = draw % 2 == 0 && i > 0 && pending[i].event == pending[i - 1].event;
      happened[i] = is_of_same_call ? happened[i - 1] : random() % kOdds < odds;
    }
    look_once();
  }
  std::fill(happened.begin(), happened.end(), true);
  look_once();
  // All but one, and one alone.
  for (const bool one : {false, true}) {
    std::fill(happened.begin(), happened.end(), !one);
    const std::size_t chosen = random() % pending.size();
    happened[chosen] = one;
    look_once();
  }
}

}  // namespace kestrune::testing
