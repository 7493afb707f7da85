// kestrune open: the text, the attachments, or a mail of sealed messages.
#include <atomic>
#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "cli/commands.h"
#include "cli/console.h"
#include "cli/folder_output.h"
#include "cli/opening.h"
#include "cli/output.h"
#include "cli/pass_phrase.h"
#include "cli/progress.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

constexpr int kUsualDeadline = 30;
constexpr int kLongestDeadline = 86400;
constexpr int kMostAtATime = 256;

struct Options {
  std::vector<std::string> files;
  std::string folder, eml, xml;
  bool accept_unverified = false;
  bool force = false;
  int deadline = kUsualDeadline;
  int at_a_time = 1;
  PassPhrases pass_phrases;
};

// Each key's pass phrase is asked for once, however many messages are open at a time.
class KeyRing {
 public:
  explicit KeyRing(PassPhrases* pass_phrases) : pass_phrases_(pass_phrases) {}

  std::string_view PassPhraseOf(const std::string& key) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const auto known = secrets_.find(key);
    if (known != secrets_.end()) return known->second.text();
    return secrets_.emplace(key, pass_phrases_->Of(key)).first->second.text();
  }

 private:
  std::mutex mutex_;
  PassPhrases* pass_phrases_;
  std::map<std::string, Secret> secrets_;
};

// What all messages of a run share.
struct Run {
  const Options& options;
  std::string folder;
  KeyRing keys;
  Progress progress;
};

std::string JoinedForPeople(const std::vector<std::string>& names) {
  std::string joined;
  for (const std::string& name : names) joined += (joined.empty() ? "" : ", ") + name;
  return joined;
}

void TellHeading(const OpenedMessage& message, const SealedFile& sealed) {
  const Routing inner(message.routing);
  const Routing outer(sealed.routing);
  const auto tell = [](const char* pattern, const std::string& value) {
    if (!value.empty()) Note(Fill(pattern, {Printable(value)}));
  };
  tell(_("From: {1}"), inner.sender.empty() ? outer.sender : inner.sender);
  tell(_("Signed by: {1}"), message.whole.signature == 0 ? message.whole.signer : std::string());
  tell(_("To: {1}"), JoinedForPeople(inner.recipients.empty() ? outer.recipients : inner.recipients));
  tell(_("Copies: {1}"), JoinedForPeople(inner.copies));
  tell(_("Date: {1}"), inner.date);
  tell(_("Subject: {1}"), inner.subject);
}

// The texts with a blank line between two.
Secret TextOf(const OpenedMessage& message) {
  constexpr std::string_view kBetween = "\n\n";
  std::size_t bytes = 1;
  for (const OpenedPart& text : message.texts) bytes += text.data.size() + kBetween.size();
  Secret whole;
  if (!whole.Allocate(bytes)) throw std::bad_alloc();
  char* end = whole.text();
  for (const OpenedPart& text : message.texts) {
    if (end != whole.text()) end += kBetween.copy(end, kBetween.size());
    end += text.data.copy(end, text.data.size());
  }
  const auto length = static_cast<std::size_t>(end - whole.text());
  Secret exact;
  if (!exact.Allocate(length)) throw std::bad_alloc();
  std::copy(whole.text(), end, exact.text());
  return exact;
}

std::string_view ViewOf(const Secret& secret) {
  return {secret.text(), secret.size()};
}

// A file's name and bytes.
using Written = std::pair<std::string, std::size_t>;

std::vector<Written> WriteFolder(const OpenedMessage& message, const std::string& folder, bool force) {
  FolderOutput output(folder, force);
  const Secret text = TextOf(message);
  std::vector<Written> written;
  if (!message.texts.empty()) output.Add("message.txt", {}, ViewOf(text));
  for (const OpenedPart& attachment : message.attachments) {
    const std::string name = output.Add(attachment.name, _("attachment"), attachment.data);
    written.emplace_back(std::filesystem::path(folder) / name, attachment.data.size());
  }
  output.Commit();
  return written;
}

void WriteSecret(const std::string& path, std::string_view bytes) {
  if (path == kStandard) {
    PrintText(bytes);
  } else {
    WriteOutput(path, bytes, Manner{.is_secret = true});
  }
}

// All outputs but the text on standard output; the attachments as they are called now.
std::vector<Written> WriteFiles(const OpenedMessage& message, const std::string& folder,
                                const Options& options) {
  if (!options.eml.empty()) WriteSecret(options.eml, message.eml);
  if (!options.xml.empty()) WriteSecret(options.xml, message.xml);
  if (!folder.empty()) return WriteFolder(message, folder, options.force);
  std::vector<Written> attached;
  for (const OpenedPart& attachment : message.attachments) {
    attached.emplace_back(Printable(attachment.name), attachment.data.size());
  }
  return attached;
}

void Show(const OpenedMessage& message, const SealedFile& sealed, const std::vector<Written>& attachments,
          const Options& options) {
  TellHeading(message, sealed);
  for (const auto& [name, bytes] : attachments) {
    Note(Fill(_("Attachment: {1} ({2} bytes)"), {name, std::to_string(bytes)}));
  }
  if (options.folder.empty() && options.eml.empty() && options.xml.empty())
    PrintText(ViewOf(TextOf(message)));
}

// Nothing of a message is shown before all doubts are out, or were accepted.
void RefuseDoubts(const OpenedMessage& message, const SealedFile& sealed, const std::string& called,
                  const Options& options) {
  const std::vector<Failure> doubts = DoubtsAbout(message, sealed, called);
  for (const Failure& doubt : doubts) Complain(doubt);
  if (doubts.empty() || options.accept_unverified) return;
  throw Failure(Status::kNo, Fill(_("{1} was not opened: its sender is not proven."), {Printable(called)}),
                _("--accept-unverified opens it all the same; believe nothing of it then."));
}

