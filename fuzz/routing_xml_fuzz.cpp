// A routing XML of any content in a grey block that the known sender signed: the key reference is taken out, and must be
// the one that is read here.
#include "fuzz/message_yard.h"

namespace {

std::string ValueOfClosed(const std::string& xml, const std::string& tag) {
  const std::size_t open = xml.find("<" + tag + ">");
  const bool is_closed = open != std::string::npos && xml.find("</" + tag + ">", open) != std::string::npos;
  return is_closed ? ValueOf(xml, tag) : "";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MessageYard yard;
  const std::string routing(data, data + size), xml(routing.c_str());
  yard.OpenTransport(yard.Sign(FlatLeaf("DATA", routing, {1})));
  const std::string reference = ValueOfClosed(ValueOfClosed(xml, "M"), "C");
  Expect(yard.key_reference == (reference.size() < kKeyReferenceBytes ? reference : ""));
  return 0;
}
