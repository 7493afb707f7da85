#include "tests/support/key_folder.h"

#include "tests/support/bytes.h"

namespace kestrune::testing {

std::string KeyFolder::AddSigningKey(const std::string& data, const std::string& name, char letter) const {
  const std::string stem = name + "." + letter + "." + CertificateYear();
  WriteFile(File(stem + ".key"), ReadFile(DataPath(data + ".key")));
  WriteFile(File(stem + ".pem"), ReadFile(DataPath(data + ".pem")));
  return stem;
}

}  // namespace kestrune::testing
