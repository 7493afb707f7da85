// The red block of a message, as it comes out of its seal: any records at all. Whatever the tree holds, it is taken
// apart, and the mail has the header lines of a mail and no others, and as many parts as the message has attachments
// that hold something.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <kestrune/kestrune.h>
#include "blocks/block_cell.h"
#include "core/instance_creator.h"
#include "core/owned.h"

namespace {

constexpr std::array<std::string_view, 10> kLineBeginnings = {"From: ",
                                                              "To: ",
                                                              "Cc: ",
                                                              "Date: ",
                                                              "Subject: =?utf-8?B?",
                                                              "Reply-To: ",
                                                              "X-KestruneV2MessageID: ",
                                                              "MIME-Version: 1.0\r\n",
                                                              "Content-Type: ",
                                                              "Content-Transfer-Encoding: "};

// An end of the program is what the search looks for.
void Expect(bool holds) {
  if (!holds) std::abort();
}

void ExpectHeaderLines(std::string_view mail) {
  std::size_t next_name = 0;  // the lines keep their order
  while (!mail.starts_with("\r\n")) {
    const std::size_t end = mail.find('\n');
    Expect(end != std::string_view::npos && end > 0 && mail.find('\r') == end - 1);
    if (!mail.starts_with(' ')) {
      const auto is_next = [&](std::string_view name) { return mail.starts_with(name); };
      const auto* name = std::find_if(kLineBeginnings.begin(), kLineBeginnings.end(), is_next);
      Expect(name != kLineBeginnings.end());
      const auto place = static_cast<std::size_t>(name - kLineBeginnings.begin());
      Expect(place >= next_name || mail.starts_with("MIME-Version"));  // behind Content-Type when multipart
      next_name = place;
    }
    mail.remove_prefix(end + 1);
  }
}

void ExpectParts(const std::string& mail, std::size_t attachments) {
  // Of its own line: a routing value may hold these words too. The mail given begins with a line end.
  const std::size_t mark = mail.find("\r\nContent-Type: multipart/mixed; boundary=\"");
  const bool multipart = mark < mail.find("\r\n\r\n");
  Expect(multipart == (attachments != 0));
  if (!multipart) return;
  const std::string boundary = mail.substr(mail.find('"', mark) + 1, 35);
  std::size_t lines = 0;
  for (std::size_t at = mark; (at = mail.find(boundary, at + 1)) != std::string::npos;) ++lines;
  Expect(lines == 1 + 1 + attachments + 1);  // named, text, attachments, end
  Expect(mail.ends_with("--\r\n"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  TypV2InstanceCreatorUnix creator;
  kestrune::Owned<TypV2BlockCell> red(creator.newTypV2BlockCell());
  Expect(red.Init(&creator) == 0);
  unsigned long long position = 0;
  if (red->LoadFromFlatData(data, &position, size) != 0) return 0;

  kestrune_message* message = nullptr;
  Expect(kestrune_take_apart(red.get(), "/nowhere/", &message) == 0);
  std::size_t attachments = 0;
  for (auto i = 0ULL; i < message->attachments; ++i) {
    const kestrune_part& part = message->attachment[i];
    Expect(part.data[part.length] == 0 && part.signature != 0 && part.by_sender == 0);
    attachments += part.length != 0 ? 1 : 0;
  }
  kestrune_free_message(message);
  char* mail = nullptr;
  Expect(Api2ConvertRedBlockToEml(red.release(), &mail) == 0);
  if (mail == nullptr) return 0;  // no "ROUT" block
  ExpectHeaderLines(mail);
  ExpectParts(std::string("\r\n") + mail, attachments);
  std::free(mail);
  return 0;
}
