#include "cli/opening.h"

#include <signal.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>

#include <kestrune/kestrune.h>
#include "cli/input.h"
#include "cli/text.h"

namespace kestrune::cli {
namespace {

enum Step : unsigned char { kDeciphering = 1, kMakingMail, kMakingXml };

std::string WordsOf(int step) {
  switch (step) {
    case kMakingMail:
      return _("Making the mail of {1}");
    case kMakingXml:
      return _("Making the XML of {1}");
    default:
      return _("Deciphering and checking {1}");
  }
}

// ---- What the two processes tell each other: numbers and byte strings, one behind the other -----------

void PutNumber(int memory, std::int64_t number) {
  WriteShared(memory, {reinterpret_cast<const char*>(&number), sizeof number});
}
void PutBytes(int memory, std::string_view bytes) {
  PutNumber(memory, static_cast<std::int64_t>(bytes.size()));
  WriteShared(memory, bytes);
}

// Both ends are this program: a short answer is one that was cut, and nothing to be understood.
class Fields {
 public:
  explicit Fields(std::string_view bytes) : rest_(bytes) {}

  std::int64_t Number() {
    std::int64_t number = 0;
    const std::string_view bytes = Take(sizeof number);
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
  }
  std::string_view Bytes() { return Take(static_cast<std::size_t>(Number())); }

 private:
  std::string_view Take(std::size_t count) {
    if (count > rest_.size())
      throw Failure(Status::kCouldNot, _("The process that opens messages was cut short."));
    const std::string_view taken = rest_.substr(0, count);
    rest_.remove_prefix(count);
    return taken;
  }

