// The XML forks of an opened message, for whoever builds one by hand.
#ifndef KESTRUNE_TESTS_SUPPORT_ROUTING_H
#define KESTRUNE_TESTS_SUPPORT_ROUTING_H

#include <string>

namespace kestrune::testing {

// The elements of a routing XML; an empty one is left out.
struct Routing {
  std::string sender = "cle1";
  std::string to = "r1@ailleurs.example";
  std::string copies = "";
  std::string reply_to = "";
  std::string date = "2024-05-15 09:05:00";
  std::string subject = "Qm9uam91cg==";  // Bonjour
  std::string identifier = "ID1";

  std::string Xml() const {
    return "<M><C>cle1.224</C>" + Element("F", sender) + Element("R", reply_to) + Element("I", identifier) +
           Element("TE", date) + Element("D", to) + Element("CC", copies) + Element("S", subject) + "</M>";
  }

 private:
  static std::string Element(const std::string& tag, const std::string& value) {
    return value.empty() ? "" : "<" + tag + ">" + value + "</" + tag + ">";
  }
};

inline std::string AttachmentXml(const std::string& base64_name) {
  return "<AT><N>" + base64_name + "</N></AT><SIGN><S>xyz</S></SIGN>";
}

}  // namespace kestrune::testing

#endif
