// What was done to the files of one folder, and what of it a power loss may leave.
#ifndef KESTRUNE_CAMPAIGNS_FILE_RECORDING_H
#define KESTRUNE_CAMPAIGNS_FILE_RECORDING_H

#include <cstdint>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace kestrune::testing {

// A disk: names (relative to the folder) that stand for files, by their numbers, and what is in these.
struct Disk {
  static constexpr int kFolder = -1;
  std::map<std::string, int> names;
  std::map<int, std::string> files;

  // What somebody sees who looks at it: files below folders that are there.
  std::map<std::string, std::string> Visible() const;
};

struct FileEvent {
  enum class Kind {
    kWrite,
    kTruncate,    // to `offset` bytes
    kName,        // `name` stands for `file`
    kNoName,      // for nothing any more
    kRename,      // `name`, and `old_name` for nothing any more
    kSync,        // `file`
    kSyncFolder,  // `name`
    kTold         // `data` was told to somebody: what is promised counts from here
  };
  Kind kind = Kind::kTold;
  int file = 0;
  std::uint64_t offset = 0;
  std::string data = {}, name = {}, old_name = {};
};

class Recording {
 public:
  // Told with a write of the child's to this file of the folder, and by nothing else.
  static constexpr char kTellTale[] = "told";

  // Does `work` in a child and records what happens to the folder, which ends with a '/'; in the end the child's
  // result is told, too.
  Recording(const std::string& folder, const std::function<int()>& work);

  const std::vector<FileEvent>& events() const { return events_; }

  // Calls `look` with each disk that a power loss behind the first `events` events may leave, but for those that
  // it has seen before; as far as they are more than can be counted, with some of them, drawn.
  void PowerLosses(std::size_t events, std::minstd_rand& random,
                   const std::function<void(const Disk&)>& look);
  std::size_t states() const { return states_; }

 private:
  friend class Recorder;
  struct Atom;
  std::vector<Atom> Pending(std::size_t events) const;
  Disk After(std::size_t events, const std::vector<Atom>& pending, const std::vector<bool>& happened) const;

  Disk before_;
  std::vector<FileEvent> events_;
  std::vector<std::size_t> seen_;  // sorted
  std::size_t states_ = 0;
};

}  // namespace kestrune::testing

#endif