  std::string_view rest_;
};

// ---- In the process apart -----------------------------------------------------------------------------

struct Task {
  std::string folder;
  bool wants_eml, wants_xml;
  std::string_view grey;
};

void Tell(Step step) {
  (void)!::write(kStepDescriptor, &step, 1);
}

const unsigned char* DataOf(const Task& task) {
  return reinterpret_cast<const unsigned char*>(task.grey.data());
}

void PutPart(const kestrune_part& part) {
  PutNumber(kAnswerDescriptor, part.signature);
  PutBytes(kAnswerDescriptor, part.signer);
  PutBytes(kAnswerDescriptor, part.name);
  PutBytes(kAnswerDescriptor,
           {reinterpret_cast<const char*>(part.data), static_cast<std::size_t>(part.length)});
}

void PutMessage(const kestrune_message& message) {
  PutBytes(kAnswerDescriptor, message.routing);
  PutPart(message.red);
  PutNumber(kAnswerDescriptor, static_cast<std::int64_t>(message.texts));
  for (unsigned long long i = 0; i < message.texts; ++i) PutPart(message.text[i]);
  PutNumber(kAnswerDescriptor, static_cast<std::int64_t>(message.attachments));
  for (unsigned long long i = 0; i < message.attachments; ++i) PutPart(message.attachment[i]);
}

long Message(const Task& task, const char* pass_phrase) {
  kestrune_message* message = nullptr;
  const long code =
      kestrune_open_message(DataOf(task), task.grey.size(), task.folder.c_str(), pass_phrase, &message);
  const std::unique_ptr<kestrune_message, decltype(&kestrune_free_message)> owned(message,
                                                                                  kestrune_free_message);
  PutNumber(kAnswerDescriptor, code);
  if (code == 0) PutMessage(*message);
  return code;
}

// A text of the library's, or its code.
void PutText(long code, char* text) {
  SecretCBuffer owned;
  owned.AdoptText(text);
  PutNumber(kAnswerDescriptor, code);
  PutBytes(kAnswerDescriptor, owned ? owned.text() : "");
}

void PutEml(const Task& task, const char* pass_phrase) {
  TypV2BlockCell* red = nullptr;
  long code = kestrune_open_tree(DataOf(task), task.grey.size(), task.folder.c_str(), pass_phrase, &red);
  char* eml = nullptr;
  if (code == 0) code = Api2ConvertRedBlockToEml(red, &eml);
  PutText(code, eml);
}

void PutXml(const Task& task, const char* pass_phrase) {
  char* xml = nullptr;
  const long code =
      Api2DecrypterGrisMem(DataOf(task), task.grey.size(), task.folder.c_str(), pass_phrase, &xml);
  PutText(code, xml);
}

// ---- In the program itself ----------------------------------------------------------------------------

OpenedPart TakePart(Fields& fields) {
  OpenedPart part;
  part.signature = fields.Number();
  part.signer = fields.Bytes();
  part.name = fields.Bytes();
  part.data = fields.Bytes();
  return part;
}

std::string_view TakeText(Fields& fields, const char* entry_point, const std::string& called) {
  const long code = fields.Number();
  if (code != 0) throw LibraryFailure(entry_point, code, called);
  const std::string_view text = fields.Bytes();
  if (text.empty()) {
    throw Failure(Status::kNo,
                  Fill(_("{1} has no routing, so no mail can be made of it."), {Printable(called)}),
                  _("Open it without --eml."));
  }
  return text;
}

Descriptor MakeTask(const SealedFile& sealed, const OpeningTask& task) {
  Descriptor memory = MakeSharedMemory();
  PutBytes(memory.get(), task.folder);
  PutNumber(memory.get(), task.wants_eml ? 1 : 0);
  PutNumber(memory.get(), task.wants_xml ? 1 : 0);
  PutBytes(memory.get(), {reinterpret_cast<const char*>(sealed.data()), sealed.size()});
  return memory;
}

Failure TooLate(const OpeningTask& task) {
  return {Status::kCouldNot,
          Fill(_("{1} was not open after {2} s."),
               {Printable(task.called), std::to_string(task.deadline.count())}),
          _("It is forged or was sealed under another key of that name; a very large one may want a longer "
            "--deadline.")};
}

// Whether what a part is said to be signed by is proven, and is the sender.
std::optional<Failure> DoubtAbout(const OpenedPart& part, const std::string& what, const std::string& from) {
  if (part.signature != 0) {
    const std::string named =
        part.signer.empty() ? what : Fill(_("{1}, which names {2}"), {what, part.signer});
    return LibraryFailure("kestrune_open_message", part.signature, named);
  }
  if (kestrune_is_sender(part.signer.c_str(), from.c_str()) == 1) return std::nullopt;
  return Failure(Status::kNo,
                 Fill(_("{1} says that {2} sent it, but {3} signed it."),
                      {Printable(what), Printable(from), Printable(part.signer)}),
                 _("Do not believe the sender; ask the two of them."));
}

}  // namespace

int OpenInThisProcess() {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const Content secret = ReadDescriptor(kSecretDescriptor, "secret");
  const SharedBytes bytes{Descriptor(kTaskDescriptor)};
  Fields fields(bytes.view());
  Task task;
  task.folder = fields.Bytes();
  task.wants_eml = fields.Number() != 0;
  task.wants_xml = fields.Number() != 0;
  task.grey = fields.Bytes();
  Tell(kDeciphering);
  if (Message(task, secret.text()) != 0) return 0;
  if (task.wants_eml) {
    Tell(kMakingMail);
    PutEml(task, secret.text());
  }
  if (task.wants_xml) {
    Tell(kMakingXml);
    PutXml(task, secret.text());
  }
  return 0;
}

OpenedMessage OpenApart(const SealedFile& sealed, const OpeningTask& task) {
  OpenedMessage message;
  const auto on_step = [&task](int step) { task.on_step(Fill(WordsOf(step), {Printable(task.called)})); };
  switch (RunApart(MakeTask(sealed, task), task.pass_phrase, task.deadline, on_step, &message.bytes)) {
    case Ending::kTooLate:
      throw TooLate(task);
    case Ending::kDied:
      throw Failure(Status::kCouldNot,
                    Fill(_("{1}: the process that opens it died."), {Printable(task.called)}),
                    _("There may not be enough memory."));
    case Ending::kDone:
      break;
  }
  Fields fields(message.bytes.view());
  if (const long code = fields.Number(); code != 0) {
    const std::string key = Routing(sealed.routing).key;
    throw LibraryFailure("kestrune_open_message", code, Fill(_("{1}, for the key {2}"), {task.called, key}));
  }
  message.routing = fields.Bytes();
  message.whole = TakePart(fields);
  for (auto left = fields.Number(); left > 0; --left) message.texts.push_back(TakePart(fields));
  for (auto left = fields.Number(); left > 0; --left) message.attachments.push_back(TakePart(fields));
  if (task.wants_eml) message.eml = TakeText(fields, "Api2ConvertRedBlockToEml", task.called);
  if (task.wants_xml) message.xml = TakeText(fields, "Api2DecrypterGrisMem", task.called);
  return message;
}

std::vector<Failure> DoubtsAbout(const OpenedMessage& message, const SealedFile& sealed,
                                 const std::string& called) {
  std::vector<Failure> doubts;
  if (sealed.doubt) doubts.push_back(*sealed.doubt);
  const std::string outer = Routing(sealed.routing).sender;
  std::string from = Routing(message.routing).sender;
  // With recipients that were written beforehand only the grey block names a sender.
  if (from.empty()) from = outer;
  if (from != outer) {
    doubts.emplace_back(Status::kNo,
                        Fill(_("{1} names two senders: {2} outside, {3} inside."),
                             {Printable(called), Printable(outer), Printable(from)}),
                        _("Do not believe the sender; ask the two of them."));
  }
  const auto look = [&](const OpenedPart& part, const std::string& what) {
    if (const auto doubt = DoubtAbout(part, what, from)) doubts.push_back(*doubt);
  };
  look(message.whole, Fill(_("{1}, the message"), {called}));
  for (const OpenedPart& text : message.texts) look(text, Fill(_("{1}, the text"), {called}));
  for (const OpenedPart& attachment : message.attachments) {
    look(attachment, Fill(_("{1}, the attachment {2}"), {called, attachment.name}));
  }
  return doubts;
}

}  // namespace kestrune::cli