void OpenOne(const std::string& file, const std::string& folder, Run& run) {
  const Options& options = run.options;
  const std::string called = NameOf(file);
  const SealedFile sealed = ReadSealedFile(file, [&run] { return run.folder; });
  // A transport block that nothing vouches for does not even get its pass phrase.
  if (sealed.doubt && !options.accept_unverified) throw Failure(*sealed.doubt);
  OpeningTask task;
  task.called = called;
  task.folder = run.folder;
  task.pass_phrase = run.keys.PassPhraseOf(Routing(sealed.routing).key);
  task.deadline = std::chrono::seconds(options.deadline);
  task.wants_eml = !options.eml.empty();
  task.wants_xml = !options.xml.empty();
  task.on_step = [&run](const std::string& what) { run.progress.Step(what); };
  const OpenedMessage message = OpenApart(sealed, task);
  RefuseDoubts(message, sealed, called, options);
  const std::vector<Written> attachments = WriteFiles(message, folder, options);
  if (options.files.size() == 1) {
    Show(message, sealed, attachments, options);
  } else {
    const std::string from = Routing(message.routing).sender;
    Note(Fill(_("{1}: from {2}, in {3}"), {Printable(called), Printable(from), Printable(folder)}));
  }
}

// A folder for each message, called as its file; one message has the folder itself.
std::vector<std::string> FoldersOf(const Options& options) {
  std::vector<std::string> folders;
  if (options.folder.empty() || options.files.size() == 1) return {options.folder};
  Names names;
  for (const std::string& file : options.files) {
    const std::string stem = std::filesystem::path(file).stem();
    folders.push_back(options.folder + "/" + names.Take(HarmlessName(stem, _("message"))));
  }
  return folders;
}

Status OpenMany(Run& run, const std::vector<std::string>& folders) {
  // Made here, so that it goes again where nothing comes of it.
  FolderOutput outer(run.options.folder, run.options.force);
  std::atomic<std::size_t> next{0};
  std::atomic<int> worst{0};
  std::atomic<bool> has_any{false};
  const auto work = [&] {
    for (std::size_t i = next++; i < folders.size(); i = next++) {
      Status status = Status::kDone;
      try {
        OpenOne(run.options.files[i], folders[i], run);
        has_any = true;
      } catch (const Failure& failure) {
        Complain(failure);
        status = failure.status();
      } catch (const std::exception& error) {
        Complain(Failure(Status::kCouldNot, Printable(error.what())));
        status = Status::kCouldNot;
      }
      for (int seen = worst;
           seen < static_cast<int>(status) && !worst.compare_exchange_weak(seen, static_cast<int>(status));) {
      }
    }
  };
  std::vector<std::thread> threads;
  for (int i = 1; i < run.options.at_a_time; ++i) threads.emplace_back(work);
  work();
  for (std::thread& thread : threads) thread.join();
  if (has_any) outer.Commit();
  return static_cast<Status>(worst.load());
}

void CheckOptions(const Options& options) {
  const auto refuse = [](const char* what, const char* remedy) {
    throw Failure(Status::kCouldNot, what, remedy);
  };
  if (options.deadline < 1 || options.deadline > kLongestDeadline) {
    refuse(_("That is no deadline."), _("Give --deadline a number of seconds, up to a day."));
  }
  if (options.at_a_time < 1 || options.at_a_time > kMostAtATime) {
    refuse(_("That is no number of messages."), _("Give -j a number from 1 to 256."));
  }
  if (options.files.size() > 1 && (options.folder.empty() || !options.eml.empty() || !options.xml.empty())) {
    refuse(_("Several messages go into folders, and nowhere else."),
           _("Name the folder of them all with -o FOLDER."));
  }
  if (options.eml == kStandard && options.xml == kStandard) {
    refuse(_("Standard output takes one of the two."), _("Give --eml or --xml a file."));
  }
}

Status Open(Options& options, const Program& program) {
  CheckOptions(options);
  Run run{options, program.KeyFolder(), KeyRing(&options.pass_phrases), {}};
  const std::vector<std::string> folders = FoldersOf(options);
  if (options.files.size() > 1) return OpenMany(run, folders);
  OpenOne(options.files[0], folders[0], run);
  return Status::kDone;
}

}  // namespace

void AddOpen(Program& program) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = program.Add(
      "open", _("Opens sealed messages, once every signature in them is proven to be the sender's"),
      "  kestrune open message.tr\n  kestrune open -o message message.tr\n"
      "  kestrune open -j 4 -o opened inbox/*.tr",
      [options, &program] { return Open(*options, program); });
  command.add_option("file", options->files, _("Transport blocks or grey blocks"))
      ->type_name(_("FILE"))
      ->required();
  command
      .add_option("-o,--output", options->folder,
                  _("Writes text and attachments into FOLDER; of several messages, into a folder each in it"))
      ->type_name(_("FOLDER"));
  command.add_option("--eml", options->eml, _("Writes the message as a mail; - is standard output"))
      ->type_name(_("FILE"));
  command.add_option("--xml", options->xml, _("Writes the message as tagged text; - is standard output"))
      ->type_name(_("FILE"));
  command.add_flag("--accept-unverified", options->accept_unverified,
                   _("Opens also what is not proven to be the sender's"));
  command.add_flag("--force", options->force, _("Overwrites files in FOLDER"));
  command.add_option("--deadline", options->deadline, _("How long a message may take to open (30)"))
      ->type_name(_("SECONDS"));
  command.add_option("-j,--jobs", options->at_a_time, _("How many messages are opened at a time (1)"))
      ->type_name(_("NUMBER"));
  options->pass_phrases.AddTo(command);
}

}  // namespace kestrune::cli
