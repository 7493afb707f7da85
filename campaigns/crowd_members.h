// Who is at work in the crowd: processes that seal, open and install in one folder.
#ifndef KESTRUNE_CAMPAIGNS_CROWD_MEMBERS_H
#define KESTRUNE_CAMPAIGNS_CROWD_MEMBERS_H

#include <sys/types.h>

#include <array>
#include <atomic>
#include <string>

#include "examples/key_files.h"

namespace kestrune::testing {

using namespace examples;

// A sanitizer takes terabytes of addresses for itself, descriptors now and then, and keeps freed memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool kIsSanitized = true;
#else
inline constexpr bool kIsSanitized = false;
#endif

// Two keys that stay, and one in whose place others are installed all the time.
inline constexpr std::array kUsers = {"alpha", "beta", "change"};
inline constexpr std::size_t kChangingUser = 2;
inline constexpr char kPassPhrase[] = "a_b_c_d";

// The key with this number that is installed for the changing user.
PersonalKey InstalledKey(unsigned number);

// What all processes see.
struct Shared {
  std::array<char, 256> folder;
  std::atomic<bool> is_open;           // the members that outlive a round may work
  std::atomic<unsigned> at_work;       // threads of theirs that do
  std::atomic<unsigned> installed;     // keys of the changing user that were made
  std::atomic<unsigned long> opened;   // messages that the library opened
  std::atomic<unsigned long> refused;  // calls that ended in a code for lack of memory or descriptors
};

// What was sealed, as it stands in a log: so many bytes follow. A log that was cut short ends in half a record.
struct LogEntry {
  std::uint32_t user;
  std::uint32_t is_message;  // 0: a sealed body alone
  std::uint32_t installed;   // number of the changing user's key: this one or one before
  std::uint32_t bytes;
};
std::string LogPath(const std::string& folder, unsigned member);

enum class Temper {
  kLasting,    // works whenever a round is open
  kMortal,     // for one round
  kPoor,       // with next to no memory and descriptors: its calls may be refused
  kInstaller,  // installs the changing user's keys
};

// Starts a process. Its logs have the number `member` or, where it works in threads, that and the next one.
pid_t StartMember(Shared& shared, Temper temper, unsigned member);

// A body, or a message's text: any of its bytes is this one.
inline constexpr unsigned char kBodyByte = 'x';

}  // namespace kestrune::testing

#endif
