#include "tests/support/key_folder.h"

#include <ctime>

#include "tests/support/bytes.h"

namespace kestrune::testing {
namespace {

constexpr int kPersonalKeyYears = 100;  // the one is this much more than the other

int YearsSince1900() {
  const std::time_t now = std::time(nullptr);
  return std::localtime(&now)->tm_year;
}

}  // namespace

std::string CertificateYear() {
  return std::to_string(YearsSince1900());
}

std::string PersonalKeyYear() {
  return std::to_string(YearsSince1900() + kPersonalKeyYears);
}

std::string KeyFolder::AddSigningKey(const std::string& data, const std::string& name, char letter) const {
  const std::string stem = name + "." + letter + "." + CertificateYear();
  WriteFile(File(stem + ".key"), ReadFile(DataPath(data + ".key")));
  WriteFile(File(stem + ".pem"), ReadFile(DataPath(data + ".pem")));
  return stem;
}

}  // namespace kestrune::testing
