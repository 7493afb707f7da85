#include "cli/failure.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>

#include <kestrune/kestrune.h>
#include "cli/text.h"

namespace kestrune::cli {
namespace {

// The codes that are an answer about what was given; all others say that there was none.
constexpr long kAnswers[] = {-2064, -502, -111, -107, -106, -104, -100, -98, -95, -92, -89,
                             -82,   -79,  -77,  -76,  -75,  -74,  -73,  -71, -70, -69, -68};

Status StatusOf(long code) {
  return std::find(std::begin(kAnswers), std::end(kAnswers), code) != std::end(kAnswers) ? Status::kNo
                                                                                         : Status::kCouldNot;
}

// The system's own words are in the user's language only where its locale is installed, so the usual ones are ours.
std::string SystemWords(int error) {
  switch (error) {
    case ENOENT:
      return _("there is no such file or folder");
    case EACCES:
    case EPERM:
      return _("you have no right to do that");
    case EISDIR:
      return _("it is a folder");
    case ENOTDIR:
      return _("a part of the path is no folder");
    case EEXIST:
      return _("it is there already");
    case ENOSPC:
    case EDQUOT:
      return _("the disk is full");
    case EFBIG:
      return _("it would be larger than is allowed there");
    case EROFS:
      return _("the file system is read-only");
    case EBADF:
      return _("it is closed");
    case ENAMETOOLONG:
      return _("the name is too long");
    case EIO:
      return _("the device failed");
    case ENOMEM:
      return _("there is not enough memory");
    case EMFILE:
    case ENFILE:
      return _("too many files are open");
    default:
      return std::strerror(error);
  }
}

std::string SystemRemedy(int error) {
  switch (error) {
    case ENOENT:
    case ENOTDIR:
      return _("Check how the path is written.");
    case EACCES:
    case EPERM:
      return _("Look at its owner and mode, and at those of the folder.");
    case ENOSPC:
    case EDQUOT:
      return _("Make room, or choose another place; nothing was left behind.");
    case EEXIST:
      return _("Choose another name, or allow it with --force.");
    default:
      return {};
  }
}

}  // namespace

Failure LibraryFailure(const char* entry_point, long code, std::string_view subject) {
  const kestrune_code_meaning* meaning = kestrune_code_find(entry_point, code, Language());
  if (meaning == nullptr) meaning = kestrune_code_list(code, 0, Language());
  const std::string cause = meaning != nullptr ? meaning->cause : _("The library refused.");
  const std::string what = subject.empty() ? cause : Printable(subject) + ": " + cause;
  return {StatusOf(code), Fill(_("{1} (code {2})"), {what, std::to_string(code)}),
          meaning != nullptr ? meaning->remedy : ""};
}

Failure SystemFailure(int error, std::string_view subject) {
  return {Status::kCouldNot, Fill(_("{1}: {2}."), {Printable(subject), SystemWords(error)}),
          SystemRemedy(error)};
}

}  // namespace kestrune::cli
